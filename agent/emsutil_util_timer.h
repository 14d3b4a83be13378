#ifndef AGENT_EMSUTIL_UTIL_TIMER_H
#define AGENT_EMSUTIL_UTIL_TIMER_H

#include <atomic>

#include <ace/Guard_T.h>
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
    class Scheduling;

    EmsUtilAgentTimerTask(eKorTaskMgr* taskMgr, const char* name, EmsUtilTimerInterface& timer,
                          void* param);
    ~EmsUtilAgentTimerTask() override;

    /// Arms the interval. Finishes the task when that fails.
    void InitTaskCmdReqProcess(CmdMSG* msg) override;
    /// Disarms the interval, calls the caller's function and finishes the task.
    void eKorTaskTimeInterval(long id) override;

private:
    std::atomic<long> m_lTimerID = 0; // of the newest interval
    EmsUtilTimerInterface m_Interface;
    void* m_pParam = nullptr;
    ACE_Thread_Mutex m_SchedulingLock; // held by Scheduling
};

/// The scope in which a thread inserts and arms a task. While it exists the task neither fires nor
/// is destroyed on another thread: a thread that would do either waits. The platform may do both
/// on the scheduling thread itself, inside the calls that this thread makes.
class EmsUtilAgentTimerTask::Scheduling
{
public:
    explicit Scheduling(EmsUtilAgentTimerTask& task);
    ~Scheduling();
    Scheduling(const Scheduling&) = delete;
    Scheduling& operator=(const Scheduling&) = delete;

    /// Returns the scope of this task on the calling thread, or null.
    static Scheduling* Find(const EmsUtilAgentTimerTask& task);

    bool locked() const { return m_Guard.locked(); }
    bool IsTaskDestroyed() const { return m_pTask == nullptr; }
    bool HasFired() const { return m_bFired; }

    void OnFired() { m_bFired = true; }
    void OnDestroyed();

private:
    EmsUtilAgentTimerTask* m_pTask;
    ACE_Guard<ACE_Thread_Mutex> m_Guard;
    Scheduling* const m_pOuter; // this thread may schedule another timer meanwhile
    bool m_bFired = false;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
