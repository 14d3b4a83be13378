#include <chrono>
#include <cstdio>
#include <future>
#include <list>
#include <thread>

#include <emsstandin/setup.h>
#include <emsutil/thread_monitor.h>

using namespace NSQN_EMSUTIL_AGENT;

int g_nJob = 0; // the worker's
std::promise<void> g_Unstick;

bool TakeJob()
{
    return ++g_nJob <= 3;
}

void DoJob()
{
    if (g_nJob == 3) // this one gets stuck
        g_Unstick.get_future().wait();
}

void Work()
{
    EmsThreadInfoMap values; // the worker's own
    for (int jobs = 1; TakeJob(); ++jobs) {
        AddEmsThreadInfo(values, "jobs", jobs);
        RegEmsThreadInfo inside(&values);
        DoJob();
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
