#include "agent/emsutil_util_timer.h"

#include <memory>
#include <new>
#include <utility>

#include <emsplatform/debug_interface.h>

#include "base/cancellation_off.h"
#include "emsutil/diagnostics.h"

QNTask::QNTask(eKorTaskMgr* taskMgr, const char* name) : eKorGnlTask(taskMgr, name) {}

QNTask::~QNTask() = default;

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr const char* TASK_NAME = "EmsUtilAgentTimerTask";
constexpr unsigned int INTERVAL = 1; // units of the task manager
constexpr long NOT_ARMED = -1;       // every other id is valid
constexpr int STATE_FINISHED = 3;

using SchedulingGuard = ACE_Guard<ACE_Thread_Mutex>;

constinit thread_local EmsUtilAgentTimerTask::Scheduling* g_pInnermost = nullptr;

eKorTaskMgr* FindTaskMgr(unsigned char id)
{
    eKorAppMgr* const appMgr = eKorGetAppMgr();
    return appMgr != nullptr ? appMgr->FindTaskMgrByID(id) : nullptr;
}

} // namespace

EmsUtilAgentTimerTask::Scheduling::Scheduling(EmsUtilAgentTimerTask& task)
    : m_pTask(&task), m_Guard(task.m_SchedulingLock), m_pOuter(std::exchange(g_pInnermost, this))
{}

EmsUtilAgentTimerTask::Scheduling::~Scheduling()
{
    g_pInnermost = m_pOuter;
}

EmsUtilAgentTimerTask::Scheduling*
EmsUtilAgentTimerTask::Scheduling::Find(const EmsUtilAgentTimerTask& task)
{
    Scheduling* scope = g_pInnermost;
    while (scope != nullptr && scope->m_pTask != &task) {
        scope = scope->m_pOuter;
    }
    return scope;
}

void EmsUtilAgentTimerTask::Scheduling::OnDestroyed()
{
    m_Guard.release(); // the lock is destroyed with the task
    m_pTask = nullptr;
}

EmsUtilAgentTimerTask::EmsUtilAgentTimerTask(eKorTaskMgr* taskMgr, const char* name,
                                             EmsUtilTimerInterface& timer, void* param)
    : QNTask(taskMgr, name), m_Interface(timer)
{
    if (param != nullptr && m_Interface.pfnCopyParam != nullptr) {
        m_pParam = m_Interface.pfnCopyParam(param);
    }
}

EmsUtilAgentTimerTask::~EmsUtilAgentTimerTask()
{
    if (Scheduling* const here = Scheduling::Find(*this)) {
        here->OnDestroyed();
    } else {
        // Waits for the scheduling thread. locked() is not checked: the task is destroyed anyway.
        const SchedulingGuard guard(m_SchedulingLock);
    }
    if (m_pParam != nullptr && m_Interface.pfnFreeParam != nullptr) {
        const CancellationOff uncancelled;
        m_Interface.pfnFreeParam(m_pParam);
    }
    m_pParam = nullptr;
}

void EmsUtilAgentTimerTask::InitTaskCmdReqProcess(CmdMSG*)
{
    // Null when the platform calls this itself.
    const Scheduling* const here = Scheduling::Find(*this);
    const auto isDestroyed = [here] { return here != nullptr && here->IsTaskDestroyed(); };
    long id = NOT_ARMED;
    try {
        id = SetTaskTimeInterval(INTERVAL);
    } catch (...) {
        if (!isDestroyed()) {
            eKorSetTaskState(STATE_FINISHED); // it never fires, so nothing else would finish it
        }
        throw;
    }
    if (isDestroyed()) {
        return;
    }
    m_lTimerID = id;
    if (id == NOT_ARMED) {
        eKorSetTaskState(STATE_FINISHED);
    } else if (here != nullptr && here->HasFired()) {
        DelTaskTimeInterval(id); // the expiry came before the id was known
    }
}

void EmsUtilAgentTimerTask::eKorTaskTimeInterval(long)
{
    if (Scheduling* const here = Scheduling::Find(*this)) {
        here->OnFired();
    } else {
        const SchedulingGuard guard(m_SchedulingLock); // waits until the id is known
        if (!guard.locked()) {
            return; // the interval is still armed, so its next expiry tries again
        }
    }
    try {
        DelTaskTimeInterval(m_lTimerID);
        if (m_Interface.pfnTimeout != nullptr) {
            m_Interface.pfnTimeout(m_pParam);
        }
    } catch (...) {
        eKorSetTaskState(STATE_FINISHED);
        throw;
    }
    eKorSetTaskState(STATE_FINISHED);
}

void ScheduleEmsUtilTimer(unsigned char taskMgrId, EmsUtilTimerInterface& timer, void* param)
{
    eKorTaskMgr* const taskMgr = FindTaskMgr(taskMgrId);
    if (taskMgr == nullptr) {
        if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface()) {
            debug->DebugPrint(1, "Find TaskMgrID %d failed\n", taskMgrId);
        }
        return;
    }
    std::unique_ptr<EmsUtilAgentTimerTask> task(
        new (std::nothrow) EmsUtilAgentTimerTask(taskMgr, TASK_NAME, timer, param));
    if (task == nullptr) {
        if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface()) {
            debug->DebugPrint(1, "new EmsUtilAgentTimerTask task failed bytes %u\n",
                              static_cast<unsigned int>(sizeof(EmsUtilAgentTimerTask)));
        }
        return;
    }
    const EmsUtilAgentTimerTask::Scheduling scheduling(*task);
    if (!scheduling.locked()) {
        return;
    }
    taskMgr->AllocReqID(task.get());
    taskMgr->TMInitInsertTask(task.get());
    EmsUtilAgentTimerTask* const inserted = task.release();
    if (!scheduling.IsTaskDestroyed()) {
        inserted->InitTaskCmdReqProcess(nullptr);
    }
}

} // namespace NSQN_EMSUTIL_AGENT
