#pragma once

typedef int eKorErrorCode;
struct CmdMSG;
struct QNCmdMsg;
struct eKorTaskMgr;

/// A platform without task managers still has the classes that tasks are made of.
struct eKorTask
{
    virtual ~eKorTask() = default;
    virtual void InitTaskCmdReqProcess(CmdMSG*) {}
    virtual void eKorTaskCmdRecv(CmdMSG*) {}
    virtual void eKorTaskCmdResp(eKorErrorCode, CmdMSG*) {}
    virtual void eKorTaskTimeInterval(long) {}
    long SetTaskTimeInterval(unsigned int) { return 0; }
    void DelTaskTimeInterval(long) {}
    void eKorSetTaskState(int) {}
};

struct eKorGnlTask : eKorTask
{
    eKorGnlTask(eKorTaskMgr*, const char*) {}
    virtual void HandleNoAsn1Msg(QNCmdMsg*) {}
};

struct PSyncHelp
{
    virtual ~PSyncHelp() = default;
};

struct eKorTaskMgr
{
    void AllocReqID(eKorTask*) {}
    void TMInitInsertTask(eKorTask*) {}
};

struct eKorAppMgr
{
    eKorTaskMgr* FindTaskMgrByID(unsigned char) { return nullptr; }
};

inline eKorAppMgr* eKorGetAppMgr()
{
    return nullptr;
}
