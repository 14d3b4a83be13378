#include <chrono>
#include <cstdio>
#include <future>
#include <list>
#include <thread>

#include <emsstandin/setup.h>
#include <emsutil/thread_monitor.h>

using namespace NSQN_EMSUTIL_AGENT;

constexpr int JOBS = 3;
std::promise<void> g_Unstick;

// Stands for a queue: waits 1, 2 and 8 bring a job each, and waits 3 to 7 bring none.
bool AwaitJob(std::chrono::milliseconds time)
{
    static int waits = 0;
    std::this_thread::sleep_for(time);
    ++waits;
    return waits < 3 || waits > 7;
}

void DoJob(int number)
{
    if (number == JOBS) // this one gets stuck
        g_Unstick.get_future().wait();
}

void Work()
{
    EmsThreadInfoMap values; // the worker's own
    for (int jobs = 1; jobs <= JOBS;) {
        AddEmsThreadInfo(values, "jobs", jobs);
        RegEmsThreadInfo inside(&values); // covers the wait too: each pass restarts the time
        if (AwaitJob(std::chrono::milliseconds(200)))
            DoJob(jobs++);
    }
}

int main()
{
    emsstandin::SetDebugStream(stdout);
    std::thread worker(Work);

    while (!IsEmsThreadTimeout(1)) // the watchdog: a second is too long
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    StatEmsThreadInfo();

    std::list<EmsThreadInfo> overdue;
    GetEmsThreadInfo(overdue, 1);
    for (const EmsThreadInfo& info : overdue)
        std::printf("overdue in job %s\n", info.m_InfoMap.at("jobs").first.c_str());

    g_Unstick.set_value();
    worker.join();
}
