#include "platform/task_store.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include <cxxabi.h>

#include "emsplatform/debug_interface.h"

namespace emsstandin {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

ACE_Time_Value ToTimeValue(microseconds time)
{
    const auto whole = std::chrono::floor<seconds>(time);
    return ACE_Time_Value(whole.count(), (time - whole).count());
}

microseconds FromTimeValue(const ACE_Time_Value& time)
{
    return seconds(time.sec()) + microseconds(time.usec());
}

/// A task that fails is none of the manager's business, but somebody should know.
void Notify(eKorTask& task, long id)
{
    const auto report = [&task](const char* what) {
        if (NSQN_util::DebugInterface* debug = NSQN_util::GetDefaultDebugInterface()) {
            debug->DebugPrint(1, "timer of task %s failed: %s\n", task.Name(), what);
        }
    };
    try {
        task.eKorTaskTimeInterval(id);
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (const std::exception& failure) {
        report(failure.what());
    } catch (...) {
        report("an exception of its own");
    }
}

} // namespace

/// While it lives this thread runs code of the store's tasks, with the lock released: one thread at
/// a time, and a store's within another's.
class TaskStore::Inside
{
public:
    /// Waits for another thread that is inside.
    Inside(TaskStore& store, Lock& lock)
        : m_Store(store), m_Lock(lock), m_pOuter(std::exchange(g_pInnermost, this))
    {
        m_Store.m_Delivered.wait(m_Lock, [this] { return !m_Store.m_bDelivering; });
        m_Store.m_bDelivering = true;
    }
    ~Inside()
    {
        if (!m_Lock.owns_lock()) {
            m_Lock.lock(); // a task has thrown
        }
        m_Store.m_bDelivering = false;
        g_pInnermost = m_pOuter;
        m_Store.m_Delivered.notify_all();
        m_Store.SetAlarm();
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    static bool IsOf(const TaskStore& store)
    {
        for (const Inside* scope = g_pInnermost; scope != nullptr; scope = scope->m_pOuter) {
            if (&scope->m_Store == &store) {
                return true;
            }
        }
        return false;
    }

private:
    static constinit thread_local Inside* g_pInnermost;

    TaskStore& m_Store;
    Lock& m_Lock;
    Inside* const m_pOuter;
};

constinit thread_local TaskStore::Inside* TaskStore::Inside::g_pInnermost = nullptr;

TaskStore::TaskStore(Microseconds unit, std::function<std::chrono::nanoseconds()> clock,
                     std::function<void(Microseconds)> alarm)
    : m_Unit(unit), m_Clock(std::move(clock)), m_Alarm(std::move(alarm))
{}

TaskStore::~TaskStore()
{
    DestroyTasks();
}

unsigned long TaskStore::AllocReqID(eKorTask& task)
{
    return task.m_ulReqID = ++m_ulLastReqID;
}

void TaskStore::Insert(eKorTask& task)
{
    const Lock lock(m_Lock);
    if (task.m_ppInserted != nullptr) {
        return;
    }
    task.m_pNextInserted = std::exchange(m_pInserted, &task);
    task.m_ppInserted = &m_pInserted;
    if (task.m_pNextInserted != nullptr) {
        task.m_pNextInserted->m_ppInserted = &task.m_pNextInserted;
    }
}

void TaskStore::GiveBack::operator()(TaskInterval* interval) const
{
    if (interval == &interval->m_pTask->m_FirstInterval) {
        *interval = {};
    } else {
        delete interval;
    }
}

long TaskStore::Arm(eKorTask& task, unsigned int interval)
{
    const Microseconds period = std::max(interval, 1u) * m_Unit;
    const Lock lock(m_Lock);
    Interval armed(task.m_FirstInterval.m_lId == 0 ? &task.m_FirstInterval
                                                   : new (std::nothrow) TaskInterval);
    if (armed == nullptr) {
        return -1;
    }
    armed->m_pTask = &task;
    // Rounded up, so that it is never early.
    const Microseconds due = std::chrono::ceil<Microseconds>(m_Clock()) + period;
    armed->m_lQueueId =
        m_Timers.schedule(armed.get(), nullptr, ToTimeValue(due), ToTimeValue(period));
    if (armed->m_lQueueId == -1) {
        return -1;
    }
    const long id = armed->m_lId = ++m_lLastInterval;
    armed->m_pNext = std::exchange(task.m_pIntervals, armed.get());
    static_cast<void>(armed.release()); // the task's
    SetAlarm();
    return id;
}

void TaskStore::Disarm(eKorTask& task, long id)
{
    const Lock lock(m_Lock);
    for (TaskInterval** link = &task.m_pIntervals; *link != nullptr; link = &(*link)->m_pNext) {
        if ((*link)->m_lId == id) {
            Disarm(link);
            return;
        }
    }
}

void TaskStore::Disarm(TaskInterval** link)
{
    const Interval disarmed(std::exchange(*link, (*link)->m_pNext));
    m_Timers.cancel(disarmed->m_lQueueId);
}

void TaskStore::Finish(eKorTask& task)
{
    const Lock lock(m_Lock);
    AddFinished(task);
    SetAlarm();
}

void TaskStore::AddFinished(eKorTask& task)
{
    if (!std::exchange(task.m_bFinished, true)) {
        task.m_pNextFinished = std::exchange(m_pFinished, &task);
    }
}

void TaskStore::Forget(eKorTask& task)
{
    const Lock lock(m_Lock);
    Take(task);
}

/// Out of all that the store knows.
void TaskStore::Take(eKorTask& task)
{
    while (task.m_pIntervals != nullptr) {
        Disarm(&task.m_pIntervals);
    }
    if (eKorTask** const link = std::exchange(task.m_ppInserted, nullptr)) {
        *link = task.m_pNextInserted;
        if (*link != nullptr) {
            (*link)->m_ppInserted = link;
        }
    }
    if (std::exchange(task.m_bFinished, false)) {
        eKorTask** link = &m_pFinished;
        while (*link != &task) {
            link = &(*link)->m_pNextFinished;
        }
        *link = task.m_pNextFinished;
    }
}

bool TaskStore::IsInsideHere() const
{
    return Inside::IsOf(*this);
}

bool TaskStore::IsRunning()
{
    const Lock lock(m_Lock);
    return m_bRunning;
}

void TaskStore::Begin()
{
    Lock lock(m_Lock);
    m_Delivered.wait(lock, [this] { return !m_bDelivering; });
    m_bRunning = true;
    m_NextAlarm.reset();
    SetAlarm();
}

void TaskStore::End()
{
    const Lock lock(m_Lock);
    m_bRunning = false;
    SetAlarm();
}

void TaskStore::DestroyTasks()
{
    Lock lock(m_Lock);
    const Inside inside(*this, lock);
    DestroyAll(lock);
}

std::size_t TaskStore::Deliver()
{
    Lock lock(m_Lock);
    m_NextAlarm.reset(); // it has gone off
    if (!m_bRunning || m_bDelivering) {
        return 0;
    }
    const Inside inside(*this, lock);
    // Read once: a timer that an event arms does not expire in the same call.
    const ACE_Time_Value now = ToTimeValue(std::chrono::floor<Microseconds>(m_Clock()));
    std::size_t delivered = 0;
    DestroyFinished(lock);
    ACE_Timer_Node_Dispatch_Info_T<const TaskInterval*> expired{};
    while (m_bRunning && m_Timers.dispatch_info(now, expired) != 0) {
        const TaskInterval interval = *expired.type_;
        lock.unlock();
        Notify(*interval.m_pTask, interval.m_lId);
        lock.lock();
        ++delivered;
        DestroyFinished(lock);
    }
    if (!m_bRunning) {
        DestroyAll(lock);
    }
    return delivered;
}

void TaskStore::DestroyFinished(Lock& lock)
{
    while (m_pFinished != nullptr) {
        eKorTask* const task = std::exchange(m_pFinished, m_pFinished->m_pNextFinished);
        task->m_bFinished = false;
        Take(*task);
        lock.unlock();
        delete task;
        lock.lock();
    }
}

/// One round: what the tasks' destructors insert stays.
void TaskStore::DestroyAll(Lock& lock)
{
    for (eKorTask* task = m_pInserted; task != nullptr; task = task->m_pNextInserted) {
        AddFinished(*task);
    }
    DestroyFinished(lock);
}

void TaskStore::SetAlarm()
{
    if (m_bDelivering) {
        return; // Deliver() does it when it is done
    }
    std::optional<Microseconds> next;
    if (m_pFinished != nullptr || !m_bRunning) {
        next = Microseconds(0);
    } else if (!m_Timers.is_empty()) {
        next = FromTimeValue(m_Timers.earliest_time());
    }
    if (next && next != m_NextAlarm) {
        m_NextAlarm = next;
        m_Alarm(*next);
    }
}

} // namespace emsstandin
