#include <emsplatform/task.h>

#include <utility>

namespace {

constexpr int STATE_FINISHED = 3;

eKorAppMgr g_AppMgr;
eKorTaskMgr* g_TaskMgrs[256] = {}; // by id

} // namespace

eKorAppMgr* eKorGetAppMgr()
{
    return &g_AppMgr;
}

eKorTaskMgr* eKorAppMgr::FindTaskMgrByID(unsigned char id)
{
    return g_TaskMgrs[id];
}

long eKorTask::SetTaskTimeInterval(unsigned int interval)
{
    return m_TaskMgr.Arm(this, interval);
}

void eKorTask::DelTaskTimeInterval(long id)
{
    m_TaskMgr.Disarm(id);
}

void eKorTask::eKorSetTaskState(int state)
{
    if (state == STATE_FINISHED) {
        m_TaskMgr.Finish(this);
    }
}

eKorTaskMgr::eKorTaskMgr(unsigned char id, std::chrono::milliseconds unit)
    : m_nId(id), m_Unit(unit), m_Thread(&eKorTaskMgr::Run, this)
{
    g_TaskMgrs[m_nId] = this;
}

eKorTaskMgr::~eKorTaskMgr()
{
    g_TaskMgrs[m_nId] = nullptr;
    {
        const std::lock_guard guard(m_Lock);
        m_bStopped = true;
    }
    m_Changed.notify_one();
    m_Thread.join();
    for (eKorTask* task : m_Finished) {
        delete task;
    }
    for (eKorTask* task : m_Tasks) {
        delete task;
    }
}

void eKorTaskMgr::TMInitInsertTask(eKorTask* task)
{
    const std::lock_guard guard(m_Lock);
    m_Tasks.insert(task); // when memory runs out the task stays the caller's
}

long eKorTaskMgr::Arm(eKorTask* task, unsigned int interval)
{
    const Clock::duration length = interval * m_Unit;
    const std::lock_guard guard(m_Lock);
    const long id = ++m_lLastId;
    m_Expiries.push({Clock::now() + length, id});
    m_Intervals[id] = {task, length};
    m_Changed.notify_one();
    return id; // the expiry may already run on the manager's thread
}

void eKorTaskMgr::Disarm(long id)
{
    const std::lock_guard guard(m_Lock);
    m_Intervals.erase(id); // an id that is not armed is ignored
}

void eKorTaskMgr::Finish(eKorTask* task)
{
    const std::lock_guard guard(m_Lock);
    if (!m_Tasks.contains(task)) {
        return; // the state is set for the second time
    }
    std::erase_if(m_Intervals, [task](const auto& armed) { return armed.second.m_pTask == task; });
    m_Finished.push_back(task);
    m_Tasks.erase(task);
    m_Changed.notify_one();
}

void eKorTaskMgr::Run()
{
    std::unique_lock lock(m_Lock);
    while (!m_bStopped) {
        if (!m_Finished.empty()) {
            DestroyFinished(lock);
        } else if (m_Expiries.empty()) {
            m_Changed.wait(lock);
        } else if (const auto due = m_Expiries.top().m_Due; Clock::now() < due) {
            m_Changed.wait_until(lock, due);
        } else {
            Deliver(lock);
        }
    }
}

void eKorTaskMgr::Deliver(std::unique_lock<std::mutex>& lock)
{
    const Expiry expiry = m_Expiries.top();
    m_Expiries.pop();
    const auto armed = m_Intervals.find(expiry.m_lId);
    if (armed == m_Intervals.end()) {
        return; // disarmed
    }
    eKorTask* const task = armed->second.m_pTask;
    m_Expiries.push({expiry.m_Due + armed->second.m_Length, expiry.m_lId});
    // Without the lock: this call disarms the interval, and the timer's function may schedule a
    // timer or wait for a thread that does. If the call throws, the process ends, unless you catch
    // the exception here.
    lock.unlock();
    task->eKorTaskTimeInterval(expiry.m_lId);
    lock.lock();
}

void eKorTaskMgr::DestroyFinished(std::unique_lock<std::mutex>& lock)
{
    const std::vector<eKorTask*> finished = std::exchange(m_Finished, {});
    lock.unlock(); // a destructor runs the host's code
    for (eKorTask* task : finished) {
        delete task;
    }
    lock.lock();
}
