#ifndef AGENT_EMSUTIL_UTIL_TIMER_H
#define AGENT_EMSUTIL_UTIL_TIMER_H

#include <atomic>

#include <ace/Thread_Mutex.h>

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

/// One timer. Once it is inserted it belongs to the task manager, which must destroy it.
class EmsUtilAgentTimerTask : public QNTask
{
public:
    EmsUtilAgentTimerTask(eKorTaskMgr* taskMgr, const char* name, EmsUtilTimerInterface& timer,
                          void* param);
    ~EmsUtilAgentTimerTask() override;

    /// Arms the interval. Finishes the task when that fails.
    void InitTaskCmdReqProcess(CmdMSG* msg) override;
    /// Disarms the interval, calls the caller's function and finishes the task.
    void eKorTaskTimeInterval(long id) override;

private:
    void OnArmingFailed();

    friend void ScheduleEmsUtilTimer(unsigned char, EmsUtilTimerInterface&, void*);

    class PlatformCall;

    std::atomic<long> m_lTimerID = 0; // the id of the newest interval
    EmsUtilTimerInterface m_Interface;
    void* m_pParam = nullptr;
    // Held by the thread that schedules the timer until the task is armed. Meanwhile the task
    // neither fires nor is destroyed on another thread.
    ACE_Thread_Mutex m_SchedulingLock;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
