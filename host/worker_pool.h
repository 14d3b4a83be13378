#ifndef HOST_WORKER_POOL_H
#define HOST_WORKER_POOL_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace emshost {

/// Threads that do the jobs handed to them, each job inside a stretch that the thread monitor sees.
///
/// A worker's named values are as of its latest entry: "jobs", how many it had done by then, and
/// "last", the job that it took then. Worker 1 is a report thread. A free job goes to the worker
/// that has been idle for longest, so whoever awaits each job knows who does the next.
///
/// Any thread may call anything but Stick(), Unstick() and End(), which are for one thread.
class WorkerPool
{
public:
    using Job = std::function<void()>;

    /// The threads start with the first job.
    explicit WorkerPool(int workers);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Hands over a job, which does not throw. Throws std::system_error, and hands over nothing,
    /// while a thread cannot be started.
    void Submit(std::string name, Job job);

    /// Waits until all jobs are done but those of stuck workers, and those that wait for one of
    /// these because there is nobody else.
    void Await();

    /// For jobs: waits for `time`, or less when the pool ends.
    void BeBusy(std::chrono::milliseconds time);

    /// Has a worker get stuck in a job, and waits until it is. False when all are stuck already.
    bool Stick();
    /// Lets all stuck workers go on.
    void Unstick();

    /// Lets all stuck workers go on, and waits until all jobs are done and the threads have ended.
    /// The last call.
    void End();

private:
    struct NamedJob
    {
        std::string m_strName;
        Job m_Job; // none: there is no job
    };

    struct Worker
    {
        Worker(WorkerPool& pool, std::size_t number);

        NamedJob m_Next;
        std::condition_variable m_Wake;
        std::thread m_Thread; // started when all else is there
    };

    void Work(Worker& worker, std::size_t number);
    bool TakeJob(Worker& worker, NamedJob& job);
    void BeIdle(Worker& worker);
    void Assign();
    void BeStuck();
    std::size_t CountBusy() const { return m_Workers.size() - m_Idle.size(); }

    const std::size_t m_nWorkers;

    std::mutex m_Mutex;              // guards the following, and each worker's next job
    std::condition_variable m_Moved; // a worker is idle or stuck, or all are to go on
    std::deque<NamedJob> m_Queue;    // empty while any worker is idle
    std::deque<Worker> m_Workers;
    std::deque<Worker*> m_Idle; // idle for longest first
    std::size_t m_nStuck = 0;
    unsigned m_nUnsticks = 0;
    bool m_bEnding = false;
};

} // namespace emshost

#endif
