#include "platform/task_store.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "emsplatform/debug_interface.h"

namespace emsplatform {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constinit thread_local const TaskStore* g_pDelivering = nullptr;

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
    } catch (const std::exception& failure) {
        report(failure.what());
    } catch (...) {
        report("an exception of its own");
    }
}

} // namespace

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
    const Lock lock(m_Lock);
    return task.m_ulReqID = ++m_ulLastReqID;
}

void TaskStore::Insert(eKorTask& task)
{
    const Lock lock(m_Lock);
    if (m_Finished.capacity() <= m_Tasks.size()) {
        m_Finished.reserve(2 * m_Tasks.size() + 1); // so that a task's end needs no memory
    }
    m_Tasks.insert(&task);
    task.m_bInserted = true;
}

long TaskStore::Arm(eKorTask& task, unsigned int interval)
{
    const Microseconds period =
        std::max(interval, 1u) * m_Unit; // from now, rounded up: never early
    const Lock lock(m_Lock);
    const long id = ++m_lLastInterval;
    try {
        const auto entry = m_Intervals.emplace(id, Interval{id, &task, -1}).first;
        entry->second.m_lQueueId = m_Timers.schedule(
            &entry->second, nullptr,
            ToTimeValue(std::chrono::ceil<Microseconds>(m_Clock()) + period), ToTimeValue(period));
        if (entry->second.m_lQueueId == -1) {
            m_Intervals.erase(entry);
            return -1;
        }
    } catch (const std::bad_alloc&) {
        m_Intervals.erase(id);
        return -1;
    }
    ++task.m_nIntervals;
    SetAlarm();
    return id;
}

void TaskStore::Disarm(long id)
{
    const Lock lock(m_Lock);
    const auto found = m_Intervals.find(id);
    if (found != m_Intervals.end()) {
        m_Timers.cancel(found->second.m_lQueueId);
        --found->second.m_pTask->m_nIntervals;
        m_Intervals.erase(found);
    }
}

void TaskStore::DisarmAll(eKorTask& task)
{
    for (auto next = m_Intervals.begin(); task.m_nIntervals > 0;) {
        const auto interval = next++;
        if (interval->second.m_pTask == &task) {
            m_Timers.cancel(interval->second.m_lQueueId);
            --task.m_nIntervals;
            m_Intervals.erase(interval);
        }
    }
}

void TaskStore::Finish(eKorTask& task)
{
    const Lock lock(m_Lock);
    if (!std::exchange(task.m_bFinished, true)) {
        m_Finished.push_back(&task);
        SetAlarm();
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
    DisarmAll(task);
    m_Tasks.erase(&task);
    task.m_bInserted = false;
    if (std::exchange(task.m_bFinished, false)) {
        std::erase(m_Finished, &task);
    }
}

bool TaskStore::IsDeliveringHere() const
{
    return g_pDelivering == this;
}

bool TaskStore::IsRunning()
{
    const Lock lock(m_Lock);
    return m_bRunning;
}

void TaskStore::Begin()
{
    const Lock lock(m_Lock);
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
    m_Delivered.wait(lock, [this] { return !m_bDelivering; });
    DestroyAll(lock);
}

std::size_t TaskStore::Deliver()
{
    Lock lock(m_Lock);
    m_NextAlarm.reset(); // it has gone off
    if (!m_bRunning || m_bDelivering) {
        return 0;
    }
    m_bDelivering = true;
    const TaskStore* const outer = std::exchange(g_pDelivering, this);
    // Read once: a timer that an event arms does not expire in the same call.
    const ACE_Time_Value now = ToTimeValue(std::chrono::floor<Microseconds>(m_Clock()));
    std::size_t delivered = 0;
    DestroyFinished(lock);
    ACE_Timer_Node_Dispatch_Info_T<const Interval*> expired;
    while (m_bRunning && m_Timers.dispatch_info(now, expired) != 0) {
        const Interval interval = *expired.type_;
        lock.unlock();
        Notify(*interval.m_pTask, interval.m_lId);
        lock.lock();
        ++delivered;
        DestroyFinished(lock);
    }
    if (!m_bRunning) {
        DestroyAll(lock);
    }
    m_bDelivering = false;
    g_pDelivering = outer;
    m_Delivered.notify_all();
    SetAlarm();
    return delivered;
}

void TaskStore::DestroyFinished(Lock& lock)
{
    while (!m_Finished.empty()) {
        eKorTask* const task = m_Finished.back();
        Take(*task);
        lock.unlock();
        delete task;
        lock.lock();
    }
}

/// One round: what the tasks' destructors insert stays.
void TaskStore::DestroyAll(Lock& lock)
{
    DestroyFinished(lock);
    const std::vector<eKorTask*> tasks(m_Tasks.begin(), m_Tasks.end());
    for (eKorTask* task : tasks) {
        Take(*task);
    }
    lock.unlock();
    for (eKorTask* task : tasks) {
        delete task;
    }
    lock.lock();
}

void TaskStore::SetAlarm()
{
    if (m_bDelivering) {
        return; // Deliver() does it when it is done
    }
    std::optional<Microseconds> next;
    if (!m_Finished.empty() || !m_bRunning) {
        next = Microseconds(0);
    } else if (!m_Timers.is_empty()) {
        next = FromTimeValue(m_Timers.earliest_time());
    }
    if (next && next != m_NextAlarm) {
        m_NextAlarm = next;
        m_Alarm(*next);
    }
}

} // namespace emsplatform
