#ifndef AGENT_EMSUTIL_UTIL_TIMER_H
#define AGENT_EMSUTIL_UTIL_TIMER_H

#include <atomic>

#include <emsplatform/task.h>

#include "emsutil/timer.h"

/// The library's base for tasks on the platform's task framework.
class QNTask : public eKorGnlTask, public PSyncHelp
{
public:
    QNTask(eKorTaskMgr* taskMgr, const char* name);
    ~QNTask() override;
};

namespace NSQN_EMSUTIL_AGENT {

/// One timer. Once inserted it is the task manager's, which destroys it when it has fired.
class EmsUtilAgentTimerTask : public QNTask
{
public:
    EmsUtilAgentTimerTask(eKorTaskMgr* taskMgr, const char* name, EmsUtilTimerInterface& timer,
                          void* param);
    ~EmsUtilAgentTimerTask() override;

    /// To be called before the task is given away: until InitTaskCmdReqProcess() has armed it, it
    /// neither fires nor ends.
    void BeginArming() { m_bArming.store(true, std::memory_order_relaxed); }
    void CancelArming() { m_bArming.store(false, std::memory_order_relaxed); }

    /// Arms the interval. The task may be gone when it returns.
    void InitTaskCmdReqProcess(CmdMSG* msg) override;
    /// Disarms it, runs the function, and comes to the task's end.
    void eKorTaskTimeInterval(long id) override;

private:
    void AwaitArming() const;

    std::atomic<long> m_lTimerID = 0; // of the newest interval
    EmsUtilTimerInterface m_Interface;
    void* m_pParam = nullptr;
    /// While a thread is about to arm the interval. To clear it is the last that this thread does
    /// with the task; an expiry, or the task's end, that is earlier waits for those few
    /// instructions.
    std::atomic<bool> m_bArming = false;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
