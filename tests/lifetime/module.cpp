// A program, and each of the two plugins that it is given: every operation of the library where a
// module's objects are made and destroyed and where a thread ends, and what one module has left
// with each service, found by another. A wrong result ends the process.
//
// The variable LIFETIME names whose turn it is, as each is to be the first once: "constructor",
// "thread", "destructor", "modules"; with "kept" each module keeps a log from its first to its
// last.

#include <algorithm>
#include <array>
#include <atomic>
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
#include <emsplatform/setup.h>
#include <emsplatform/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"
#include "tests/expose.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;
using LockErrors = std::map<int, std::string>;

EXPOSE(LockErrorsOf, QNMitLockErrMgr, m_ThrIDInfoMap, LockErrors)

#define REQUIRE(cond) ((cond) ? void() : Fail(__LINE__, #cond))

/// What a module has left, and where it counts what becomes of it.
struct Given
{
    std::string m_strCmd;
    unsigned long m_ulLog;
    QNMitLockErrMgr* m_pLocks;
    const int* m_pRuns;
    const int* m_pDeleted;
};

namespace {

constinit int g_nRuns = 0;    // of the module's handler
constinit int g_nDeleted = 0; // of its buffers
constinit int g_nTimer = 0;   // 1 for its copying, 10 for its firing, 100 for its end
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

/// An installation, always at the same place, and the lines that are written while it is there.
struct Surroundings
{
    Surroundings()
    {
        std::filesystem::create_directories(Root() + "ems");
        std::filesystem::create_directories(Root() + "var/dump");
        SetMode(0);
        emsplatform::SetInstallPath(Root() + "ems/bin");
        emsplatform::SetConfigFile(Root() + "ems.cfg");
        emsplatform::SetDebugCallback(
            [this](auto, int, const std::string& text) { m_strLines += text; });
        g_bEnableMitLockErrMgr = true;
    }
    ~Surroundings()
    {
        emsplatform::SetDebugStream(stderr);
        std::filesystem::remove_all(Root());
    }
    static std::string Root() { return "lifetime." + std::to_string(getpid()) + "/"; }
    static void SetMode(int mode) { std::ofstream(Root() + "ems.cfg") << "MsgHandleMode=" << mode; }
    static std::string Report()
    {
        std::ifstream file(Root() + "var/dump/" + g_ProcName + ".rpt");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void RequireLine(const char* text) const
    {
        REQUIRE(m_strLines.find(text) != std::string::npos);
    }

    std::string m_strLines;
};

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { ++g_nDeleted; }
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

template <class Record>
void UseRecord(const Record& record, const std::string& text, const std::string& empty)
{
    Record copy(record);
    Record assigned;
    assigned = copy;
    std::string form = copy.ToString();
    REQUIRE(form == text && assigned.ToString() == text);
    REQUIRE(Record::FromString(form).ToString() == empty);
}

void UseCommands()
{
    EmsNVTPList list;
    list.nvtps.emplace_back();
    EmsGeneralCmd cmd = RegisteredCmd();
    cmd.objs.objs.emplace_back().nvtps = list;
    const std::string pair = "nvtp={name=,value=,rtype=String}";
    UseRecord(list.nvtps.front(), pair, pair);
    UseRecord(list, "nvtps={" + pair + "}", "nvtps={}");
    UseRecord(cmd.objs.objs.front(), "obj={nvtps={" + pair + "}}", "obj={nvtps={}}");
    UseRecord(cmd.objs, "objs={obj={nvtps={" + pair + "}}}", "objs={}");
    UseRecord(cmd, ":" + cmd.name + "={objs={obj={nvtps={" + pair + "}}},nvtps={}};",
              ":={objs={},nvtps={}};");
    addGeneralCmd(cmd);
    REQUIRE(g_nRuns == 0);
    runGeneralCmd();
    REQUIRE(g_nRuns == 1);
    runGeneralCmd(cmd);
    REQUIRE(g_nRuns == 2);
}

void UseDiagnostics(const Surroundings& surroundings)
{
    REQUIRE(GetEmsUtilAgentDebugInterface() == GetDefaultDebugInterface());
    EmsUtilTraced("%s", "traced");
    EmsUtilReport("%s", "reported");
    const std::string report = Surroundings::Report();
    REQUIRE(report.size() == 6 + 24 + 8); // with the time in the middle
    REQUIRE(report.starts_with("traced") && report.ends_with("reported"));
    {
        const AgentTimeGuard guard("%s", "guarded");
    }
    surroundings.RequireLine("guarded\nused time(ms): ");
}

EmsThreadInfo OwnRecord()
{
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    const auto own = std::ranges::find(records, pthread_self(), &EmsThreadInfo::m_ulThreadId);
    return own != records.end() ? *own : EmsThreadInfo();
}

void UseMonitor(const Surroundings& surroundings)
{
    const long long events = OwnRecord().m_llRecvs;
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "Report", "yes");
    AddEmsThreadInfo(values, "number", 7);
    {
        const RegEmsThreadInfo inside(&values);
        REQUIRE(OwnRecord().m_nStatus == 1 && OwnRecord().m_InfoMap == values);
        REQUIRE(IsEmsThreadTimeout(-3600) && IsEmsThreadReport(pthread_self()));
        StatEmsThreadInfo();
        surroundings.RequireLine(" Report yes\n number 7\n");
    }
    REQUIRE(OwnRecord().m_nStatus == 0 && OwnRecord().m_llRecvs == events + 2);
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
}

void UseTimer(const Surroundings& surroundings)
{
    using namespace std::chrono_literals;
    static constinit std::atomic<int> calls = 0; // a millisecond each
    emsplatform::AddTaskManager(7, {1us, [] { return ++calls * 1ms; }});
    auto& manager = static_cast<emsplatform::TaskManager&>(*eKorGetAppMgr()->FindTaskMgrByID(7));
    manager.Start();
    EmsUtilTimerInterface timer = {[](void* given) { *static_cast<int*>(given) += 10; },
                                   [](void* given) { return ++*static_cast<int*>(given), given; },
                                   [](void* given) { *static_cast<int*>(given) += 100; }};
    g_nTimer = 0;
    ScheduleEmsUtilTimer(7, timer, &g_nTimer);
    REQUIRE(g_nTimer == 1 && manager.DeliverExpired() == 1 && g_nTimer == 111);
    ScheduleEmsUtilTimer(8, timer, &g_nTimer);
    surroundings.RequireLine("Find TaskMgrID 8 failed\n");
}

/// A log that has one extra reference, and so stays.
unsigned long LeaveLog()
{
    QNTransactionLog log;
    log.AddBuffer("left", 1, new Buffer);
    REQUIRE(log.AddRef(1) == 1);
    return log.GetHandle();
}

void FinishLog(unsigned long handle, const int& deleted)
{
    const int before = deleted;
    {
        QNTransactionLog log(handle);
        REQUIRE(log.IsValid() && log.GetBuffer("left", 1) != nullptr);
        REQUIRE(log.Release() == 0 && deleted == before);
    }
    REQUIRE(deleted == before + 1 && !QNTransactionLog(handle).IsValid());
}

void UseLogs(const Surroundings& surroundings)
{
    unsigned long handle = LeaveLog();
    QNTransactionBuffer* const taken = QNTransactionLog(handle).RemoveBuffer("left", 1);
    REQUIRE(taken != nullptr && QNTransactionLog(handle).GetBuffer("left", 1) == nullptr);
    QNTransactionLog(handle).AddBuffer("left", 1, taken);
    FinishLog(handle, g_nDeleted);
    if (!IsTurnOf("kept")) { // else those would go
        handle = LeaveLog();
        QNTransactionLog::ClearAllLog();
        REQUIRE(!QNTransactionLog(handle).IsValid());
        surroundings.RequireLine("file:translog:354,");
    }
}

void UseLockErrors()
{
    QNMitLockErrMgr other;
    for (QNMitLockErrMgr* locks : {QNMitLockErrMgr::Instance(), &other}) {
        locks->InsertThrIDandInfo(7, "text");
        REQUIRE(LockErrorsOf(*locks).at(7) == "text");
        locks->EraseThrIDandInfo(7);
        REQUIRE(LockErrorsOf(*locks).empty());
    }
    REQUIRE(QNMitLockErrMgr::m_pInstance == QNMitLockErrMgr::Instance());
    QNMitLockErrMgr::Destroy();
    REQUIRE(QNMitLockErrMgr::m_pInstance == nullptr);
}

void UseAllAt(const char* moment)
{
    if (IsTurnOf(moment)) {
        const Surroundings surroundings;
        UseCommands();
        UseDiagnostics(surroundings);
        UseMonitor(surroundings);
        UseTimer(surroundings);
        UseLogs(surroundings);
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
            FinishLog(g_ulKept, g_nDeleted);
        }
        UseAllAt("destructor");
    }
} g_Module;

