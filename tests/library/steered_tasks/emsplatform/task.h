#ifndef TESTS_LIBRARY_STEERED_TASKS_TASK_H
#define TESTS_LIBRARY_STEERED_TASKS_TASK_H

/// A task framework whose calls are functions of a test.

#include <functional>
#include <vector>

class eKorTask;
class eKorTaskMgr;
struct CmdMSG;
struct QNCmdMsg;
typedef int eKorErrorCode;

struct Steering
{
    std::function<void(eKorTask&)> onInsert = [](eKorTask&) {};
    std::function<long(eKorTask&)> onArm = [](eKorTask&) { return 1; };
    std::function<void(eKorTask&)> onFinished = [](eKorTask&) {};
    std::vector<long> disarmed = {}; // ids, in the order of the calls
};
inline Steering g_Steering;

class eKorTask
{
public:
    eKorTask(eKorTaskMgr*, const char*) {}
    virtual ~eKorTask() = default;
    virtual void InitTaskCmdReqProcess(CmdMSG*) {}
    virtual void eKorTaskCmdRecv(CmdMSG*) = 0;
    virtual void eKorTaskCmdResp(eKorErrorCode, CmdMSG*) = 0;
    virtual void eKorTaskTimeInterval(long) {}

    long SetTaskTimeInterval(unsigned int) { return g_Steering.onArm(*this); }
    void DelTaskTimeInterval(long id) { g_Steering.disarmed.push_back(id); }
    void eKorSetTaskState(int state)
    {
        if (state == 3) {
            g_Steering.onFinished(*this);
        }
    }
};

class eKorGnlTask : public eKorTask
{
public:
    using eKorTask::eKorTask;
    void eKorTaskCmdRecv(CmdMSG*) override {}
    void eKorTaskCmdResp(eKorErrorCode, CmdMSG*) override {}
    virtual void HandleNoAsn1Msg(QNCmdMsg*) {}
};

class PSyncHelp
{
public:
    virtual ~PSyncHelp() = default;
};

class eKorTaskMgr
{
public:
    unsigned long AllocReqID(eKorTask*) { return 1; }
    int TMInitInsertTask(eKorTask* task)
    {
        g_Steering.onInsert(*task);
        return 0;
    }
};

class eKorAppMgr
{
public:
    eKorTaskMgr* FindTaskMgrByID(unsigned char) { return &m_TaskMgr; }

private:
    eKorTaskMgr m_TaskMgr;
};

inline eKorAppMgr* eKorGetAppMgr()
{
    static eKorAppMgr appMgr;
    return &appMgr;
}

#endif
