#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <queue>
#include <set>
#include <thread>
#include <vector>

typedef int eKorErrorCode;
struct CmdMSG;
struct QNCmdMsg;
class eKorTaskMgr;

class eKorTask
{
public:
    eKorTask(eKorTaskMgr* taskMgr, const char*) : m_TaskMgr(*taskMgr) {}

    // The order of these operations is part of the contract; eKorGnlTask adds the last one.
    virtual ~eKorTask() = default;
    virtual void InitTaskCmdReqProcess(CmdMSG*) {}
    virtual void eKorTaskCmdRecv(CmdMSG*) {}
    virtual void eKorTaskCmdResp(eKorErrorCode, CmdMSG*) {}
    virtual void eKorTaskTimeInterval(long) {}

    long SetTaskTimeInterval(unsigned int interval);
    void DelTaskTimeInterval(long id);
    void eKorSetTaskState(int state);

private:
    eKorTaskMgr& m_TaskMgr;
};

class eKorGnlTask : public eKorTask
{
public:
    using eKorTask::eKorTask;
    virtual void HandleNoAsn1Msg(QNCmdMsg*) {}
};

class PSyncHelp
{
public:
    virtual ~PSyncHelp() = default;
};

/// Owns tasks. One thread delivers their expiries and destroys them, and holds no lock meanwhile.
class eKorTaskMgr
{
public:
    /// A host creates its task managers before it starts other threads.
    eKorTaskMgr(unsigned char id, std::chrono::milliseconds unit);
    /// Destroys the tasks that are left. No other thread may use the manager any more.
    ~eKorTaskMgr();
    eKorTaskMgr(const eKorTaskMgr&) = delete;
    eKorTaskMgr& operator=(const eKorTaskMgr&) = delete;

    void AllocReqID(eKorTask*) {} // no messages, no request ids
    void TMInitInsertTask(eKorTask* task);

private:
    friend class eKorTask;

    using Clock = std::chrono::steady_clock;

    struct Expiry
    {
        Clock::time_point m_Due;
        long m_lId = 0;

        bool operator>(const Expiry& other) const { return m_Due > other.m_Due; }
    };

    struct Interval
    {
        eKorTask* m_pTask = nullptr;
        Clock::duration m_Length = {};
    };

    long Arm(eKorTask* task, unsigned int interval);
    void Disarm(long id);
    void Finish(eKorTask* task);

    void Run();
    void Deliver(std::unique_lock<std::mutex>& lock);
    void DestroyFinished(std::unique_lock<std::mutex>& lock);

    const unsigned char m_nId;
    const std::chrono::milliseconds m_Unit;

    std::mutex m_Lock; // guards all that follows but the thread
    std::condition_variable m_Changed;
    bool m_bStopped = false;
    long m_lLastId = 0;
    std::map<long, Interval> m_Intervals; // those that are armed
    // The next expiry of each interval, the earliest on top. What is disarmed is still in it.
    std::priority_queue<Expiry, std::vector<Expiry>, std::greater<>> m_Expiries;
    std::set<eKorTask*> m_Tasks; // inserted, and not at state 3
    std::vector<eKorTask*> m_Finished;

    std::thread m_Thread;
};

class eKorAppMgr
{
public:
    eKorTaskMgr* FindTaskMgrByID(unsigned char id);
};

eKorAppMgr* eKorGetAppMgr();