struct ThreadEnd
{
    ~ThreadEnd() { UseAllAt("thread"); }
};

} // namespace

extern "C" {

EMSUTIL_API void EndThread()
{
    std::thread([] {
        thread_local const ThreadEnd end;
        static_cast<void>(end);
        UseAllAt("kept"); // what it makes for the thread is gone before the thread's end
    }).join();
}

EMSUTIL_API void GiveTo(void (*take)(const Given&))
{
    const Surroundings surroundings;
    EmsGeneralCmd cmd = RegisteredCmd();
    addGeneralCmd(cmd);
    EmsThreadInfoMap values = {{"giver", {cmd.name, THREADINFO_TYPE_STRING}}};
    const RegEmsThreadInfo inside(&values);
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    EmsUtilTraced("given ");
    take({cmd.name, LeaveLog(), QNMitLockErrMgr::Instance(), &g_nRuns, &g_nDeleted});
    REQUIRE(Surroundings::Report() == "given taken");
}

EMSUTIL_API void Take(const Given& given)
{
    runGeneralCmd();
    REQUIRE(*given.m_pRuns == 1);
    EmsGeneralCmd cmd;
    cmd.name = given.m_strCmd;
    runGeneralCmd(cmd);
    REQUIRE(*given.m_pRuns == 2);
    FinishLog(given.m_ulLog, *given.m_pDeleted);
    REQUIRE(given.m_pLocks != nullptr && QNMitLockErrMgr::Instance() == given.m_pLocks);
    REQUIRE(OwnRecord().m_nStatus == 1 && OwnRecord().m_InfoMap.at("giver").first == cmd.name);
    // These two are asked for once in a process.
    Surroundings::SetMode(1);
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    const std::string name = std::exchange(g_ProcName, "other");
    EmsUtilTraced("taken");
    g_ProcName = name;
}

} // extern "C"

/// Of the program; a plugin does not use its own.
int main(int, char** argv)
{
    std::array<void*, 3> modules{};
    for (std::size_t i = 0; i < modules.size(); ++i) {
        modules[i] = dlopen(argv[1 + i], RTLD_NOW); // the null behind the last is the program
        REQUIRE(modules[i] != nullptr);
    }
    const auto find = [&](std::size_t i, const char* name) { return dlsym(modules[i % 3], name); };
    for (std::size_t i = 0; i < modules.size(); ++i) {
        reinterpret_cast<decltype(&EndThread)>(find(i, "EndThread"))();
        if (IsTurnOf("modules")) {
            reinterpret_cast<decltype(&GiveTo)>(find(i, "GiveTo"))(
                reinterpret_cast<decltype(&Take)>(find(i + 1, "Take")));
        }
    }
}
