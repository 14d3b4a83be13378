#include "platform/task_store.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include <cxxabi.h>

#include "emsplatform/debug_interface.h"
#include "emsstandin/task_manager.h"

eKorTask::State::State(eKorTask& task, eKorTaskMgr& manager, const char* name)
    : m_Task(task), m_Store(emsstandin::TaskStore::Of(manager)), m_pName(name)
{}

namespace emsstandin {

namespace {

/// Calls the event, which may destroy the task. Writes a debug line when the event throws.
void Notify(eKorTask::State& state, long id)
{
    const auto report = [name = state.m_pName](const char* what) {
        if (NSQN_util::DebugInterface* debug = NSQN_util::GetDefaultDebugInterface()) {
            debug->DebugPrint(1, "timer of task %s failed: %s\n", name, what);
        }
    };
    try {
        state.m_Task.eKorTaskTimeInterval(id);
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (const std::exception& failure) {
        report(failure.what());
    } catch (...) {
        report("an exception that is not a std::exception");
    }
}

} // namespace

/// While it exists this thread runs code of the store's tasks, with the lock released. One thread
/// per store does so at a time; a thread may do so for several stores, one within another's.
class TaskStore::Inside
{
public:
    /// Waits for another thread that is inside.
    Inside(TaskStore& store, Lock& lock) : m_Store(store), m_Lock(lock)
    {
        m_Store.m_Delivered.wait(m_Lock, [this] { return !m_Store.m_bDelivering; });
        m_Store.m_bDelivering = true;
        m_pOuter = std::exchange(m_pInnermost, this); // not before the wait, which may be cancelled
    }
    ~Inside()
    {
        if (!m_Lock.owns_lock()) {
            m_Lock.lock(); // an event ends the thread
            m_Store.EndExpiry();
        }
        m_Store.m_bDelivering = false;
        m_pInnermost = m_pOuter;
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

    Inside*& m_pInnermost = g_pInnermost; // looked up once
    TaskStore& m_Store;
    Lock& m_Lock;
    Inside* m_pOuter = nullptr;
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

TaskStore& TaskStore::Of(eKorTaskMgr& manager)
{
    return *static_cast<TaskManager&>(manager).m_pStore;
}

void TaskStore::Insert(Task& task)
{
    const Lock lock(m_Lock);
    task.m_bKnown = true;
    if (task.IsAlone()) {
        task.EnterBefore(m_Inserted);
    }
}

long TaskStore::Arm(Task& task, unsigned int interval)
{
    const Microseconds period = std::max(interval, 1u) * m_Unit;
    const Lock lock(m_Lock);
    // Rounded up, so that the timer is never early.
    const Microseconds due = std::chrono::ceil<Microseconds>(m_Clock()) + period;
    try {
        Queue& queue = QueueOf(period);
        const long id = m_lLastInterval + 1;
        if (task.m_First && task.m_pOthers == nullptr) {
            task.m_pOthers = std::make_unique<std::forward_list<Interval>>();
        }
        Interval& armed = task.m_First ? task.m_pOthers->emplace_front(task, id, due, queue)
                                       : task.m_First.emplace(task, id, due, queue);
        armed.Enqueue();
    } catch (const std::bad_alloc&) {
        return -1;
    }
    task.m_bKnown = true;
    SetAlarm();
    return ++m_lLastInterval;
}

Queue& TaskStore::QueueOf(Microseconds period)
{
    for (Queue& queue : m_Queues) {
        if (queue.m_Period == period) {
            return queue;
        }
    }
    return m_Queues.emplace_back(period);
}

Interval* TaskStore::Earliest()
{
    Interval* earliest = nullptr;
    for (const Queue& queue : m_Queues) {
        Interval* const first = queue.IsAlone() ? nullptr : static_cast<Interval*>(&queue.Next());
        if (first != nullptr && (earliest == nullptr || first->m_Due < earliest->m_Due)) {
            earliest = first;
        }
    }
    return earliest;
}

/// Puts the interval whose event has returned into its queue again, unless it has been disarmed.
void TaskStore::EndExpiry()
{
    if (!m_Expired.IsAlone()) {
        auto& interval = static_cast<Interval&>(m_Expired.Next());
        const Microseconds period = interval.m_Queue.m_Period;
        interval.m_Due += ((m_Now - interval.m_Due) / period + 1) * period;
        interval.Enqueue();
    }
}

void TaskStore::Disarm(Task& task, long id)
{
    const Lock lock(m_Lock);
    if (task.m_First && task.m_First->m_lId == id) {
        task.m_First.reset();
    } else if (task.m_pOthers != nullptr) {
        task.m_pOthers->remove_if([id](const Interval& interval) { return interval.m_lId == id; });
    }
}

void TaskStore::Finish(Task& task)
{
    const Lock lock(m_Lock);
    task.m_bKnown = true;
    task.EnterBefore(m_Finished);
    SetAlarm();
}

void TaskStore::Forget(Task& task)
{
    const Lock lock(m_Lock);
    Drop(task);
}

void TaskStore::Drop(Task& task)
{
    task.m_First.reset();
    task.m_pOthers.reset();
    task.Leave();
    task.m_bKnown = false;
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
    m_NextAlarm.reset(); // it has expired
    if (!m_bRunning || m_bDelivering) {
        return 0;
    }
    const Inside inside(*this, lock);
    // Read once, so that a timer that an event arms does not expire in the same call.
    m_Now = std::chrono::floor<Microseconds>(m_Clock());
    std::size_t delivered = 0;
    DestroyFinished(lock);
    for (Interval* due; m_bRunning && (due = Earliest()) != nullptr && due->m_Due <= m_Now;) {
        due->EnterBefore(m_Expired);
        const long id = due->m_lId;
        Task& task = due->m_Task;
        lock.unlock();
        Notify(task, id);
        lock.lock();
        EndExpiry();
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
    while (!m_Finished.IsAlone()) {
        auto& task = static_cast<Task&>(m_Finished.Next());
        Drop(task);
        lock.unlock();
        delete &task.m_Task;
        lock.lock();
    }
}

/// Tasks that destructors of these insert remain.
void TaskStore::DestroyAll(Lock& lock)
{
    while (!m_Inserted.IsAlone()) {
        m_Inserted.Next().EnterBefore(m_Finished);
    }
    DestroyFinished(lock);
}

void TaskStore::SetAlarm()
{
    if (!m_Alarm || m_bDelivering) { // ~Inside() does it after a delivery
        return;
    }
    std::optional<Microseconds> next;
    if (!m_Finished.IsAlone() || !m_bRunning) {
        next = Microseconds(0);
    } else if (const Interval* earliest = Earliest()) {
        next = earliest->m_Due;
    }
    if (next && next != m_NextAlarm) {
        m_NextAlarm = next;
        m_Alarm(*next);
    }
}

} // namespace emsstandin
