// states STATE: a process in a state that an operator would ask about. It prints "ready" when all
// of its threads are where they stay, and then waits to be killed.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <latch>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <emsplatform/platform.h>
#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_EMSUTIL_AGENT;
using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

namespace {

std::mutex g_HostMutex;

/// Starts a thread. Returns when it waits in the kernel for a lock, a condition or the like.
template <class Function>
std::thread& StartWaiting(Function function)
{
    std::atomic<pid_t> id = 0;
    auto& thread = *new std::thread([&id, function] {
        id = gettid();
        function();
    });
    for (std::string call; call != std::to_string(SYS_futex);) {
        sched_yield();
        std::ifstream("/proc/self/task/" + std::to_string(id) + "/syscall") >> call;
    }
    return thread;
}

[[gnu::noinline]] void WaitForever()
{
    std::atomic<bool> never = false;
    never.wait(false);
}

// Threads, logs, lock error texts and timers ------------------------------------------------------

class Request : public QNTransactionBuffer
{};

class Answer : public QNTransactionBuffer
{};

[[gnu::noinline]] void WorkWithoutEnd()
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "Report", "yes");
    AddEmsThreadInfo(values, "element", "NE-17\n\x1b[31m");
    AddEmsThreadInfo(values, "jobs", 3);
    const RegEmsThreadInfo inside(&values);
    NSQN_util::QNMitLockErrMgr::Instance()->InsertThrIDandInfo(gettid(), "waits for NE-17");
    WaitForever();
}

void Retry(void*) {}

int SetLevel(EmsGeneralCmd*, EmsGeneralCmd*)
{
    return 0;
}

int Hang(EmsGeneralCmd*, EmsGeneralCmd*)
{
    WaitForever();
    return 0;
}

void Register(const char* name, EmsGeneralCmdHandler handler)
{
    std::string text(name);
    const RegEmsUtilCmd registered(text, handler);
}

void StandStill()
{
    NSQN_util::g_bEnableMitLockErrMgr = true;
    NSQN_util::QNMitLockErrMgr::Instance()->InsertThrIDandInfo(-1, "is not a thread");

    StartWaiting(WorkWithoutEnd);
    std::latch both(2); // at once, so that they have ids of their own
    std::thread leaves([&] {
        const RegEmsThreadInfo left(nullptr);
        both.arrive_and_wait();
    });
    std::thread ends([&] {
        new RegEmsThreadInfo(nullptr);
        both.arrive_and_wait();
    });
    leaves.join();
    ends.join();

    auto* attached = new QNTransactionLog;
    attached->AddRef(2);
    QNTransactionLog orphan;
    orphan.AddRef(1);
    orphan.AddBuffer("request", 7, new Request);
    orphan.AddBuffer("answer", 7, new Answer);
    orphan.AddBuffer("answer", 12, new Answer);

    emsstandin::TaskManagerOptions options;
    options.m_Clock = [] { return std::chrono::seconds(100); };
    emsstandin::AddTaskManager(7, options)->Start();
    EmsUtilTimerInterface timer = {};
    timer.pfnTimeout = Retry;
    ScheduleEmsUtilTimer(7, timer, nullptr);
    ScheduleEmsUtilTimer(7, timer, nullptr);
}

// Commands ----------------------------------------------------------------------------------------

EmsNameAndValueStringTypePair MakePair(const char* name, const std::string& value, int type)
{
    EmsNameAndValueStringTypePair pair;
    pair.name = name;
    pair.value = value;
    pair.rtype = type;
    return pair;
}

[[gnu::noinline]] void FillTheQueue()
{
    EmsGeneralCmd fill;
    fill.name = "fill";
    for (;;) {
        addGeneralCmd(fill);
    }
}

void HangInAHandler()
{
    Register("SetLevel", SetLevel);
    Register("hang", Hang);

    EmsGeneralCmd hang;
    hang.name = "hang";
    hang.nvtps.nvtps.push_back(MakePair("element", "NE-17", NVTP_TYPE_STRING));
    addGeneralCmd(hang);
    StartWaiting([] { runGeneralCmd(); });

    EmsGeneralCmd command;
    command.name = "SetLevel";
    command.objs.objs.emplace_back().nvtps.nvtps = {MakePair("level", " +17 of 20", NVTP_TYPE_LONG),
                                                    MakePair("big", "4294967295", NVTP_TYPE_LONG)};
    command.objs.objs.emplace_back();
    command.nvtps.nvtps = {MakePair("text", std::string("cut\0off", 7), NVTP_TYPE_STRING),
                           MakePair("not shown", "", 99), MakePair("none", "x", NVTP_TYPE_LONG)};
    addGeneralCmd(command);
    std::puts(command.ToString().c_str());
    StartWaiting(FillTheQueue);
    StartWaiting(FillTheQueue);
}

// Locks -------------------------------------------------------------------------------------------

[[gnu::noinline]] void LockHostMutex()
{
    const std::lock_guard guard(g_HostMutex);
}

/// Its check line is written under the log's lock, and the host's debug lines take the host's
/// mutex.
[[gnu::noinline]] void AddNothingToLog(QNTransactionLog& log)
{
    log.AddBuffer("nothing", 1, nullptr);
}

[[gnu::noinline]] void AddToLogUnderHostMutex(QNTransactionLog& log)
{
    const std::lock_guard guard(g_HostMutex);
    StartWaiting([&log] { AddNothingToLog(log); });
    log.AddBuffer("request", 1, new Request);
}

void WaitForEachOther()
{
    emsstandin::SetDebugCallback([](auto, auto, auto&) { LockHostMutex(); });
    auto& log = *new QNTransactionLog;
    std::thread& second = StartWaiting([&log] { AddToLogUnderHostMutex(log); });
    StartWaiting([&second] { second.join(); }); // no part of the circle
}

} // namespace

int main(int argc, char** argv)
{
    const std::map<std::string, void (*)()> states = {
        {"still", StandStill}, {"hanging", HangInAHandler}, {"deadlock", WaitForEachOther}};
    const auto state = argc == 2 ? states.find(argv[1]) : states.end();
    if (state == states.end()) {
        return 2;
    }
    state->second();
    std::puts("ready");
    std::fflush(stdout);
    WaitForever();
}
