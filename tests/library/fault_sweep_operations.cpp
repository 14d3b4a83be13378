#include "tests/library/fault_sweep.h"

#include <cstring>
#include <list>
#include <map>
#include <optional>
#include <set>

#include <emsstandin/task_manager.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "agent/emsutil_thread.h"
#include "agent/emsutil_util_timer.h"
#include "emsutil/diagnostics.h"
#include "emsutil/lock_error_manager.h"
#include "tests/support/expose.h"
#include "tests/support/test_platform.h"
#include "util/translog.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;
using namespace std::chrono_literals;
using std::to_string;

EXPOSE(HandlersOf, EmsGeneralCmdMgr, m_CmdHandlerMap, std::map<std::string, EmsGeneralCmdHandler>)
EXPOSE(RecordsOf, EmsThreadInfoMgr, m_ThreadInfoMap, std::map<unsigned long, EmsThreadInfo>)
EXPOSE(ReportersOf, EmsThreadInfoMgr, m_ReportThreadSet, std::set<unsigned long>)
EXPOSE(RecordsOf, QNMitLockErrMgr, m_ThrIDInfoMap, std::map<int, std::string>)

namespace {

constexpr long long START = 1'000'000'000; // microseconds
const std::string LONG(30, 'l');           // has memory of its own
const EmsThreadInfoMap VALUES = {{LONG, {LONG, 0}}, {"Report", {"", 0}}};

std::string g_Events; // of handlers, timers and buffers
EmsGeneralCmd g_Cmd;
EmsThreadInfoMap g_Values;
std::optional<RegEmsThreadInfo> g_Stretch;
std::optional<QNTransactionLog> g_Log;
std::optional<QNTransactionLog> g_Second;

void Note(const char* event)
{
    faults::Collaborate();
    const faults::Pause unswept;
    g_Events += event;
}

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { g_Events += "deleted "; }
} g_Buffer; // stays the test's

int See(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    Note(cmd->nvtps.nvtps.front().name.c_str());
    return 0;
}

void Register()
{
    RegEmsUtilCmd registration(g_Cmd.name, See);
}

void AddTwo()
{
    Register();
    for (const char* name : {"1 ", "2 "}) {
        g_Cmd.nvtps.nvtps.front().name = name;
        addGeneralCmd(g_Cmd);
    }
}

void Enter()
{
    g_Values = VALUES;
    g_Stretch.emplace(&g_Values);
    faults::g_llClock = START + 10'000'000;
}

template <int Extra>
void MakeLog()
{
    g_Log.emplace();
    g_Log->AddBuffer("a", 1, new Buffer);
    if (Extra > 0) {
        g_Log->AddRef(Extra);
    }
}

QNMitLockErrMgr& Locks()
{
    return *QNMitLockErrMgr::Instance();
}

std::string CountRecords(long seconds)
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, seconds);
    return to_string(infos.size());
}

emsstandin::TaskManager& Timers()
{
    static emsstandin::TaskManager& manager = *emsstandin::AddTaskManager(
        7, {100ms, [] { return std::chrono::microseconds(faults::g_llClock); }});
    return manager;
}

EmsUtilTimerInterface g_Timer = {[](void*) { Note("timeout "); },
                                 [](void* param) {
                                     Note("copy ");
                                     return param;
                                 },
                                 [](void*) { g_Events += "free "; }};

void None() {}

/// All that a record can do, with failures of memory at every step.
template <class Record>
Operation OnRecord(const char* name, const Record& source)
{
    std::string usual = Record(source).ToString() + Record().ToString() + "|";
    const auto run = [source] {
        Record assigned;
        assigned = Record(source);
        std::string text = assigned.ToString();
        return text += Record::FromString(text).ToString();
    };
    return {name, None, run, usual, "|"};
}

} // namespace

