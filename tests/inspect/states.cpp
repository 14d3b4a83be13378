// states STATE: a process in a state that an operator would ask about. It prints "ready" when all
// of its threads are where they stay, and then waits to be killed.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
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

/// A thread that is known to wait in the kernel for a lock, a condition or the like.
class WaitingThread
{
public:
    template <class Function>
    explicit WaitingThread(Function function)
        : m_Thread([this, function] {
              m_nId = gettid();
              function();
          })
    {
        AwaitFutex("");
    }

    /// Returns when the thread waits for the futex at this address, given as the kernel writes it.
    void AwaitFutex(const std::string& address) const
    {
        std::string call;
        std::string futex;
        while (call != "202" || (!address.empty() && futex != address)) {
            sched_yield();
            std::ifstream("/proc/self/task/" + std::to_string(m_nId) + "/syscall") >> call >> futex;
        }
    }

    std::thread& Thread() { return m_Thread; }

private:
    std::atomic<pid_t> m_nId = 0;
    std::thread m_Thread;
};

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

    new WaitingThread(WorkWithoutEnd);
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
    new WaitingThread([] { runGeneralCmd(); });

    EmsGeneralCmd command;
    command.name = "SetLevel";
    command.objs.objs.emplace_back().nvtps.nvtps = {MakePair("level", " +17 of 20", NVTP_TYPE_LONG),
                                                    MakePair("big", "4294967295", NVTP_TYPE_LONG)};
    command.objs.objs.emplace_back();
    command.nvtps.nvtps = {MakePair("text", std::string("cut\0off", 7), NVTP_TYPE_STRING),
                           MakePair("not shown", "", 99), MakePair("none", "x", NVTP_TYPE_LONG)};
    addGeneralCmd(command);
    std::puts(command.ToString().c_str());
    new WaitingThread(FillTheQueue);
    new WaitingThread(FillTheQueue);
}

// Locks -------------------------------------------------------------------------------------------

[[gnu::noinline]] void LockHostMutex()
{
    const std::lock_guard guard(g_HostMutex);
}

[[gnu::noinline]] void AddToLogUnderHostMutex(QNTransactionLog& log)
{
    const std::lock_guard guard(g_HostMutex);
    log.AddBuffer("request", 1, new Request);
}

/// Its check line is written under the log's lock, and the host's debug lines take the host's
/// mutex.
[[gnu::noinline]] void AddNothingToLog(QNTransactionLog& log)
{
    log.AddBuffer("nothing", 1, nullptr);
}

/// The check line of one thread waits until the other thread has the mutex and waits for the log.
void WaitForEachOther()
{
    auto* log = new QNTransactionLog;
    auto* isHeld = new std::atomic<bool>(false);
    auto* mayLock = new std::atomic<bool>(false);
    emsstandin::SetDebugCallback([=](emsstandin::DebugOperation, int, const std::string&) {
        *isHeld = true;
        isHeld->notify_all();
        mayLock->wait(false);
        LockHostMutex();
    });
    auto* first = new WaitingThread([=] { AddNothingToLog(*log); });
    isHeld->wait(false);
    auto* second = new WaitingThread([=] { AddToLogUnderHostMutex(*log); });
    *mayLock = true;
    mayLock->notify_all();
    // This one is no part of the circle.
    new WaitingThread([=] { second->Thread().join(); });
    char address[32];
    std::snprintf(address, sizeof address, "%p", static_cast<void*>(g_HostMutex.native_handle()));
    first->AwaitFutex(address);
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
