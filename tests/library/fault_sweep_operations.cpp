#include "tests/library/fault_sweep.h"

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
#include "emsutil/version.h"
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
const std::string LONG(30, 'l');           // too long for a string's own room
const EmsThreadInfoMap VALUES = {{LONG, {LONG, 0}}, {"Report", {"", 0}}};

std::string g_Noted;
EmsGeneralCmd g_Cmd;
EmsThreadInfoMap g_Values;
std::optional<RegEmsThreadInfo> g_Work;
std::optional<QNTransactionLog> g_Log;
std::optional<QNTransactionLog> g_Second;

/// For code of a host that may throw.
void NoteOrThrow(const char* called)
{
    faults::Collaborate();
    Note(called);
}

/// Notes a result, except that of an operation that has failed.
template <class Number>
void Result(Number result)
{
    if (result != 0) {
        Note("= " + to_string(result) + " ");
    }
}

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { Note("~Buffer "); }
} g_Buffer; // no log deletes it

int NoteName(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    NoteOrThrow(cmd->nvtps.nvtps.front().name.c_str());
    return 0;
}

void Register()
{
    RegEmsUtilCmd registration(g_Cmd.name, NoteName);
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
    g_Work.emplace(&g_Values);
    faults::g_llClock = START + 10'000'000;
}

void CountRecords(long seconds)
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, seconds);
    Result(infos.size());
}

emsstandin::TaskManager& Timers()
{
    static emsstandin::TaskManager& manager = *emsstandin::AddTaskManager(
        7, {100ms, [] { return std::chrono::microseconds(faults::g_llClock); }});
    return manager;
}

EmsUtilTimerInterface g_Timer = {[](void*) { NoteOrThrow("timeout "); },
                                 [](void* param) {
                                     NoteOrThrow("copy ");
                                     return param;
                                 },
                                 [](void*) { Note("free "); }};

void CreateLog()
{
    g_Log.emplace();
    g_Log->AddBuffer("a", 1, new Buffer);
}

void CreateReferencedLog()
{
    CreateLog();
    g_Log->AddRef(2);
}

QNMitLockErrMgr& Locks()
{
    return *QNMitLockErrMgr::Instance();
}

/// All operations of a record.
template <class Record>
Operation OnRecord(const std::string& name, const Record& source)
{
    const auto run = [source, expected = Record(source).ToString() + Record().ToString()] {
        Record assigned;
        assigned = Record(source);
        std::string text = assigned.ToString();
        Result((text += Record::FromString(text).ToString()) == expected);
    };
    return {.name = name, .run = run, .does = "= 1 "};
}

} // namespace