std::vector<Operation> AllOperations()
{
    using namespace faults;

    EmsNameAndValueStringTypePair pair;
    pair.name = "1 ";
    pair.value = LONG;
    EmsGeneralObj obj;
    obj.nvtps.nvtps.assign(4, pair);
    EmsGeneralCmd& cmd = g_Cmd;
    cmd.name = LONG;
    cmd.objs.objs.assign(2, obj);
    cmd.nvtps = obj.nvtps;

    const std::string noTask =
        "new EmsUtilAgentTimerTask task failed bytes " + to_string(sizeof(EmsUtilAgentTimerTask));
    const auto noResult = [](auto call) {
        return [call] {
            call();
            return std::string();
        };
    };

    // clang-format off
    std::vector<Operation> operations = {
        OnRecord("pair", pair), OnRecord("pair list", obj.nvtps), OnRecord("object", obj),
        OnRecord("object list", cmd.objs), OnRecord("command", cmd),

        {"register", None, noResult(Register), "|registered ", "|"},
        // The block's own memory fails quietly.
        {"add", Register, noResult([] { addGeneralCmd(g_Cmd); }), "|registered 1 ", "|registered ",
         {{ALLOCATION, "|registered "}}},
        {"add first", None, noResult([] { addGeneralCmd(g_Cmd); }), "|1 ", "|",
         {{ALLOCATION, "|"}}},
        {"run", Register, noResult([] { runGeneralCmd(g_Cmd); }), "|1 registered ", "|registered ",
         {}, "|"},
        // A queue whose lock fails is asked again, but a look-up that fails drops its command.
        {"drain", AddTwo, noResult([] { runGeneralCmd(); }), "|1 2 registered ", "|registered ",
         {{MUTEX_LOCK, "|1 2 registered "}, {MUTEX_LOCK, "|1 registered "},
          {MUTEX_LOCK, "|2 registered "}, {COLLABORATOR, "thrown|registered 2 "},
          {COLLABORATOR, "thrown|1 registered "}}, {}, false},

        {"debug interface", None,
         [] { return to_string(GetEmsUtilAgentDebugInterface() == TheDebugInterface()); },
         "1|", "0|", {{READ_LOCK, "1|"}}},
        {"format", None, [] { return string_format("%600s", "x"); },
         std::string(599, ' ') + "x|", "|"},
        {"trace", None, noResult([] { EmsUtilTraced("%s", "text"); }), "|text",
         "|", {{WRITE, "|te"}}},
        {"report", None, noResult([] { EmsUtilReport("%s", "text"); }), "|stamptext",
         "|",
         {{WRITE, "|text"}, {WRITE, "|stamp"},
          {WRITE, "|sttext"}, {WRITE, "|stte"},
          {WRITE, "|stampte"}, {TIME_TEXT, "|text"}}},
        {"time guard", None, noResult([] { AgentTimeGuard("%s", LONG.c_str()); }),
         "|" + LONG + " used time(ms): 0 ", "|",
         {{CLOCK, "|" + LONG + " used time(ms): 1000000 "}, {CLOCK, "|" + LONG + " used time(ms): 0 "},
          {READ_LOCK, "|" + LONG + " used time(ms): 0 "},
          {COLLABORATOR, "|"}, {COLLABORATOR, "|" + LONG + " "}}},
        {"time guard, malformed", None, noResult([] { AgentTimeGuard("%ls", L"\u20ac"); }),
         "|file:emsutil_util:103 used time(ms): 0 ", "|",
         {{CLOCK, "|file:emsutil_util:103 used time(ms): 1000000 "},
          {CLOCK, "|file:emsutil_util:103 used time(ms): 0 "},
          {READ_LOCK, "|file:emsutil_util:103 used time(ms): 0 "},
          {COLLABORATOR, "|file:emsutil_util:103 "}}},

        {"enter", None, noResult(Enter), "|inside1 report ", "|",
         {{WRITE_LOCK, "|inside1 "}, {CLOCK, "|inside1 report "}}},
        {"enter again", [] {
             Enter();
             g_Values = {{"later", {LONG, 0}}};
         }, noResult([] { g_Stretch.emplace(&g_Values); }), // which leaves first
         "|inside3 report ", "|outside2 report ",
         {{WRITE_LOCK, "|inside1 report "}, {WRITE_LOCK, "|inside2 report "},
          {CLOCK, "|inside3 report "}}},
        {"leave", Enter, noResult([] { g_Stretch.reset(); }), "|outside2 report ",
         "|inside1 report ", {{CLOCK, "|outside2 report "}}},
        {"name a text", None, noResult([] { AddEmsThreadInfo(g_Values, LONG.c_str(), LONG.c_str()); }),
         "|", "|"},
        {"name a number", None, noResult([] { AddEmsThreadInfo(g_Values, LONG.c_str(), 7); }),
         "|", "|"},
        {"time-out", Enter, [] { return to_string(IsEmsThreadTimeout(10)); },
         "1|inside1 report ", "0|inside1 report ", {}, "0|"},
        {"report thread", Enter, [] { return to_string(IsEmsThreadReport(pthread_self())); },
         "1|inside1 report ", "0|inside1 report ", {}, "0|"},
        {"statistics", Enter, noResult(StatEmsThreadInfo),
         "|Ems Thread Information inside1 report ", "|inside1 report ",
         {{READ_LOCK, "|Ems Thread Information inside1 report "}},
         "|Ems Thread Information "},
        {"records", Enter, [] { return CountRecords(0); }, "1|inside1 report ",
         "0|inside1 report ", {}, "0|"},
        {"overdue records", Enter, [] { return CountRecords(10); }, "1|inside1 report ",
         "0|inside1 report ", {}, "0|"},
        {"mode", None, [] { return to_string(ReadMsgHandleModeSwitcher()); }, "0|", "1|"},

        {"timer", [] { Timers().Start(); }, noResult([] { ScheduleEmsUtilTimer(7, g_Timer, &g_Cmd); }),
         "|copy timeout free ", "|",
         {{ALLOCATION, "|" + noTask + " "}, {ALLOCATION, "|copy timeout free "},
          {ALLOCATION, "|copy free "}, {MUTEX_LOCK, "system_error|copy free "}}},
        {"timer, no manager", [] { Timers(); },
         noResult([] { ScheduleEmsUtilTimer(9, g_Timer, &g_Cmd); }), "|Find TaskMgrID 9 failed ", "|",
         {{READ_LOCK, "|Find TaskMgrID 9 failed "}}},

        {"log", None, [] { return to_string(g_Log.emplace().IsValid()); }, "1|log100 ", "0|"},
        {"attach", MakeLog<0>, [] { return to_string(g_Second.emplace(1).IsValid()); },
         "1|log201 ", "0|log101 "},
        // Without the lock of its buffers they go all the same.
        {"detach", MakeLog<0>, noResult([] { g_Log.reset(); }), "|deleted ", "|log101 ",
         {{WRITE_LOCK, "|deleted "}}},
        {"clear", [] {
             MakeLog<1>();
             g_Log.reset();
         }, noResult(QNTransactionLog::ClearAllLog),
         "|deleted file:translog:353 file:translog:354 ", "|log111 ",
         {{WRITE_LOCK, "|deleted file:translog:353 file:translog:354 "},
          {COLLABORATOR, "|deleted file:translog:354 "}, {COLLABORATOR, "|deleted file:translog:353 "},
          {COLLABORATOR, "|deleted "}}},
        {"handle", [] { g_Log.emplace(0ul); }, [] { return to_string(g_Log->GetHandle()); },
         "0|file:translog:262 ", "0|"},
        {"add references", MakeLog<0>, [] { return to_string(g_Log->AddRef(2)); }, "2|log321 ", "0|log101 "},
        {"add no reference", MakeLog<0>, [] { return to_string(g_Log->AddRef(0)); },
         "0|file:translog:419 log101 ", "0|log101 ", {{MUTEX_LOCK, "0|file:translog:419 log101 "}}},
        {"release", MakeLog<2>, [] { return to_string(g_Log->Release()); }, "1|log211 ", "0|log321 "},
        {"release none", MakeLog<0>, [] { return to_string(g_Log->Release()); },
         "0|file:translog:439 log101 ", "0|log101 ", {{MUTEX_LOCK, "0|file:translog:439 log101 "}}},
        {"add buffer", MakeLog<0>, noResult([] { g_Log->AddBuffer(LONG, 1, &g_Buffer); }),
         "|log102 ", "|log101 "},
        {"add no buffer", MakeLog<0>, noResult([] { g_Log->AddBuffer(LONG, 1, nullptr); }),
         "|file:translog:467 log101 ", "|log101 "},
        {"get buffer", MakeLog<0>, [] { return to_string(g_Log->GetBuffer("a", 1) != nullptr); },
         "1|log101 ", "0|log101 "},
        {"remove buffer", [] {
             MakeLog<0>();
             g_Log->AddBuffer("b", 1, &g_Buffer);
         }, [] { return to_string(g_Log->RemoveBuffer("b", 1) != nullptr); }, "1|log101 ", "0|log102 "},

        {"lock errors", None, [] { return to_string(QNMitLockErrMgr::Instance() != nullptr); },
         "1|locks0 ", "0|"},
        {"no lock errors", Locks, noResult(QNMitLockErrMgr::Destroy), "|", "|locks0 ",
         {{MUTEX_LOCK, "|"}}},
        {"insert lock error", Locks, noResult([] { Locks().InsertThrIDandInfo(7, LONG.c_str()); }),
         "|locks1 ", "|locks0 "},
        {"erase lock error", [] { Locks().InsertThrIDandInfo(7, "text"); },
         noResult([] { Locks().EraseThrIDandInfo(7); }), "|locks0 ", "|locks1 "},
    };
    // clang-format on
    for (const Operation& prepared : std::vector(operations)) {
        if (!prepared.m_Unprepared.empty()) {
            Operation& operation = operations.emplace_back(prepared);
            operation.m_Prepare = None;
            operation.m_Usual = prepared.m_Unprepared;
            operation.m_Refused.erase(operation.m_Refused.find('|') + 1);
            operation.m_Others = {{faults::READ_LOCK, operation.m_Usual}}; // of the accessor
        }
    }
    return operations;
}

