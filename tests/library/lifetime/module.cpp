// A program, and each of the two plugins that it is given: every service of the library where a
// module's objects are made and destroyed and where a thread ends, and what one module has left
// with each service, found by another. A wrong result ends the process.
//
// The variable LIFETIME names whose turn it is, as each is to be the first once: "constructor",
// "thread", "destructor", "modules"; with "kept" each module keeps a log from its first to its
// last.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>
#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"
#include "tests/support/expose.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

EXPOSE(LockErrorsOf, QNMitLockErrMgr, m_ThrIDInfoMap, std::map<int, std::string>)

#define REQUIRE(cond) ((cond) ? void() : Fail(__LINE__, #cond))

namespace {

constinit int g_nRuns = 0;    // of the module's handler
constinit int g_nBuffers = 0; // of the module's that live
constinit int g_nTimer = 0;   // 1 for its copying, 10 for its firing, 100 for its end
constinit int g_nLines = 0;   // written and not yet asked for
constinit unsigned long g_ulKept = 0;

void Fail(int line, const char* what)
{
    std::fprintf(stderr, "module.cpp:%d: %s does not hold\n", line, what);
    std::_Exit(1);
}

bool IsTurnOf(const char* moment)
{
    const char* const turns = std::getenv("LIFETIME"); // NOLINT(concurrency-mt-unsafe): is not set
    REQUIRE(turns != nullptr);
    return std::strstr(turns, moment) != nullptr;
}

/// An installation, always at the same place, whose lines are counted.
struct Surroundings
{
    Surroundings()
    {
        std::filesystem::create_directories(Root() + "var/dump");
        std::ofstream(Root() + "ems.cfg") << "MsgHandleMode=0";
        emsstandin::SetInstallPath(Root() + "var/bin");
        emsstandin::SetConfigFile(Root() + "ems.cfg");
        emsstandin::SetDebugCallback([](auto...) { ++g_nLines; });
        g_bEnableMitLockErrMgr = true;
    }
    ~Surroundings()
    {
        emsstandin::SetDebugStream(stderr);
        std::filesystem::remove_all(Root());
    }
    static std::string Root() { return "lifetime." + std::to_string(getpid()) + "/"; }
    static std::string Report()
    {
        std::ifstream file(Root() + "var/dump/" + g_ProcName + ".rpt");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static int TakeLines() { return std::exchange(g_nLines, 0); }
};

struct Buffer : QNTransactionBuffer
{
    Buffer() { ++g_nBuffers; }
    ~Buffer() override { --g_nBuffers; }
};

/// Of the module's own name.
EmsGeneralCmd RegisteredCmd()
{
    EmsGeneralCmd cmd;
    cmd.name = string_format("%p", static_cast<void*>(&g_nRuns));
    RegEmsUtilCmd(cmd.name, [](EmsGeneralCmd*, EmsGeneralCmd*) { return ++g_nRuns; });
    g_nRuns = 0;
    return cmd;
}

void UseCommands()
{
    EmsGeneralCmd cmd = RegisteredCmd();
    cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
    std::string text = EmsGeneralCmd(cmd).ToString();
    REQUIRE(text.ends_with("={objs={obj={nvtps={nvtp={name=,value=,rtype=String}}}},nvtps={}};"));
    REQUIRE(EmsGeneralCmd::FromString(text).ToString() == ":={objs={},nvtps={}};");
    addGeneralCmd(cmd);
    runGeneralCmd();
    runGeneralCmd(cmd);
    REQUIRE(g_nRuns == 2);
}

void UseDiagnostics()
{
    REQUIRE(GetEmsUtilAgentDebugInterface() == GetDefaultDebugInterface());
    EmsUtilReport("%s", "reported");
    EmsUtilTraced("%s", " traced");
    REQUIRE(Surroundings::Report().ends_with("reported traced"));
    static_cast<void>(AgentTimeGuard("%s", "guarded"));
    REQUIRE(Surroundings::TakeLines() == 2);
}

EmsThreadInfo OwnRecord()
{
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    const auto own = std::ranges::find(records, pthread_self(), &EmsThreadInfo::m_ulThreadId);
    return own != records.end() ? *own : EmsThreadInfo();
}

void UseMonitor()
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "Report", "yes");
    AddEmsThreadInfo(values, "number", 7);
    {
        const RegEmsThreadInfo inside(&values);
        REQUIRE(OwnRecord().m_nStatus == 1 && OwnRecord().m_InfoMap == values);
        REQUIRE(IsEmsThreadTimeout(-3600) && IsEmsThreadReport(pthread_self()));
        StatEmsThreadInfo();
        REQUIRE(Surroundings::TakeLines() == 1);
    }
    REQUIRE(OwnRecord().m_nStatus == 0 && ReadMsgHandleModeSwitcher() == 0);
}