std::vector<Operation> AllOperations()
{
    using namespace faults;

    TheDebugInterface(); // created here, not under a fault
    ThePlatform().readMode = [](int& value) { return value = 0, 1; };
    g_llClock = START;
    g_bEnableMitLockErrMgr = true;

    EmsNameAndValueStringTypePair pair;
    pair.name = "1 ";
    pair.value = LONG;
    EmsGeneralObj obj;
    obj.nvtps.nvtps.assign(4, pair);
    g_Cmd.name = LONG;
    g_Cmd.objs.objs.assign(2, obj);
    g_Cmd.nvtps = obj.nvtps;
    const std::string noTask = "new EmsUtilAgentTimerTask task failed bytes " +
                               to_string(sizeof(EmsUtilAgentTimerTask)) + "; ";

    const std::string stamp(TIME_LINE, std::size(TIME_LINE) - 2); // without its newline
    const std::string half = stamp.substr(0, stamp.size() / 2);

    // clang-format off
    return {
        OnRecord("EmsNameAndValueStringTypePair", pair), OnRecord("EmsNVTPList", obj.nvtps),
        OnRecord("EmsGeneralObj", obj), OnRecord("EmsGeneralObjList", g_Cmd.objs),
        OnRecord("EmsGeneralCmd", g_Cmd),

        {.name = "RegEmsUtilCmd::RegEmsUtilCmd(string&, int (*)(EmsGeneralCmd*, EmsGeneralCmd*))",
         .run = Register, .does = "registered "},
        {.name = "addGeneralCmd(EmsGeneralCmd&)", .prepare = Register,
         .run = [] { addGeneralCmd(g_Cmd); }, .does = "registered queued 1 ",
         .otherwise = {{ALLOCATION, "registered "}}}, // ACE hides that its block has no memory
        {.name = "runGeneralCmd(EmsGeneralCmd&)", .prepare = Register,
         .run = [] { runGeneralCmd(g_Cmd); }, .does = "1 registered "},
        {.name = "runGeneralCmd()", .prepare = AddTwo,
         .run = [] { runGeneralCmd(); }, .does = "1 2 registered ",
         .tolerates = {MUTEX_LOCK}, // the queue's, after which the drain tries again
         .otherwise = {{MUTEX_LOCK, "1 registered "}, {MUTEX_LOCK, "2 registered "}, // the handlers'
                       {COLLABORATOR, "thrown registered queued 2 "},
                       {COLLABORATOR, "1 thrown registered "}},
         .repeatsFailedMutexes = true},

        {.name = "GetEmsUtilAgentDebugInterface()",
         .run = [] { Result(GetEmsUtilAgentDebugInterface() == TheDebugInterface()); },
         .does = "= 1 ", .tolerates = {READ_LOCK}},
        {.name = "string_format(char const*, ...)",
         .run = [] { Result(string_format("%600s", "x").size()); }, .does = "= 600 "},
        {.name = "EmsUtilTraced(char const*, ...)",
         .run = [] { EmsUtilTraced("%s", "text"); }, .does = "reported text ",
         .otherwise = {{WRITE, "reported te "}}},
        {.name = "EmsUtilReport(char const*, ...)",
         .run = [] { EmsUtilReport("%s", "text"); }, .does = "reported " + stamp + "text ",
         .otherwise = {{TIME_TEXT, "reported text "}, {WRITE, "reported text "},
                       {WRITE, "reported " + stamp + " "}, {WRITE, "reported " + half + "text "},
                       {WRITE, "reported " + half + "te "}, {WRITE, "reported " + stamp + "te "}}},
        {.name = "AgentTimeGuard::AgentTimeGuard(char const*, ...), AgentTimeGuard::~AgentTimeGuard()",
         .run = [] { const AgentTimeGuard guard("%s", "description"); },
         .does = "description; used time(ms): 0; ", .tolerates = {CLOCK, READ_LOCK},
         .otherwise = {{CLOCK, "description; used time(ms): 1000000; "}, // since 1970
                       {COLLABORATOR, "description; "}, {COLLABORATOR, ""}}},

        {.name = "RegEmsThreadInfo::RegEmsThreadInfo(map*)",
         .run = Enter, .does = "inside 1 report ", .tolerates = {CLOCK},
         .otherwise = {{WRITE_LOCK, "inside 1 "}}},
        {.name = "RegEmsThreadInfo::RegEmsThreadInfo(map*) again, after it left",
         .prepare = [] { Enter(); g_Values = {{"later", {LONG, 0}}}; },
         .run = [] { g_Work.emplace(&g_Values); }, .does = "inside 3 report ", .tolerates = {CLOCK},
         .otherwise = {{ALLOCATION, "bad_alloc outside 2 report "},
                       {WRITE_LOCK, "outside 2 report "}, {WRITE_LOCK, "inside 2 report "}}},
        {.name = "RegEmsThreadInfo::~RegEmsThreadInfo()", .prepare = Enter,
         .run = [] { g_Work.reset(); }, .does = "outside 2 report ", .tolerates = {CLOCK}},
        {.name = "AddEmsThreadInfo(map&, char const*, char const*)",
         .run = [] { AddEmsThreadInfo(g_Values, LONG.c_str(), LONG.c_str()); }},
        {.name = "AddEmsThreadInfo(map&, char const*, int)",
         .run = [] { AddEmsThreadInfo(g_Values, LONG.c_str(), 7); }},
        {.name = "IsEmsThreadTimeout(long)", .prepare = Enter,
         .run = [] { Result(IsEmsThreadTimeout(10)); }, .does = "= 1 inside 1 report "},
        {.name = "IsEmsThreadReport(unsigned long)", .prepare = Enter,
         .run = [] { Result(IsEmsThreadReport(pthread_self())); }, .does = "= 1 inside 1 report "},
        {.name = "GetEmsThreadInfo(list&, long)", .prepare = Enter,
         .run = [] { CountRecords(0); }, .does = "= 1 inside 1 report "},
        {.name = "GetEmsThreadInfo(list&, long) without records", .run = [] { CountRecords(0); }},
        {.name = "GetEmsThreadInfo(list&, long) of overdue threads", .prepare = Enter,
         .run = [] { CountRecords(10); }, .does = "= 1 inside 1 report "},
        {.name = "StatEmsThreadInfo()", .prepare = Enter, .run = StatEmsThreadInfo,
         .does = "Ems Thread Information; inside 1 report ",
         .tolerates = {READ_LOCK}}, // of the debug interface
        {.name = "EmsUtilVersion()",
         .run = [] { Result(EmsUtilVersion() == std::string(PROJECT_VERSION)); }, .does = "= 1 "},
        {.name = "ReadMsgHandleModeSwitcher()", .run = [] { Result(ReadMsgHandleModeSwitcher()); },
         .otherwise = {{MUTEX_LOCK, "= 1 "}}},

        {.name = "ScheduleEmsUtilTimer(unsigned char, EmsUtilTimerInterface&, void*)",
         .prepare = [] { Timers().Start(); },
         .run = [] { ScheduleEmsUtilTimer(7, g_Timer, &g_Cmd); }, .does = "copy timeout free ",
         .otherwise = {{ALLOCATION, noTask}, {ALLOCATION, "copy free "},
                       {MUTEX_LOCK, "copy free "},                // of the timer
                       {MUTEX_LOCK, "copy free system_error "},   // of the manager
                       {MUTEX_LOCK, "copy system_error free "}}},

        {.name = "QNTransactionLog::QNTransactionLog(), QNTransactionLog::IsValid() const",
         .run = [] { Result(g_Log.emplace().IsValid()); }, .does = "= 1 log 1 0 0 "},
        {.name = "QNTransactionLog::QNTransactionLog(unsigned long)", .prepare = CreateLog,
         .run = [] { Result(g_Second.emplace(1).IsValid()); }, .does = "= 1 log 2 0 1 "},
        {.name = "QNTransactionLog::~QNTransactionLog(), QNTransactionBuffer::~QNTransactionBuffer()",
         .prepare = CreateLog, .run = [] { g_Log.reset(); }, .does = "~Buffer ",
         .tolerates = {WRITE_LOCK}}, // of the buffers
        {.name = "QNTransactionLog::ClearAllLog()",
         .prepare = [] { CreateReferencedLog(); g_Log.reset(); },
         .run = QNTransactionLog::ClearAllLog,
         .does = "~Buffer file:translog:353; file:translog:354; ",
         .tolerates = {WRITE_LOCK}, // of the buffers
         .otherwise = {{COLLABORATOR, "~Buffer file:translog:354; "},
                       {COLLABORATOR, "~Buffer file:translog:353; "}, {COLLABORATOR, "~Buffer "}}},
        {.name = "QNTransactionLog::GetHandle()", .prepare = [] { g_Log.emplace(0ul); },
         .run = [] { Result(g_Log->GetHandle()); }, .does = "file:translog:262; "},
        {.name = "QNTransactionLog::AddRef(int)", .prepare = CreateLog,
         .run = [] { Result(g_Log->AddRef(2)); }, .does = "= 2 log 3 2 1 "},
        {.name = "QNTransactionLog::Release()", .prepare = CreateReferencedLog,
         .run = [] { Result(g_Log->Release()); }, .does = "= 1 log 2 1 1 "},
        {.name = "QNTransactionLog::AddBuffer(string const&, unsigned long, QNTransactionBuffer*)",
         .prepare = CreateLog, .run = [] { g_Log->AddBuffer(LONG, 1, &g_Buffer); },
         .does = "log 1 0 2 "},
        {.name = "QNTransactionLog::AddBuffer of no buffer", // its check line is under the lock
         .prepare = CreateLog, .run = [] { g_Log->AddBuffer(LONG, 1, nullptr); },
         .does = "file:translog:467; log 1 0 1 "},
        {.name = "QNTransactionLog::GetBuffer(string const&, unsigned long)",
         .prepare = CreateLog, .run = [] { Result(g_Log->GetBuffer("a", 1) != nullptr); },
         .does = "= 1 log 1 0 1 "},
        {.name = "QNTransactionLog::RemoveBuffer(string const&, unsigned long)",
         .prepare = [] { CreateLog(); g_Log->AddBuffer("b", 1, &g_Buffer); },
         .run = [] { Result(g_Log->RemoveBuffer("b", 1) != nullptr); }, .does = "= 1 log 1 0 1 "},

        {.name = "QNMitLockErrMgr::Instance(), QNMitLockErrMgr::QNMitLockErrMgr()",
         .run = [] { Result(QNMitLockErrMgr::Instance() != nullptr); }, .does = "= 1 lock errors 0 "},
        {.name = "QNMitLockErrMgr::Destroy(), QNMitLockErrMgr::~QNMitLockErrMgr()",
         .prepare = Locks, .run = QNMitLockErrMgr::Destroy,
         .tolerates = {MUTEX_LOCK}}, // of the records
        {.name = "QNMitLockErrMgr::InsertThrIDandInfo(int, char const*)", .prepare = Locks,
         .run = [] { Locks().InsertThrIDandInfo(7, LONG.c_str()); }, .does = "lock errors 1 "},
        {.name = "QNMitLockErrMgr::EraseThrIDandInfo(int)",
         .prepare = [] { Locks().InsertThrIDandInfo(7, "text"); },
         .run = [] { Locks().EraseThrIDandInfo(7); }, .does = "lock errors 0 "},
    };
    // clang-format on
}

