#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <future>
#include <mutex>
#include <string>
#include <thread>

#include <emsutil/general_command.h>
#include <emsutil/thread_monitor.h>

using namespace NSQN_EMSUTIL_AGENT;

std::mutex g_Mutex; // guards the two flags
std::condition_variable g_Changed;
bool g_bAdded = false;   // something may be queued
bool g_bStopped = false; // the draining thread must finish

int Check(EmsGeneralCmd*, EmsGeneralCmd*)
{
    RegEmsThreadInfo inside(nullptr); // monitored until the handler returns
    return 0;
}

int Save(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "command", cmd->name.c_str());
    RegEmsThreadInfo inside(&values);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::puts("saved");
    return std::fflush(stdout);
}

std::string g_CheckName = "Check", g_SaveName = "Save";
RegEmsUtilCmd g_Check(g_CheckName, Check), g_Save(g_SaveName, Save);

void Add(const std::string& name) // called by any thread
{
    EmsGeneralCmd cmd;
    cmd.name = name;
    addGeneralCmd(cmd); // waits while the queue is full
    std::lock_guard<std::mutex> lock(g_Mutex);
    g_bAdded = true;
    g_Changed.notify_all();
}

void Drain() // the draining thread
{
    for (bool last = false; !last;) {
        {
            std::unique_lock<std::mutex> lock(g_Mutex);
            g_Changed.wait_for(lock, std::chrono::milliseconds(500),
                               [] { return g_bAdded || g_bStopped; });
            g_bAdded = false;
            last = g_bStopped;
        }
        {
            RegEmsThreadInfo awake(nullptr); // enters and leaves: the measured time restarts
        }
        runGeneralCmd(); // g_Mutex is free here: handlers and other threads may add
    }
}

int main()
{
    sigset_t signals; // blocked before threads start: they inherit this
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::promise<void> stop;
    std::shared_future<void> stopped = stop.get_future().share();
    std::thread draining(Drain);
    std::thread saving([stopped] {
        do
            Add(g_SaveName);
        while (stopped.wait_for(std::chrono::seconds(4)) == std::future_status::timeout);
    });
    std::thread checking([] {
        for (int i = 0; i < 1000; ++i) // more than the queue holds
            Add(g_CheckName);
    });

    const timespec halfASecond = {0, 500000000}; // nanoseconds
    while (sigtimedwait(&signals, nullptr, &halfASecond) < 0)
        if (IsEmsThreadTimeout(3)) // the watchdog
            StatEmsThreadInfo();

    stop.set_value(); // first the threads that add, while the draining thread runs
    saving.join();
    checking.join();
    {
        std::lock_guard<std::mutex> lock(g_Mutex);
        g_bStopped = true;
    }
    g_Changed.notify_all();
    draining.join(); // what was queued has been run
    std::puts("stopped");
}
