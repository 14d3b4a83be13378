#include "host/workers.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <system_error>

#include "emsutil/thread_monitor.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

Workers::Workers(int count, std::stop_token stop)
    : m_Stop(std::move(stop)), m_Workers(static_cast<std::size_t>(count))
{
    try {
        for (Worker& worker : m_Workers) {
            worker.thread = std::jthread(
                [this, &worker](const std::stop_token& ending) { Work(ending, worker); });
        }
    } catch (const std::system_error& failure) {
        throw std::system_error(failure.code(), "a worker cannot be started");
    }
}

/// With the lock held.
Workers::Worker& Workers::Next()
{
    for (std::size_t tried = 0; tried < m_Workers.size(); ++tried) {
        Worker& worker = m_Workers[m_nNext++ % m_Workers.size()];
        if (!worker.stuck) {
            return worker;
        }
    }
    throw std::runtime_error("all workers are stuck");
}

void Workers::Submit(const std::string& name, const Job& job)
{
    const std::lock_guard guard(m_Mutex);
    Next().jobs.emplace_back(name, job);
    m_Changed.notify_all();
}

void Workers::Await()
{
    std::unique_lock lock(m_Mutex);
    m_Changed.wait(lock, m_Stop, [this] {
        return std::ranges::all_of(
            m_Workers, [](const Worker& worker) { return worker.stuck || worker.jobs.empty(); });
    });
}

void Workers::Stick()
{
    std::unique_lock lock(m_Mutex);
    Worker& worker = Next();
    worker.stuck = true;
    worker.jobs.emplace_back("stuck", [this, &worker](const std::stop_token&) {
        std::unique_lock inside(m_Mutex);
        worker.inside = true;
        m_Changed.notify_all();
        m_Changed.wait(inside, m_Stop, [&worker] { return !worker.stuck; });
    });
    m_Changed.notify_all();
    m_Changed.wait(lock, m_Stop, [&worker] { return worker.inside; });
}

void Workers::Unstick()
{
    std::unique_lock lock(m_Mutex);
    for (Worker& worker : m_Workers) {
        worker.stuck = false;
    }
    m_Changed.notify_all();
    m_Changed.wait(lock, m_Stop, [this] {
        return std::ranges::none_of(m_Workers, [](const Worker& worker) { return worker.inside; });
    });
}

void Workers::End()
{
    Unstick();
    for (Worker& worker : m_Workers) {
        worker.thread.request_stop();
    }
    m_Workers.clear(); // joins the threads
}

/// Returns when the workers end and all jobs of this one are done.
void Workers::Work(const std::stop_token& ending, Worker& worker)
{
    EmsThreadInfoMap values;
    if (&worker == &m_Workers.front()) {
        AddEmsThreadInfo(values, "Report", "yes");
    }
    std::unique_lock lock(m_Mutex);
    for (int done = 0; m_Changed.wait(lock, ending, [&] { return !worker.jobs.empty(); }); ++done) {
        const auto& [name, job] = worker.jobs.front();
        lock.unlock();
        AddEmsThreadInfo(values, "jobs", done);
        AddEmsThreadInfo(values, "last", name.c_str());
        {
            const RegEmsThreadInfo inside(&values);
            job(ending);
        }
        lock.lock();
        worker.jobs.pop_front();
        worker.inside = false;
        m_Changed.notify_all();
    }
}

void Sleep(const std::stop_token& stop, int milliseconds)
{
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, stop, std::chrono::milliseconds(milliseconds), [] { return false; });
}

} // namespace emshost
