#ifndef PLATFORM_TASK_STORE_H
#define PLATFORM_TASK_STORE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include <ace/Null_Mutex.h>
#include <ace/Timer_Heap_T.h>

#include "emsplatform/task.h"

namespace emsstandin {

/// The tasks of one manager and their interval timers.
///
/// Its lock is never held while code of a task runs, and no other lock of the platform is taken
/// under it.
class TaskStore
{
public:
    using Microseconds = std::chrono::microseconds;

    /// `alarm` is told, with the lock held, when Deliver() is next to be called; only when that has
    /// changed, as setting a kernel timer is dear.
    TaskStore(Microseconds unit, std::function<std::chrono::nanoseconds()> clock,
              std::function<void(Microseconds)> alarm);
    ~TaskStore();
    TaskStore(const TaskStore&) = delete;
    TaskStore& operator=(const TaskStore&) = delete;

    unsigned long AllocReqID(eKorTask& task);
    void Insert(eKorTask& task);
    long Arm(eKorTask& task, unsigned int interval);
    void Disarm(eKorTask& task, long id);
    void Finish(eKorTask& task);
    /// Of a task that is being destroyed.
    void Forget(eKorTask& task);

    /// Whether this thread is in code of a task that the store runs.
    bool IsInsideHere() const;
    bool IsRunning();
    /// Waits for Deliver() on another thread, which may have been told to end.
    void Begin();
    /// Deliver() ends, and destroys all tasks, once the event that it is in has returned.
    void End();
    /// Waits for Deliver() on another thread and destroys the tasks that there are.
    void DestroyTasks();
    std::size_t Deliver();

private:
    using Lock = std::unique_lock<std::mutex>;
    class Inside;

    struct GiveBack
    {
        void operator()(TaskInterval* interval) const;
    };
    using Interval = std::unique_ptr<TaskInterval, GiveBack>;

    /// The queue only keeps the timers: what has expired is taken from it.
    struct NoUpcall
    {
        template <class... Arguments>
        int registration(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int preinvoke(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int timeout(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int postinvoke(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int cancel_type(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int cancel_timer(Arguments&&...)
        {
            return 0;
        }
        template <class... Arguments>
        int deletion(Arguments&&...)
        {
            return 0;
        }
    };

    // All with the lock held; those that take it release it meanwhile.
    /// The timer that the link leads to.
    void Disarm(TaskInterval** link);
    void Take(eKorTask& task);
    void AddFinished(eKorTask& task);
    void DestroyFinished(Lock& lock);
    void DestroyAll(Lock& lock);
    void SetAlarm();

    const Microseconds m_Unit;
    const std::function<std::chrono::nanoseconds()> m_Clock;
    const std::function<void(Microseconds)> m_Alarm;
    std::atomic<unsigned long> m_ulLastReqID = 0;

    std::mutex m_Lock; // guards the following
    ACE_Timer_Heap_T<const TaskInterval*, NoUpcall, ACE_Null_Mutex> m_Timers;
    // Linked, as neither to insert a task nor to end it may need memory.
    eKorTask* m_pInserted = nullptr;
    eKorTask* m_pFinished = nullptr; // to be destroyed
    std::optional<Microseconds> m_NextAlarm;
    long m_lLastInterval = 0;
    bool m_bRunning = false;
    bool m_bDelivering = false;
    std::condition_variable m_Delivered;
};

} // namespace emsstandin

#endif
