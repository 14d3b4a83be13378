#ifndef HOST_WORKERS_H
#define HOST_WORKERS_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace emshost {

/// Threads that do jobs, each as monitored work. Jobs go to the workers in turn, except those that
/// are stuck. The named values of a worker are "jobs", how many it had done before, and "last", the
/// name of the latest job. Worker 1 is a report thread. One thread must make all calls.
class Workers
{
public:
    /// A job must not throw. It should return when the token says that the workers end.
    using Job = std::function<void(const std::stop_token& ending)>;

    /// Starts the threads. Throws std::system_error when one cannot be started. A stop ends every
    /// wait.
    Workers(int count, std::stop_token stop);
    ~Workers() { End(); }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// Passes a job to a worker. Throws std::runtime_error when all workers are stuck.
    void Submit(const std::string& name, const Job& job);
    /// Waits until all jobs are done, except those that workers are stuck in.
    void Await();
    /// Makes a worker stick in a job, and waits until it does. Throws as Submit().
    void Stick();
    /// Lets all stuck workers go on, and waits until they do.
    void Unstick();
    /// Lets all stuck workers go on, waits until all jobs are done, and joins the threads.
    void End();

private:
    struct Worker
    {
        std::deque<std::pair<std::string, Job>> jobs; // the first is being done
        bool stuck = false;                           // or is to be
        bool inside = false;                          // the job that it is stuck in
        std::jthread thread;
    };

    Worker& Next();
    void Work(const std::stop_token& ending, Worker& worker);

    const std::stop_token m_Stop;
    std::mutex m_Mutex;                    // guards the following
    std::condition_variable_any m_Changed; // any of them
    std::vector<Worker> m_Workers;         // none after End()
    std::size_t m_nNext = 0;
};

/// Waits, or less when there is a stop.
void Sleep(const std::stop_token& stop, int milliseconds);

} // namespace emshost

#endif
