#ifndef PLATFORM_TASK_STORE_H
#define PLATFORM_TASK_STORE_H

#include <chrono>
#include <condition_variable>
#include <forward_list>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "emsplatform/task.h"

namespace emsstandin {

class TaskStore;

using Microseconds = std::chrono::microseconds;

/// A link of a ring. To enter or leave a ring needs no memory.
class Link
{
public:
    Link() = default;
    ~Link() { Leave(); }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    bool IsAlone() const { return m_pNext == this; }
    Link& Next() const { return *m_pNext; }
    Link& Previous() const { return *m_pPrevious; }

    /// Leaves the ring that it is in, and enters that of `next`.
    void EnterBefore(Link& next)
    {
        Leave();
        m_pNext = &next;
        m_pPrevious = next.m_pPrevious;
        m_pPrevious->m_pNext = m_pNext->m_pPrevious = this;
    }
    void Leave()
    {
        m_pPrevious->m_pNext = m_pNext;
        m_pNext->m_pPrevious = m_pPrevious;
        m_pNext = m_pPrevious = this;
    }

private:
    Link* m_pNext = this;
    Link* m_pPrevious = this;
};

/// The armed intervals of one period, in the order in which they expire.
struct Queue : Link
{
    explicit Queue(Microseconds period) : m_Period(period) {}

    const Microseconds m_Period;
};

/// An armed interval timer: a link of the queue of its period.
struct Interval : Link
{
    Interval(eKorTask::State& task, long id, Microseconds due, Queue& queue)
        : m_Task(task), m_lId(id), m_Due(due), m_Queue(queue)
    {}

    /// Enters the queue from the back: one that expired late may be due before others that were
    /// armed meanwhile.
    void Enqueue()
    {
        Link* next = &m_Queue;
        while (&next->Previous() != &m_Queue &&
               static_cast<Interval&>(next->Previous()).m_Due > m_Due) {
            next = &next->Previous();
        }
        EnterBefore(*next);
    }

    eKorTask::State& m_Task;
    const long m_lId;
    Microseconds m_Due;
    Queue& m_Queue;
};

} // namespace emsstandin

/// The store's record of a task: a link of its inserted or of its finished tasks.
class eKorTask::State : public emsstandin::Link
{
public:
    State(eKorTask& task, eKorTaskMgr& manager, const char* name);

    static State& Of(eKorTask& task) { return *task.m_pState; }

    eKorTask& m_Task;
    emsstandin::TaskStore& m_Store;
    const char* const m_pName;
    // Guarded by the store's lock.
    std::optional<emsstandin::Interval> m_First; // most tasks have no other
    // Behind a pointer, whose size does not depend on _GLIBCXX_DEBUG. Null until it is needed.
    std::unique_ptr<std::forward_list<emsstandin::Interval>> m_pOthers;
    bool m_bKnown = false; // whether the store refers to it
};

namespace emsstandin {

/// The tasks of one manager and their interval timers.
///
/// Its lock is not held while code of a task runs, and no other lock of the platform is taken under
/// it.
class TaskStore
{
public:
    using Task = eKorTask::State;

    /// Calls `alarm`, unless null, with the lock held, when the time of the next Deliver() changes.
    TaskStore(Microseconds unit, std::function<std::chrono::nanoseconds()> clock,
              std::function<void(Microseconds)> alarm);
    ~TaskStore();
    TaskStore(const TaskStore&) = delete;
    TaskStore& operator=(const TaskStore&) = delete;

    static TaskStore& Of(eKorTaskMgr& manager);

    void Insert(Task& task);
    long Arm(Task& task, unsigned int interval);
    void Disarm(Task& task, long id);
    void Finish(Task& task);
    /// Must be called before a task is destroyed to which the store refers.
    void Forget(Task& task);

    /// Returns whether this thread runs code of a task for the store.
    bool IsInsideHere() const;
    bool IsRunning();
    /// Waits for a Deliver() on another thread that End() has stopped.
    void Begin();
    /// Makes Deliver() stop and destroy all tasks, after the event that it runs.
    void End();
    /// Waits for a Deliver() on another thread and destroys all tasks.
    void DestroyTasks();
    std::size_t Deliver();

private:
    using Lock = std::unique_lock<std::mutex>;
    class Inside;

    // The lock must be held in each of these. Those that have it as a parameter release it
    // meanwhile.
    Queue& QueueOf(Microseconds period);
    Interval* Earliest();
    void EndExpiry();
    void Drop(Task& task);
    void DestroyFinished(Lock& lock);
    void DestroyAll(Lock& lock);
    void SetAlarm();

    const Microseconds m_Unit;
    const std::function<std::chrono::nanoseconds()> m_Clock;
    const std::function<void(Microseconds)> m_Alarm;

    std::mutex m_Lock;         // guards the following
    std::list<Queue> m_Queues; // one per period
    Link m_Expired;            // the interval whose event runs
    Microseconds m_Now = {};   // the time at which the delivery began
    Link m_Inserted;
    Link m_Finished; // tasks that are to be destroyed
    std::optional<Microseconds> m_NextAlarm;
    long m_lLastInterval = 0;
    bool m_bRunning = false;
    bool m_bDelivering = false;
    std::condition_variable m_Delivered;
};

} // namespace emsstandin

#endif
