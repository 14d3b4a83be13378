#include "agent/emsutil_util_timer.h"

#include <memory>
#include <new>
#include <thread>

#include <emsplatform/debug_interface.h>

#include "base/cancellation_off.h"
#include "emsutil/diagnostics.h"

QNTask::QNTask(eKorTaskMgr* taskMgr, const char* name) : eKorGnlTask(taskMgr, name) {}

QNTask::~QNTask() = default;

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr const char* TASK_NAME = "EmsUtilAgentTimerTask";
constexpr unsigned int INTERVAL = 1; // units of the task manager
constexpr int STATE_FINISHED = 3;

eKorTaskMgr* FindTaskMgr(unsigned char id)
{
    eKorAppMgr* const appMgr = eKorGetAppMgr();
    return appMgr != nullptr ? appMgr->FindTaskMgrByID(id) : nullptr;
}

/// Brings a task to its end on every way out of its expiry.
class AtItsEnd
{
public:
    explicit AtItsEnd(eKorTask& task) : m_Task(task) {}
    ~AtItsEnd() { m_Task.eKorSetTaskState(STATE_FINISHED); }
    AtItsEnd(const AtItsEnd&) = delete;
    AtItsEnd& operator=(const AtItsEnd&) = delete;

private:
    eKorTask& m_Task;
};

} // namespace

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
    AwaitArming();
    if (m_pParam != nullptr && m_Interface.pfnFreeParam != nullptr) {
        const CancellationOff uncancelled;
        m_Interface.pfnFreeParam(m_pParam);
    }
    m_pParam = nullptr;
}

void EmsUtilAgentTimerTask::AwaitArming() const
{
    while (m_bArming.load(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
}

void EmsUtilAgentTimerTask::InitTaskCmdReqProcess(CmdMSG*)
{
    long id = 0;
    try {
        id = SetTaskTimeInterval(INTERVAL);
    } catch (...) {
        eKorSetTaskState(STATE_FINISHED); // it will never fire, so nothing else would end it
        throw;
    }
    m_lTimerID.store(id, std::memory_order_relaxed); // published with the flag
    if (id < 0) {
        eKorSetTaskState(STATE_FINISHED); // likewise
    }
}

void EmsUtilAgentTimerTask::eKorTaskTimeInterval(long)
{
    AwaitArming();
    const AtItsEnd end(*this);
    DelTaskTimeInterval(m_lTimerID.load(std::memory_order_relaxed));
    if (m_Interface.pfnTimeout != nullptr) {
        m_Interface.pfnTimeout(m_pParam);
    }
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
    const EmsUtilAgentTimerTask::Arming arming(*task);
    taskMgr->AllocReqID(task.get());
    taskMgr->TMInitInsertTask(task.get());
    task.release()->InitTaskCmdReqProcess(nullptr);
}

} // namespace NSQN_EMSUTIL_AGENT
