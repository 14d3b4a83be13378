#ifndef EMSSTANDIN_TASK_MANAGER_H
#define EMSSTANDIN_TASK_MANAGER_H

/// The controls with which a host or a test sets up task managers. libemsutil does not use them.
///
///     emsstandin::TaskManager* manager = emsstandin::AddTaskManager(7, {});
///     manager->Start();
///
///     ScheduleEmsUtilTimer(7, timer, &text);
///
///     manager->Stop(); // destroys what is still pending
///
/// Thread safety: any thread may call any operation, also inside a task's event.
/// Ownership: a task manager owns the tasks that are inserted into it.
/// Errors: when an event throws, the manager writes a debug line and goes on. An event that
/// ends its thread, by cancellation or pthread_exit(), stops the manager.

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
    /// The duration of an interval of 1, between a microsecond and a minute.
    std::chrono::microseconds m_Unit = std::chrono::milliseconds(100);

    /// Without a clock the manager delivers events on a thread of its own, by the monotonic clock,
    /// which setting the wall clock does not change. With a clock, which must return the time since
    /// a fixed moment, the host must deliver events by DeliverExpired(). The manager's lock is held
    /// when the clock is called.
    std::function<std::chrono::nanoseconds()> m_Clock;
};

/// Owns tasks and their timers, and delivers their events.
class TaskManager : public eKorTaskMgr
{
public:
    /// Throws std::system_error when the system has no kernel timer left, and std::invalid_argument
    /// when the unit is out of range.
    explicit TaskManager(TaskManagerOptions options);
    /// Stops the manager. It must not be called inside an event.
    ~TaskManager();
    TaskManager(const TaskManager&) = delete;
    TaskManager& operator=(const TaskManager&) = delete;

    /// Starts the delivery of events. Timers that are already armed keep their times. Does nothing
    /// if the manager is started, or inside an event. Throws std::system_error when no thread can
    /// be created.
    void Start();

    /// Stops the delivery of events and destroys all tasks with their timers. Inside an event the
    /// tasks are destroyed after that event has returned, otherwise before this function returns,
    /// which may wait for the event that is running. May be called more than once. Tasks that are
    /// inserted later remain until a later Stop().
    void Stop();

    /// Delivers on the calling thread the timers that have expired, each once, and destroys
    /// finished tasks. Returns the number of timers delivered, which is 0 inside an event, before
    /// Start() and while another thread delivers.
    std::size_t DeliverExpired();

private:
    friend class TaskStore;
    class KernelTimer;

    const std::unique_ptr<KernelTimer> m_pTimer; // null if the host delivers
    const std::unique_ptr<TaskStore> m_pStore;
    std::mutex m_ControlLock; // held in Start() and Stop(), taken before the store's lock
    std::thread m_Thread;     // guarded by m_ControlLock
};

/// Creates the process's task manager with this id, which is never destroyed. Returns null if there
/// is one already. Throws as the constructor does.
TaskManager* AddTaskManager(unsigned char id, TaskManagerOptions options);

} // namespace emsstandin

#endif
