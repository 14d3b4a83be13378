#include "tests/library/lifetime/every_service.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

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
#include "tests/library/lifetime/require.h"
#include "tests/support/expose.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;
using namespace std::chrono_literals;

EXPOSE(LockErrorsOf, QNMitLockErrMgr, m_ThrIDInfoMap, std::map<int, std::string>)

namespace {

constinit int g_nHandled = 0; // commands
constinit int g_nBuffers = 0; // that exist
constinit int g_nTimer = 0;   // 1 for its copy, 10 for its expiry, 100 for its destruction
constinit int g_nLines = 0;   // debug lines

struct Buffer : QNTransactionBuffer
{
    Buffer() { ++g_nBuffers; }
    ~Buffer() override { --g_nBuffers; }
};

void UseCommands()
{
    EmsGeneralCmd cmd;
    cmd.name = "count";
    RegEmsUtilCmd(cmd.name, [](EmsGeneralCmd*, EmsGeneralCmd*) { return ++g_nHandled; });
    cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
    REQUIRE(EmsGeneralCmd(cmd).ToString() ==
            ":count={objs={obj={nvtps={nvtp={name=,value=,rtype=String}}}},nvtps={}};");
    addGeneralCmd(cmd);
    runGeneralCmd();
    runGeneralCmd(cmd);
    REQUIRE(std::exchange(g_nHandled, 0) == 2);
}

void UseDiagnostics(const Installation& installation)
{
    REQUIRE(GetEmsUtilAgentDebugInterface() == GetDefaultDebugInterface());
    EmsUtilReport("%s", "reported");
    EmsUtilTraced("%s", " traced");
    REQUIRE(installation.Report().ends_with("reported traced"));
    {
        const AgentTimeGuard guard("%s", "guarded");
    }
    REQUIRE(std::exchange(g_nLines, 0) == 2);
}

void UseMonitor()
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "Report", "yes");
    AddEmsThreadInfo(values, "number", 7);
    {
        const RegEmsThreadInfo inside(&values);
        REQUIRE(IsEmsThreadTimeout(-3600) && IsEmsThreadReport(pthread_self()));
        StatEmsThreadInfo();
        REQUIRE(std::exchange(g_nLines, 0) == 1);
    }
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    REQUIRE(records.size() == 1 && records.front().m_nStatus == 0);
    REQUIRE(records.front().m_InfoMap == values && ReadMsgHandleModeSwitcher() == 0);
}

void UseTimer()
{
    static constinit int calls = 0; // of the clock, which moves a millisecond per call
    emsstandin::TaskManager* const manager =
        emsstandin::AddTaskManager(7, {1us, [] { return ++calls * 1ms; }});
    REQUIRE(manager != nullptr);
    manager->Start();
    EmsUtilTimerInterface timer = {[](void* given) { *static_cast<int*>(given) += 10; },
                                   [](void* given) { return ++*static_cast<int*>(given), given; },
                                   [](void* given) { *static_cast<int*>(given) += 100; }};
    ScheduleEmsUtilTimer(7, timer, &g_nTimer);
    REQUIRE(manager->DeliverExpired() == 1 && g_nTimer == 111);
}

void UseLogs()
{
    unsigned long handle = LeaveLog();
    QNTransactionBuffer* const removed = QNTransactionLog(handle).RemoveBuffer("left", 1);
    QNTransactionLog(handle).AddBuffer("left", 1, removed);
    FinishLog(handle);
    handle = LeaveLog();
    QNTransactionLog::ClearAllLog();
    REQUIRE(std::exchange(g_nLines, 0) == 2 && !QNTransactionLog(handle).IsValid());
    REQUIRE(g_nBuffers == 0);
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

} // namespace

void UseEveryService()
{
    const Installation installation;
    emsstandin::SetDebugCallback([](auto...) { ++g_nLines; });
    UseCommands();
    UseDiagnostics(installation);
    UseMonitor();
    UseTimer();
    UseLogs();
    UseLockErrors();
    emsstandin::SetDebugStream(stderr);
}

Installation::Installation() : m_Root("lifetime." + std::to_string(getpid()) + "/")
{
    std::filesystem::create_directories(m_Root + "var/dump");
    std::ofstream(m_Root + "ems.cfg") << "MsgHandleMode=0";
    emsstandin::SetInstallPath(m_Root + "var/bin");
    emsstandin::SetConfigFile(m_Root + "ems.cfg");
    g_bEnableMitLockErrMgr = true;
}

Installation::~Installation()
{
    std::filesystem::remove_all(m_Root);
}

std::string Installation::Report() const
{
    std::ifstream file(m_Root + "var/dump/" + g_ProcName + ".rpt");
    return {std::istreambuf_iterator<char>(file), {}};
}

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
