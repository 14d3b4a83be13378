/// Runs a fixed number of each operation, for callgrind to count its instructions; see bench/count.

#include <cstdlib>
#include <filesystem>
#include <list>
#include <string>

#include <valgrind/callgrind.h>

#include <emsplatform/platform.h>
#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

constexpr int RUNS = 1000; // bench/count divides by it

/// A dump of callgrind's under this name.
template <class Run>
void Count(const char* name, Run run)
{
    run(); // what is made on first use does not count
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < RUNS; ++i) {
        run();
    }
    CALLGRIND_DUMP_STATS_AT(name);
}

EmsGeneralCmd Command()
{
    EmsNameAndValueStringTypePair text;
    text.name = "label";
    text.value = "two words";
    EmsNameAndValueStringTypePair number;
    number.name = "identifier";
    number.value = "4711";
    number.rtype = NVTP_TYPE_LONG;
    EmsGeneralObj obj;
    obj.nvtps.nvtps = {number, text};
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel50";
    cmd.objs.objs.assign(10, obj);
    return cmd;
}

int Handle(EmsGeneralCmd*, EmsGeneralCmd*)
{
    return 0;
}

void CountCommands()
{
    for (int i = 0; i < 100; ++i) {
        std::string name = "SetLevel" + std::to_string(i);
        const RegEmsUtilCmd registration(name, Handle);
    }
    EmsGeneralCmd cmd = Command();
    Count("text form", [&cmd] { cmd.ToString(); });
    Count("addGeneralCmd and runGeneralCmd()", [&cmd] {
        addGeneralCmd(cmd);
        runGeneralCmd();
    });
    Count("runGeneralCmd(cmd)", [&cmd] { runGeneralCmd(cmd); });
}

void CountDiagnostics()
{
    const std::string longText(5000, 'x');
    Count("string_format, 20 characters", [] { string_format("%s on port %d", "alpha", 4711); });
    Count("string_format, 5,000 characters", [&] { string_format("%s", longText.c_str()); });
    Count("AgentTimeGuard", [] { const AgentTimeGuard guard("loading %s", "alpha"); });

    std::string path = (std::filesystem::temp_directory_path() / "emsutil_count.XXXXXX").string();
    const std::filesystem::path root = mkdtemp(path.data());
    std::filesystem::create_directories(root / "parent");
    std::filesystem::create_directories(root / "var/dump");
    emsstandin::SetInstallPath((root / "parent/install").string());
    Count("EmsUtilReport", [] { EmsUtilReport("%s on port %d\n", "alpha", 4711); });
    std::filesystem::remove_all(root);
}

void CountThreadMonitor()
{
    EmsThreadInfoMap values;
    Count("AddEmsThreadInfo", [&values] { AddEmsThreadInfo(values, "jobs", 4711); });
    AddEmsThreadInfo(values, "peer", "alpha");
    Count("entry and exit", [&values] { const RegEmsThreadInfo inside(&values); });
    Count("IsEmsThreadTimeout", [] { IsEmsThreadTimeout(1000); });
    Count("StatEmsThreadInfo", StatEmsThreadInfo);
    Count("GetEmsThreadInfo", [] {
        std::list<EmsThreadInfo> infos;
        GetEmsThreadInfo(infos, 0);
    });
}

void CountTransactionLogs()
{
    Count("log made and destroyed", [] { const QNTransactionLog made; });
    QNTransactionLog log;
    Count("log attached and destroyed", [&log] { const QNTransactionLog other(log.GetHandle()); });
    QNTransactionBuffer* const buffer = new QNTransactionBuffer;
    const std::string name = "request";
    Count("buffer added, found and removed", [&] {
        log.AddBuffer(name, 1, buffer);
        log.GetBuffer(name, 1);
        log.RemoveBuffer(name, 1);
    });
    delete buffer;
}

void CountTimers()
{
    constexpr unsigned char id = 11;
    static std::chrono::seconds clock(1);
    emsstandin::TaskManagerOptions options;
    options.m_Unit = std::chrono::seconds(1);
    options.m_Clock = [] { return clock; };
    emsstandin::TaskManager& manager = *emsstandin::AddTaskManager(id, options);
    manager.Start();
    EmsUtilTimerInterface functions = {[](void*) {}, nullptr, nullptr};
    Count("10 timers scheduled and fired", [&] {
        for (int i = 0; i < 10; ++i) {
            ScheduleEmsUtilTimer(id, functions, nullptr);
        }
        clock += std::chrono::seconds(2);
        manager.DeliverExpired();
    });
    manager.Stop();
}

void CountLockErrors()
{
    g_bEnableMitLockErrMgr = true;
    Count("lock error text inserted and erased", [] {
        QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, "waits for the registry's lock");
        QNMitLockErrMgr::Instance()->EraseThrIDandInfo(1);
    });
    QNMitLockErrMgr::Destroy();
}

} // namespace

int main()
{
    emsstandin::SetDebugStream(nullptr); // lines are made, and dropped
    CountCommands();
    CountDiagnostics();
    CountThreadMonitor();
    CountTransactionLogs();
    CountTimers();
    CountLockErrors();
    return 0;
}