void UseTimer()
{
    using namespace std::chrono_literals;
    static constinit int calls = 0; // a millisecond each
    emsstandin::AddTaskManager(7, {1us, [] { return ++calls * 1ms; }});
    auto& manager = static_cast<emsstandin::TaskManager&>(*eKorGetAppMgr()->FindTaskMgrByID(7));
    manager.Start();
    EmsUtilTimerInterface timer = {[](void* given) { *static_cast<int*>(given) += 10; },
                                   [](void* given) { return ++*static_cast<int*>(given), given; },
                                   [](void* given) { *static_cast<int*>(given) += 100; }};
    g_nTimer = 0;
    ScheduleEmsUtilTimer(7, timer, &g_nTimer);
    REQUIRE(manager.DeliverExpired() == 1 && g_nTimer == 111);
}

/// A log that has one extra reference, and so stays.
unsigned long LeaveLog()
{
    QNTransactionLog log;
    log.AddBuffer("left", 1, new Buffer);
    REQUIRE(log.AddRef(1) == 1);
    return log.GetHandle();
}

void FinishLog(unsigned long handle)
{
    REQUIRE(QNTransactionLog(handle).GetBuffer("left", 1) != nullptr);
    REQUIRE(QNTransactionLog(handle).Release() == 0);
    REQUIRE(!QNTransactionLog(handle).IsValid());
}

void UseLogs()
{
    const int before = g_nBuffers;
    unsigned long handle = LeaveLog();
    QNTransactionBuffer* const taken = QNTransactionLog(handle).RemoveBuffer("left", 1);
    QNTransactionLog(handle).AddBuffer("left", 1, taken);
    FinishLog(handle);
    if (!IsTurnOf("kept")) { // else those would go
        handle = LeaveLog();
        QNTransactionLog::ClearAllLog();
        REQUIRE(Surroundings::TakeLines() == 2 && !QNTransactionLog(handle).IsValid());
    }
    REQUIRE(g_nBuffers == before);
}

void UseLockErrors()
{
    QNMitLockErrMgr& locks = *QNMitLockErrMgr::Instance();
    locks.InsertThrIDandInfo(7, "text");
    REQUIRE(LockErrorsOf(locks).at(7) == "text");
    locks.EraseThrIDandInfo(7);
    REQUIRE(LockErrorsOf(locks).empty());
    QNMitLockErrMgr::Destroy();
    REQUIRE(QNMitLockErrMgr::m_pInstance == nullptr);
}

void UseAllAt(const char* moment)
{
    if (IsTurnOf(moment)) {
        const Surroundings surroundings;
        UseCommands();
        UseDiagnostics();
        UseMonitor();
        UseTimer();
        UseLogs();
        UseLockErrors();
    }
}

struct Module
{
    Module()
    {
        UseAllAt("constructor");
        g_ulKept = IsTurnOf("kept") ? LeaveLog() : 0;
    }
    ~Module()
    {
        if (g_ulKept != 0) {
            FinishLog(g_ulKept);
        }
        REQUIRE(g_nBuffers == 0);
        UseAllAt("destructor");
    }
} g_Module;

struct ThreadEnd
{
    ~ThreadEnd() { UseAllAt("thread"); }
};

} // namespace

extern "C" {

/// What another module has left.
EMSUTIL_API void Take(EmsGeneralCmd& cmd, unsigned long log, const QNMitLockErrMgr* locks)
{
    runGeneralCmd();
    runGeneralCmd(cmd);
    FinishLog(log);
    REQUIRE(QNMitLockErrMgr::Instance() == locks);
    REQUIRE(OwnRecord().m_nStatus == 1 && OwnRecord().m_InfoMap.contains(cmd.name));
    // These two are asked for once in a process.
    std::filesystem::remove(Surroundings::Root() + "ems.cfg");
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    const std::string name = std::exchange(g_ProcName, "other");
    EmsUtilTraced("taken");
    g_ProcName = name;
}

EMSUTIL_API void Run(decltype(&Take) take)
{
    std::thread([] {
        thread_local const ThreadEnd end;
        static_cast<void>(end);
        UseAllAt("kept"); // what it makes for the thread is gone before the thread's end
    }).join();
    if (!IsTurnOf("modules")) {
        return;
    }
    const Surroundings surroundings;
    EmsGeneralCmd cmd = RegisteredCmd();
    addGeneralCmd(cmd);
    EmsThreadInfoMap values = {{cmd.name, {}}};
    const RegEmsThreadInfo inside(&values);
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    EmsUtilTraced("given ");
    take(cmd, LeaveLog(), QNMitLockErrMgr::Instance());
    REQUIRE(g_nRuns == 2 && g_nBuffers == 0 && Surroundings::Report() == "given taken");
}

} // extern "C"

/// Of the program; a plugin does not use its own.
int main(int, char** argv)
{
    void* modules[3] = {};
    for (std::size_t i = 0; i < std::size(modules); ++i) {
        modules[i] = dlopen(argv[1 + i], RTLD_NOW); // the null behind the last is the program
        REQUIRE(modules[i] != nullptr);
    }
    for (std::size_t i = 0; i < std::size(modules); ++i) {
        const auto run = reinterpret_cast<decltype(&Run)>(dlsym(modules[i], "Run"));
        run(reinterpret_cast<decltype(&Take)>(dlsym(modules[(i + 1) % 3], "Take")));
    }
}