void Note(const std::string& what)
{
    const faults::FailNth none(faults::ALLOCATION, 0);
    g_Noted += what;
}

std::string TakeState()
{
    Timers().Start();
    faults::g_llClock += 1'000'000;
    Timers().DeliverExpired();
    Timers().Stop();
    std::string state = std::exchange(g_Noted, {});
    for (const std::string& line : TakeLines()) {
        state += line.substr(2, line.find_first_of(",\n") - 2) + "; ";
    }
    if (const std::string reported = ReportDirectory::Take(); !reported.empty()) {
        state += "reported " + reported + " ";
    }

    auto& handlers = HandlersOf(*EmsGeneralCmdMgr::Instance());
    state += handlers.empty() ? "" : "registered ";
    Register();
    runGeneralCmd();
    handlers.clear();
    state += g_Noted.empty() ? "" : "queued " + std::exchange(g_Noted, {});

    auto& threads = RecordsOf(*EmsThreadInfoMgr::Instance());
    for (const auto& [id, record] : threads) {
        state += (record.m_nStatus == 1 ? "inside " : "outside ") + to_string(record.m_llRecvs);
        state += IsEmsThreadReport(id) ? " report " : " ";
    }
    g_Work.reset();
    threads.clear();
    ReportersOf(*EmsThreadInfoMgr::Instance()).clear();
    g_Values = {};

    for (const auto& [handle, log] : g_TransLogMap) {
        state += "log " + to_string(log->m_nRefCount) + " " + to_string(log->m_nRefCountEx) + " " +
                 to_string(log->m_TransBufMap.size()) + " ";
    }
    if (g_Log && g_Log->IsValid()) {
        g_Log->RemoveBuffer(LONG, 1);
        g_Log->RemoveBuffer("b", 1);
    }
    g_Log.reset();
    g_Second.reset();
    QNTransactionLog::ClearAllLog();
    g_nNextTransLogHandle = 1;
    TakeLines();
    g_Noted = {};

    if (QNMitLockErrMgr::m_pInstance != nullptr) {
        state += "lock errors " + to_string(RecordsOf(Locks()).size()) + " ";
        QNMitLockErrMgr::Destroy();
    }
    faults::g_llClock = START;
    return state;
}
