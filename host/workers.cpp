#include "host/workers.h"

#include <algorithm>
#include <latch>
#include <utility>

#include "emsutil/thread_monitor.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

Workers::Workers(int count, std::stop_token stop)
    : m_nCount(static_cast<std::size_t>(count)), m_Stop(std::move(stop))
{}

/// Null when all are stuck. With the lock held.
Workers::Worker* Workers::Next()
{
    while (m_Workers.size() < m_nCount) {
        Worker& worker = m_Workers.emplace_back();
        try {
            worker.thread = std::jthread(
                [this, &worker, first = m_Workers.size() == 1] { Work(worker, first); });
        } catch (...) {
            m_Workers.pop_back();
            throw;
        }
    }
    for (std::size_t tried = 0; tried < m_nCount; ++tried) {
        Worker& worker = m_Workers[m_nNext++ % m_nCount];
        if (!worker.stuck) {
            return &worker;
        }
    }
    return nullptr;
}

bool Workers::Submit(const std::string& name, const Job& job)
{
    const std::lock_guard guard(m_Mutex);
    Worker* const worker = Next();
    if (worker != nullptr) {
        worker->jobs.emplace_back(name, job);
        m_Changed.notify_all();
    }
    return worker != nullptr;
}

void Workers::Await()
{
    std::unique_lock lock(m_Mutex);
    m_Changed.wait(lock, m_Stop, [this] {
        return std::all_of(m_Workers.begin(), m_Workers.end(), [](const Worker& worker) {
            return worker.stuck || worker.jobs.empty();
        });
    });
}

void Workers::BeBusy(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_Mutex);
    m_Changed.wait_for(lock, m_Stop, time, [this] { return m_bEnding; });
}

bool Workers::Stick()
{
    std::latch inside(1);
    {
        const std::lock_guard guard(m_Mutex);
        Worker* const worker = Next();
        if (worker == nullptr) {
            return false;
        }
        worker->stuck = true;
        worker->jobs.emplace_back("stuck", [this, worker, &inside] {
            inside.count_down();
            BeStuck(*worker);
        });
        m_Changed.notify_all();
    }
    inside.wait();
    return true;
}

void Workers::BeStuck(Worker& worker)
{
    std::unique_lock lock(m_Mutex);
    m_Changed.wait(lock, m_Stop, [&worker] { return !worker.stuck; });
}

void Workers::Unstick()
{
    const std::lock_guard guard(m_Mutex);
    for (Worker& worker : m_Workers) {
        worker.stuck = false;
    }
    m_Changed.notify_all();
}

void Workers::End()
{
    Unstick();
    {
        const std::lock_guard guard(m_Mutex);
        m_bEnding = true;
        m_Changed.notify_all();
    }
    for (Worker& worker : m_Workers) {
        if (worker.thread.joinable()) {
            worker.thread.join();
        }
    }
}

void Workers::Work(Worker& worker, bool isReport)
{
    EmsThreadInfoMap values;
    if (isReport) {
        AddEmsThreadInfo(values, "Report", "yes");
    }
    std::unique_lock lock(m_Mutex);
    for (int done = 0;; ++done) {
        m_Changed.wait(lock, [&] { return !worker.jobs.empty() || m_bEnding; });
        if (worker.jobs.empty()) {
            return;
        }
        const auto& [name, job] = worker.jobs.front();
        lock.unlock();
        AddEmsThreadInfo(values, "jobs", done);
        AddEmsThreadInfo(values, "last", name.c_str());
        {
            const RegEmsThreadInfo inside(&values);
            job();
        }
        lock.lock();
        worker.jobs.pop_front();
        m_Changed.notify_all();
    }
}

} // namespace emshost
