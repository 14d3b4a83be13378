#ifndef EMSPLATFORM_TASK_H
#define EMSPLATFORM_TASK_H

/// The platform's task framework, as far as libemsutil uses it. A process has an application
/// manager, which finds task managers by id. A task manager owns tasks and delivers their events.
/// Any thread may call the operations of task managers and tasks.

/// The result of a message.
typedef int eKorErrorCode;

// Messages between tasks. Tasks of libemsutil neither send nor read any.
struct CmdMSG;
struct QNCmdMsg;

class eKorTaskMgr;

/// A task of a task manager.
///
/// libemsutil is compiled against the order of the virtual operations, here and in eKorGnlTask.
class eKorTask
{
public:
    /// The caller must keep the characters of `name` while the task exists.
    eKorTask(eKorTaskMgr* taskMgr, const char* name);
    virtual ~eKorTask();
    eKorTask(const eKorTask&) = delete;
    eKorTask& operator=(const eKorTask&) = delete;

    /// Called with the message that starts the task, or null.
    virtual void InitTaskCmdReqProcess(CmdMSG* msg);
    /// Called with a message to the task.
    virtual void eKorTaskCmdRecv(CmdMSG* msg) = 0;
    /// Called with the response to a message of the task.
    virtual void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) = 0;
    /// Called each time that the interval timer with this id expires. The manager holds no lock.
    virtual void eKorTaskTimeInterval(long id);

    /// Arms a timer that expires after `interval` of the manager's units of time. It may expire
    /// again until it is disarmed. Returns its id, or -1 when it is not armed. Every other value is
    /// an id. The timer may expire before this function has returned, also on the calling thread.
    long SetTaskTimeInterval(unsigned int interval);
    /// Disarms the timer with this id. Ignores an id that is not an armed timer of this task.
    void DelTaskTimeInterval(long id);
    /// At state 3 the task has finished: no timer of it expires any more, and its manager destroys
    /// it, in this function or later, on a thread of the manager's choice.
    void eKorSetTaskState(int state);

    /// The platform's record of a task.
    class State;

private:
    State* m_pState;
    // Has the record, so that a task needs no second allocation.
    alignas(long long) unsigned char m_StateMemory[112];
};

/// The first base of the tasks of libemsutil. None of its operations is pure.
class eKorGnlTask : public eKorTask
{
public:
    using eKorTask::eKorTask;

    void eKorTaskCmdRecv(CmdMSG* msg) override;
    void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) override;
    /// Called with a message of another kind.
    virtual void HandleNoAsn1Msg(QNCmdMsg* msg);
};

/// The second base of the tasks of libemsutil.
class PSyncHelp
{
public:
    virtual ~PSyncHelp();
};

/// Owns tasks and delivers their events.
class eKorTaskMgr
{
public:
    /// Returns a request id for the task, which is not inserted yet and still the caller's.
    unsigned long AllocReqID(eKorTask* task);
    /// Inserts the task, which belongs to the manager from then on. When it throws, the task has
    /// not been inserted. The task may expire, and be destroyed, before this function has returned.
    /// libemsutil ignores the result.
    int TMInitInsertTask(eKorTask* task);

protected:
    eKorTaskMgr() = default;
    ~eKorTaskMgr() = default;
};

/// Finds the task managers of the process.
class eKorAppMgr
{
public:
    /// Returns the task manager with this id, or null.
    eKorTaskMgr* FindTaskMgrByID(unsigned char id);
};

/// Returns the process's application manager, or null while the process has no task manager.
eKorAppMgr* eKorGetAppMgr();

#endif
