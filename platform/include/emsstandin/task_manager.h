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
/// Thread safety: any thread may call any operation except the destructor at any time, also inside
/// an event. A thread is inside an event while the manager calls one of its tasks on that thread.
/// Ownership: a task manager owns the tasks that are inserted into it.
/// Errors: if an event throws, the manager writes a debug line and continues. An event that ends
/// the manager's thread, by cancellation or pthread_exit(), stops the manager.

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
    /// The manager's unit of time: the duration of an interval of 1. It must be between a
    /// microsecond and a minute.
    std::chrono::microseconds m_Unit = std::chrono::milliseconds(100);

    /// If m_Clock is empty, the manager delivers events on a thread of its own. The manager then
    /// uses the monotonic clock, so a change of the wall clock has no effect.
    ///
    /// If m_Clock is set, the host must call DeliverExpired() to deliver events. m_Clock must
    /// return the time since a fixed moment. It must not call the manager, because the manager's
    /// lock is held while m_Clock runs.
    std::function<std::chrono::nanoseconds()> m_Clock;
};

/// Owns tasks and their timers, and delivers their events. What emsplatform/task.h leaves open:
/// - Messages are not delivered, and request ids are above 0. An insertion returns 0.
/// - An interval of 0 is one of 1. A timer expires again after each further interval until it is
///   disarmed. Its id is above 0 and is not used twice. It is not armed when memory runs out.
/// - A finished task is destroyed after the current event, by the thread that delivers events.
///   States other than 3 are ignored. PSyncHelp does nothing.
/// - While a thread inserts or arms a task, or sets its state, the task neither expires nor is
///   destroyed on that thread.
class TaskManager : public eKorTaskMgr
{
public:
    /// Throws std::system_error if the system has no kernel timer left, and std::invalid_argument
    /// if the unit is out of range.
    explicit TaskManager(TaskManagerOptions options);
    /// Stops the manager. The destructor must not be called inside an event.
    ~TaskManager();
    TaskManager(const TaskManager&) = delete;
    TaskManager& operator=(const TaskManager&) = delete;

    /// Starts the delivery of events. Timers that are already armed keep their times. Does nothing
    /// if the manager is already started, or if Start() is called inside an event. Throws
    /// std::system_error if no thread can be created.
    void Start();

    /// Stops the delivery of events and destroys all tasks with their timers. If Stop() is called
    /// inside an event, the tasks are destroyed after that event has returned. Otherwise they are
    /// destroyed before Stop() returns, and Stop() may wait for a running event. May be called more
    /// than once. Tasks that are inserted later remain until a later Stop().
    void Stop();

    /// Delivers on the calling thread the timers that have expired, each once, and destroys
    /// finished tasks. Returns the number of timers delivered. Returns 0 inside an event, while the
    /// manager is not started, and while another thread delivers.
    std::size_t DeliverExpired();

private:
    friend class TaskStore;
    class KernelTimer;

    const std::unique_ptr<KernelTimer> m_pTimer; // null if the host delivers
    const std::unique_ptr<TaskStore> m_pStore;
    std::mutex m_ControlLock; // held in Start() and Stop(), taken before the store's lock
    std::thread m_Thread;     // guarded by m_ControlLock
};

/// Creates the process's task manager with this id. The manager is never destroyed. Returns null if
/// there is already a task manager with this id. Throws as the constructor does.
TaskManager* AddTaskManager(unsigned char id, TaskManagerOptions options);

} // namespace emsstandin

#endif
