#include "agent/emsutil_util_timer.h"

#include <memory>
#include <new>
#include <utility>

#include <ace/Guard_T.h>

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

eKorTaskMgr* FindTaskMgr(unsigned char id)
{
    eKorAppMgr* const appMgr = eKorGetAppMgr();
    return appMgr != nullptr ? appMgr->FindTaskMgrByID(id) : nullptr;
}

} // namespace

/// Exists while this thread calls the platform for a task. Inside this call, on this thread, the
/// platform may fire the task or destroy it. After the call the object returns whether it did.
class EmsUtilAgentTimerTask::PlatformCall
{
public:
    /// `guard` holds the task's scheduling lock, or is null.
    PlatformCall(const EmsUtilAgentTimerTask& task, SchedulingGuard* guard)
        : m_pTask(&task), m_pGuard(guard), m_pOuter(std::exchange(m_pInnermost, this))
    {}
    ~PlatformCall() { m_pInnermost = m_pOuter; }
    PlatformCall(const PlatformCall&) = delete;
    PlatformCall& operator=(const PlatformCall&) = delete;

    bool IsTaskDestroyed() const { return m_pTask == nullptr; }
    bool HasTaskFired() const { return m_bFired; }

    /// Must be called when the task fires. Returns whether this thread holds the scheduling lock.
    static bool OnFired(const EmsUtilAgentTimerTask& task)
    {
        bool isScheduling = false;
        for (PlatformCall* call = g_pInnermost; call != nullptr; call = call->m_pOuter) {
            if (call->m_pTask == &task) {
                call->m_bFired = true;
                isScheduling = isScheduling || call->m_pGuard != nullptr;
            }
        }
        return isScheduling;
    }

    /// Must be called when the task is destroyed. Releases the scheduling lock, and returns true,
    /// if this thread holds it.
    static bool OnDestroyed(const EmsUtilAgentTimerTask& task)
    {
        bool isScheduling = false;
        for (PlatformCall* call = g_pInnermost; call != nullptr; call = call->m_pOuter) {
            if (call->m_pTask == &task) {
                call->m_pTask = nullptr;
                if (call->m_pGuard != nullptr) {
                    call->m_pGuard->release();
                    isScheduling = true;
                }
            }
        }
        return isScheduling;
    }

private:
    static constinit thread_local PlatformCall* g_pInnermost;

    PlatformCall*& m_pInnermost = g_pInnermost; // looked up once per call
    const EmsUtilAgentTimerTask* m_pTask;
    SchedulingGuard* const m_pGuard;
    PlatformCall* const m_pOuter;
    bool m_bFired = false;
};

constinit thread_local EmsUtilAgentTimerTask::PlatformCall*
    EmsUtilAgentTimerTask::PlatformCall::g_pInnermost = nullptr;

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
    if (!PlatformCall::OnDestroyed(*this)) {
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
    const PlatformCall arming(*this, nullptr);
    long id = NOT_ARMED;
    try {
        id = SetTaskTimeInterval(INTERVAL);
    } catch (...) {
        if (!arming.IsTaskDestroyed()) {
            OnArmingFailed();
        }
        throw;
    }
    if (arming.IsTaskDestroyed()) {
        return;
    }
    if (id == NOT_ARMED) {
        OnArmingFailed();
        return;
    }
    m_lTimerID = id;
    if (arming.HasTaskFired()) {
        DelTaskTimeInterval(id); // the expiry came before the id was known
    }
}

void EmsUtilAgentTimerTask::OnArmingFailed()
{
    if (m_lTimerID == 0) { // otherwise an interval that the platform armed finishes the task
        eKorSetTaskState(STATE_FINISHED);
    }
}

void EmsUtilAgentTimerTask::eKorTaskTimeInterval(long)
{
    if (!PlatformCall::OnFired(*this)) {
        const SchedulingGuard guard(m_SchedulingLock); // waits until the id is known
        if (!guard.locked()) {
            return; // the interval is still armed: if it expires again, that expiry tries again
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
    SchedulingGuard guard(task->m_SchedulingLock);
    if (!guard.locked()) {
        return;
    }
    const EmsUtilAgentTimerTask::PlatformCall scheduling(*task, &guard);
    taskMgr->AllocReqID(task.get());
    taskMgr->TMInitInsertTask(task.get());
    EmsUtilAgentTimerTask* const inserted = task.release();
    // The platform may have armed the task itself, so that it has fired.
    if (!scheduling.IsTaskDestroyed() && !scheduling.HasTaskFired()) {
        inserted->InitTaskCmdReqProcess(nullptr);
    }
}

} // namespace NSQN_EMSUTIL_AGENT
