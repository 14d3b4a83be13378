#ifndef EMSPLATFORM_TASK_H
#define EMSPLATFORM_TASK_H

/// The platform's task framework, as far as libemsutil uses it. A process has an application
/// manager, which finds task managers by id. A task manager owns tasks and delivers their events.

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

    /// Called with the message that starts the task, or null. This platform does not call it.
    virtual void InitTaskCmdReqProcess(CmdMSG* msg);
    /// Called with a message to the task. This platform does not call it.
    virtual void eKorTaskCmdRecv(CmdMSG* msg) = 0;
    /// Called with the response to a message of the task. This platform does not call it.
    virtual void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) = 0;
    /// Called each time that the interval timer with this id expires.
    virtual void eKorTaskTimeInterval(long id);

    /// Arms a timer that expires after `interval` of the manager's units of time, at least one, and
    /// again after each further `interval` until it is disarmed. Returns its id, or -1 when memory
    /// runs out. Every other value is an id. The ids of this platform are above 0 and never used
    /// twice. The timer may expire on another thread before this function has returned. On this
    /// platform it never expires on the calling thread before that.
    long SetTaskTimeInterval(unsigned int interval);
    /// Disarms the timer with this id. Ignores an id that is not an armed timer of this task.
    void DelTaskTimeInterval(long id);
    /// At state 3 the task has finished, and its manager destroys it. This platform destroys it on
    /// the thread that delivers events, after the current event. If that is another thread, the
    /// task may be destroyed before this function has returned. The calling thread never destroys
    /// it before that. The manager ignores other states.
    void eKorSetTaskState(int state);

    /// This platform's record of a task.
    class State;

private:
    State* m_pState;
    // Has the record, so that a task needs no second allocation.
    alignas(void*) unsigned char m_StateMemory[14 * sizeof(void*)];
};

/// A task that ignores every event.
class eKorGnlTask : public eKorTask
{
public:
    using eKorTask::eKorTask;

    void eKorTaskCmdRecv(CmdMSG* msg) override;
    void eKorTaskCmdResp(eKorErrorCode code, CmdMSG* msg) override;
    /// Called with a message of another kind. This platform does not call it.
    virtual void HandleNoAsn1Msg(QNCmdMsg* msg);
};

/// A base that tasks have on other platforms. Here it does nothing.
class PSyncHelp
{
public:
    virtual ~PSyncHelp();
};

/// Owns tasks and delivers their events. Any thread may call its operations.
class eKorTaskMgr
{
public:
    /// Returns a request id for the task, above 0.
    unsigned long AllocReqID(eKorTask* task);
    /// Inserts the task, which belongs to the manager from then on. Returns 0. When it throws, the
    /// task has not been inserted.
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
