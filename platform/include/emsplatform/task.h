#ifndef EMSPLATFORM_TASK_H
#define EMSPLATFORM_TASK_H

/// The platform's task framework, as far as libemsutil builds on it: a process has an application
/// manager, which knows task managers by id; a task manager owns tasks and delivers their events.

/// How a message was answered.
typedef int eKorErrorCode;

// Messages between tasks; tasks of libemsutil neither send nor read any.
struct CmdMSG;
struct QNCmdMsg;

class eKorTask;
class eKorTaskMgr;

namespace emsstandin {
class TaskManager;
class TaskStore;

/// An interval timer of a task; those of one task are linked. The manager's own.
struct TaskInterval
{
    long m_lId = 0;                  ///< as SetTaskTimeInterval() gave it; 0 when not armed
    eKorTask* m_pTask = nullptr;     ///< whose it is
    long m_lQueueId = -1;            ///< in the manager's queue of timers
    TaskInterval* m_pNext = nullptr; ///< the task's next
};
} // namespace emsstandin

/// A task of a task manager.
///
/// libemsutil is compiled against the order of the virtual operations, here and in eKorGnlTask.
class eKorTask
{
public:
    /// `name` is kept as it is, so it is a literal.
    eKorTask(eKorTaskMgr* taskMgr, const char* name);
    virtual ~eKorTask();
    eKorTask(const eKorTask&) = delete;
    eKorTask& operator=(const eKorTask&) = delete;

    /// Called with the message that starts the task, or null. This platform does not call it.
    virtual void InitTaskCmdReqProcess(CmdMSG* msg);
    /// Called with a message to the task. This platform does not call it.
    virtual void eKorTaskCmdRecv(CmdMSG* msg) = 0;
    /// Called with the answer to a message of the task. This platform does not call it.
    virtual void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) = 0;
    /// Called each time that the interval timer with this id expires.
    virtual void eKorTaskTimeInterval(long id);

    /// Arms a timer that expires after `interval` of the manager's units of time, at least one, and
    /// again and again until it is disarmed. Returns its id, which is above 0 and never given
    /// twice; -1 when memory runs out. An expiry may come on another thread before the call has
    /// returned, never on the thread that calls: libemsutil has it wait for that thread.
    long SetTaskTimeInterval(unsigned int interval);
    /// Disarms it. An id that is not armed, or not this task's, is ignored.
    void DelTaskTimeInterval(long id);
    /// At state 3 the task is at its end: the manager destroys it, once the event that it is in, if
    /// any, has returned. Other states mean nothing to the manager.
    void eKorSetTaskState(int state);

    /// As the constructor got it.
    const char* Name() const { return m_pName; }
    /// 0 until the manager has given one.
    unsigned long ReqID() const { return m_ulReqID; }

private:
    friend class emsstandin::TaskStore;

    emsstandin::TaskStore& Store() const;

    eKorTaskMgr* const m_pTaskMgr;
    const char* const m_pName;
    unsigned long m_ulReqID = 0; // set before the task is inserted
    // Guarded by the manager's lock.
    eKorTask** m_ppInserted = nullptr; // the link to it among the inserted tasks, if it is one
    eKorTask* m_pNextInserted = nullptr;
    bool m_bFinished = false;
    eKorTask* m_pNextFinished = nullptr;
    emsstandin::TaskInterval* m_pIntervals = nullptr; // those that are armed
    emsstandin::TaskInterval m_FirstInterval;         // most tasks have no other
};

/// A task that takes every event and does nothing with it.
class eKorGnlTask : public eKorTask
{
public:
    using eKorTask::eKorTask;

    void eKorTaskCmdRecv(CmdMSG* msg) override;
    void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) override;
    /// Called with a message of another kind. This platform does not call it.
    virtual void HandleNoAsn1Msg(QNCmdMsg* msg);
};

/// A base that tasks have on other platforms; here it does nothing.
class PSyncHelp
{
public:
    virtual ~PSyncHelp();
};

/// Owns tasks and delivers their events. Any thread may call it.
class eKorTaskMgr
{
public:
    /// Gives the task a request id, above 0, and returns it.
    unsigned long AllocReqID(eKorTask* task);
    /// Takes the task: it is the manager's from here on. Returns 0. What this throws says that the
    /// task has not been taken.
    int TMInitInsertTask(eKorTask* task);

protected:
    eKorTaskMgr() = default;
    ~eKorTaskMgr() = default;
};

/// Knows the task managers of the process.
class eKorAppMgr
{
public:
    /// The task manager with this id, or null.
    eKorTaskMgr* FindTaskMgrByID(unsigned char id);
};

/// The process's application manager; null while it has no task manager.
eKorAppMgr* eKorGetAppMgr();

#endif
