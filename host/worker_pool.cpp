#include "host/worker_pool.h"

#include <utility>

#include "emsutil/thread_monitor.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

WorkerPool::Worker::Worker(WorkerPool& pool, std::size_t number)
    : m_Thread([this, &pool, number] { pool.Work(*this, number); })
{}

WorkerPool::WorkerPool(int workers) : m_nWorkers(static_cast<std::size_t>(workers)) {}

WorkerPool::~WorkerPool()
{
    End();
}

void WorkerPool::Submit(std::string name, Job job)
{
    const std::lock_guard guard(m_Mutex);
    while (m_Workers.size() < m_nWorkers) {
        m_Idle.push_back(&m_Workers.emplace_back(*this, m_Workers.size() + 1));
    }
    m_Queue.push_back({std::move(name), std::move(job)});
    Assign();
}

void WorkerPool::Await()
{
    std::unique_lock lock(m_Mutex);
    m_Moved.wait(lock, [this] { return CountBusy() == m_nStuck; });
}

void WorkerPool::BeBusy(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_Mutex);
    m_Moved.wait_for(lock, time, [this] { return m_bEnding; });
}

bool WorkerPool::Stick()
{
    std::size_t wanted = 0;
    {
        const std::lock_guard guard(m_Mutex);
        if (m_nStuck == m_nWorkers) {
            return false;
        }
        wanted = m_nStuck + 1;
    }
    Submit("stuck", [this] { BeStuck(); });
    std::unique_lock lock(m_Mutex);
    m_Moved.wait(lock, [&] { return m_nStuck == wanted; });
    return true;
}

void WorkerPool::BeStuck()
{
    std::unique_lock lock(m_Mutex);
    const unsigned unsticks = m_nUnsticks;
    ++m_nStuck;
    m_Moved.notify_all();
    m_Moved.wait(lock, [&] { return m_nUnsticks != unsticks; });
}

void WorkerPool::Unstick()
{
    const std::lock_guard guard(m_Mutex);
    ++m_nUnsticks;
    m_nStuck = 0; // from here on they are awaited
    m_Moved.notify_all();
}

void WorkerPool::End()
{
    Unstick();
    {
        const std::lock_guard guard(m_Mutex);
        m_bEnding = true;
        m_Moved.notify_all();
        for (Worker& worker : m_Workers) {
            worker.m_Wake.notify_one();
        }
    }
    for (Worker& worker : m_Workers) {
        if (worker.m_Thread.joinable()) {
            worker.m_Thread.join();
        }
    }
}

void WorkerPool::Work(Worker& worker, std::size_t number)
{
    EmsThreadInfoMap values;
    if (number == 1) {
        AddEmsThreadInfo(values, "Report", "yes");
    }
    NamedJob job;
    for (int jobs = 0; TakeJob(worker, job); ++jobs) {
        AddEmsThreadInfo(values, "jobs", jobs);
        AddEmsThreadInfo(values, "last", job.m_strName.c_str());
        {
            const RegEmsThreadInfo inside(&values);
            job.m_Job();
        }
        job.m_Job = nullptr; // what it holds goes before anybody learns that it is done
        BeIdle(worker);
    }
}

/// False when the pool ends and there is nothing left to do.
bool WorkerPool::TakeJob(Worker& worker, NamedJob& job)
{
    std::unique_lock lock(m_Mutex);
    worker.m_Wake.wait(lock, [&] { return worker.m_Next.m_Job || m_bEnding; });
    job = std::exchange(worker.m_Next, {});
    if (!job.m_Job) {
        std::erase(m_Idle, &worker); // a job that is still running may hand over another
        return false;
    }
    return true;
}

void WorkerPool::BeIdle(Worker& worker)
{
    const std::lock_guard guard(m_Mutex);
    m_Idle.push_back(&worker);
    Assign();
    m_Moved.notify_all();
}

/// With the lock held.
void WorkerPool::Assign()
{
    while (!m_Queue.empty() && !m_Idle.empty()) {
        Worker& worker = *m_Idle.front();
        m_Idle.pop_front();
        worker.m_Next = std::move(m_Queue.front());
        m_Queue.pop_front();
        worker.m_Wake.notify_one();
    }
}

} // namespace emshost
