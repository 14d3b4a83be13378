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

    /// While it lives a task neither fires nor ends: whoever is to do that waits. To destroy it is
    /// the last that the thread which schedules a timer does with its task.
    class Arming
    {
    public:
        explicit Arming(EmsUtilAgentTimerTask& task) : m_bArming(task.m_bArming)
        {
            m_bArming.store(true, std::memory_order_relaxed); // the task is given away later
        }
        ~Arming() { m_bArming.store(false, std::memory_order_release); }
        Arming(const Arming&) = delete;
        Arming& operator=(const Arming&) = delete;

    private:
        std::atomic<bool>& m_bArming;
    };

    /// Arms the interval; ends the task when that fails.
    void InitTaskCmdReqProcess(CmdMSG* msg) override;
    /// Disarms it, runs the function, and comes to the task's end.
    void eKorTaskTimeInterval(long id) override;

private:
    void AwaitArming() const;

    std::atomic<long> m_lTimerID = 0; // of the newest interval
    EmsUtilTimerInterface m_Interface;
    void* m_pParam = nullptr;
    std::atomic<bool> m_bArming = false;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
