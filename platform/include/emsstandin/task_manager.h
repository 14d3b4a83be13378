#ifndef EMSSTANDIN_TASK_MANAGER_H
#define EMSSTANDIN_TASK_MANAGER_H

/// How a host or a test sets task managers up. The library uses nothing of it.
///
///     emsstandin::TaskManager* manager = emsstandin::AddTaskManager(7, {});
///     manager->Start();
///
///     ScheduleEmsUtilTimer(7, timer, &text);
///
///     manager->Stop(); // destroys what is still pending
///
/// Thread safety: any thread may call any operation, a task's event included.
/// Ownership: a task manager owns the tasks inserted into it.
/// Errors: what an event throws is written to the debug interface, and the manager goes on; an
/// event that ends its thread stops the manager.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "emsplatform/task.h"

namespace emsstandin {

class TaskStore;

/// How a task manager keeps time.
struct TaskManagerOptions
{
    /// What an interval of 1 lasts: a tenth of a second unless set, from a microsecond to a minute.
    std::chrono::microseconds m_Unit = std::chrono::milliseconds(100);

    /// Without a clock the manager delivers events on a thread of its own, by the monotonic clock:
    /// setting the wall clock moves nothing. With one, which tells the time since any fixed moment
    /// and is called with the manager's lock held, the host delivers them by DeliverExpired().
    std::function<std::chrono::nanoseconds()> m_Clock;
};

/// Owns tasks, keeps their timers, and delivers their events.
class TaskManager : public eKorTaskMgr
{
public:
    /// Throws std::system_error without a kernel timer, std::invalid_argument for a wrong unit.
    explicit TaskManager(TaskManagerOptions options);
    /// Stops. Not to be called from an event.
    ~TaskManager();
    TaskManager(const TaskManager&) = delete;
    TaskManager& operator=(const TaskManager&) = delete;

    /// Begins, or begins again, to deliver events. Timers that were armed before count from when
    /// they were. Does nothing while it delivers them, or from an event. Throws std::system_error
    /// when there is no thread to be had.
    void Start();

    /// Ends it and destroys all tasks, pending timers and all: before it returns, or, called from
    /// an event, after that event has returned. May be called at any time, as often as you like.
    /// Tasks inserted later are kept for a later Start() or Stop().
    void Stop();

    /// Delivers, on this thread, the timers that have expired, each once; destroys the tasks that
    /// have come to their end. Returns how many it delivered: 0 from an event, before Start(), or
    /// while another thread delivers.
    std::size_t DeliverExpired();

private:
    friend class TaskStore;
    class KernelTimer;

    const std::unique_ptr<KernelTimer> m_pTimer; // null when the host delivers
    const std::unique_ptr<TaskStore> m_pStore;
    std::mutex m_ControlLock; // held by Start() and Stop(); taken before the store's
    std::thread m_Thread;     // guarded by m_ControlLock
};

/// Makes the process's task manager of this id, which then lives as long as the process; null when
/// there is one already. Throws as the constructor does.
TaskManager* AddTaskManager(unsigned char id, TaskManagerOptions options);

} // namespace emsstandin

#endif