void SetUpServices()
{
    TheDebugInterface(); // made here, not under a fault
    ThePlatform().readMode = [](int& value) { return value = 0, 1; };
    faults::g_llClock = START;
    faults::g_pCtime = [](char* buffer) { return std::strcpy(buffer, "stamp\n"); };
    g_bEnableMitLockErrMgr = true;
}

std::string TakeState()
{
    Timers().Start();
    faults::g_llClock += 1'000'000;
    Timers().DeliverExpired();
    Timers().Stop();
    if (!HandlersOf(*EmsGeneralCmdMgr::Instance()).empty()) {
        g_Events += "registered ";
    }
    Register();
    runGeneralCmd();
    HandlersOf(*EmsGeneralCmdMgr::Instance()).clear();
    for (const std::string& line : TakeLines()) {
        g_Events += line.substr(2, line.find_first_of(",\n") - 2) + " ";
    }
    g_Events += ReportFolder::Take();
    for (const auto& [id, record] : RecordsOf(*EmsThreadInfoMgr::Instance())) {
        g_Events += (record.m_nStatus == 1 ? "inside" : "outside") + to_string(record.m_llRecvs) +
                    (IsEmsThreadReport(id) ? " report " : " ");
    }
    g_Stretch.reset();
    RecordsOf(*EmsThreadInfoMgr::Instance()).clear();
    ReportersOf(*EmsThreadInfoMgr::Instance()).clear();
    if (QNMitLockErrMgr::m_pInstance != nullptr) {
        g_Events += "locks" + to_string(static_cast<long>(RecordsOf(Locks()).size())) + " ";
        QNMitLockErrMgr::Destroy();
    }
    for (const auto& [handle, log] : g_TransLogMap) {
        g_Events += "log" + to_string(log->m_nRefCount) + to_string(log->m_nRefCountEx) +
                    to_string(log->m_TransBufMap.size()) + " ";
    }
    std::string state = std::exchange(g_Events, {});
    if (g_Log && g_Log->IsValid()) {
        g_Log->RemoveBuffer(LONG, 1);
        g_Log->RemoveBuffer("b", 1);
    }
    g_Log.reset();
    g_Second.reset();
    QNTransactionLog::ClearAllLog();
    g_nNextTransLogHandle = 1;
    TakeLines();
    g_Events = {};
    g_Values = {};
    faults::g_llClock = START;
    return state;
}
