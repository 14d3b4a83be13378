#ifndef HOST_WORKERS_H
#define HOST_WORKERS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace emshost {

/// Threads that do jobs, each as monitored work. Jobs go to the workers in turn, stuck ones left
/// out. The named values of a worker are "jobs", how many it had done before, and "last", the name
/// of the latest job. Worker 1 is a report thread.
///
/// One thread calls all but BeBusy(), which is for jobs.
class Workers
{
public:
    using Job = std::function<void()>;

    /// A stop ends every wait.
    Workers(int count, std::stop_token stop);
    ~Workers() { End(); }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// Passes a job to a worker; it must not throw. False when all workers are stuck. The threads
    /// are started with the first job; throws std::system_error when one cannot be created.
    bool Submit(const std::string& name, const Job& job);
    /// Waits until all jobs are done, except those that workers are stuck in.
    void Await();
    /// Waits, or less when the process is to stop or the workers end.
    void BeBusy(std::chrono::milliseconds time);
    /// Makes a worker stick in a job, and waits until it does. False when all are stuck.
    bool Stick();
    /// Lets all stuck workers go on.
    void Unstick();
    /// Lets all stuck workers go on, waits until all jobs are done, and joins the threads.
    void End();

private:
    struct Worker
    {
        std::deque<std::pair<std::string, Job>> jobs; // the first is being done
        bool stuck = false;
        std::jthread thread;
    };

    Worker* Next();
    void Work(Worker& worker, bool isReport);
    void BeStuck(Worker& worker);

    const std::size_t m_nCount;
    const std::stop_token m_Stop;
    std::mutex m_Mutex;                    // guards the following
    std::condition_variable_any m_Changed; // any of them
    std::deque<Worker> m_Workers;
    std::size_t m_nNext = 0;
    bool m_bEnding = false;
};

} // namespace emshost

#endif
