#include "tests/library/fault_sweep.h"

#include <cstring>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string_view>

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

std::string g_Called; // see State
EmsGeneralCmd g_Cmd;
EmsThreadInfoMap g_Values;
std::optional<RegEmsThreadInfo> g_Work;
std::optional<QNTransactionLog> g_Log;
std::optional<QNTransactionLog> g_Second;

void Note(const char* called)
{
    faults::Collaborate();
    const faults::Pause unswept;
    g_Called += called;
}

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { g_Called += "~Buffer "; }
} g_Buffer; // no log deletes it

int NoteName(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    Note(cmd->nvtps.nvtps.front().name.c_str());
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

std::size_t CountRecords(long seconds)
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, seconds);
    return infos.size();
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
                                 [](void*) { g_Called += "free "; }};

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
        return (text += Record::FromString(text).ToString()) == expected;
    };
    return {.covers = {name + "::" + name + "()", name + "::" + name + "(" + name + " const&)",
                       name + "::operator=(" + name + " const&)", name + "::ToString()",
                       name + "::FromString(string&)"},
            .run = run,
            .returns = 1};
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
    g_Cmd.name = LONG;
    g_Cmd.objs.objs.assign(2, obj);
    g_Cmd.nvtps = obj.nvtps;

    const State registered = {.registered = true};
    const State inside = {.threads = {{.inside = true, .events = 1, .report = true}}};
    const State outside = {.threads = {{.inside = false, .events = 2, .report = true}}};
    const std::string malformed = "file:emsutil_util:103";
    const State::Log log = {.references = 1, .extra = 0, .buffers = 1}; // CreateLog()'s
    const std::string noTask =
        "new EmsUtilAgentTimerTask task failed bytes " + to_string(sizeof(EmsUtilAgentTimerTask));

    // clang-format off
    std::vector<Operation> operations = {
        OnRecord("EmsNameAndValueStringTypePair", pair), OnRecord("EmsNVTPList", obj.nvtps),
        OnRecord("EmsGeneralObj", obj), OnRecord("EmsGeneralObjList", g_Cmd.objs),
        OnRecord("EmsGeneralCmd", g_Cmd),

        {.covers = {"RegEmsUtilCmd::RegEmsUtilCmd(string&, int (*)(EmsGeneralCmd*, EmsGeneralCmd*))"},
         .run = Register, .leaves = registered},
        {.covers = {"addGeneralCmd(EmsGeneralCmd&)"}, .prepare = Register,
         .run = [] { addGeneralCmd(g_Cmd); }, .leaves = State{.queued = "1 ", .registered = true},
         .otherwise = {{ALLOCATION, registered}}}, // ACE hides that its block has no memory
        {.covers = {"addGeneralCmd(EmsGeneralCmd&)"}, .when = "before any registration",
         .run = [] { addGeneralCmd(g_Cmd); }, .leaves = State{.queued = "1 "},
         .otherwise = {{ALLOCATION, {}}}},
        {.covers = {"runGeneralCmd(EmsGeneralCmd&)"}, .prepare = Register,
         .run = [] { runGeneralCmd(g_Cmd); }, .leaves = State{.called = "1 ", .registered = true},
         .refusedUnprepared = true},
        {.covers = {"runGeneralCmd()"}, .prepare = AddTwo,
         .run = [] { runGeneralCmd(); }, .leaves = State{.called = "1 2 ", .registered = true},
         .tolerates = {MUTEX_LOCK}, // the queue's, after which the drain tries again
         .otherwise = {{MUTEX_LOCK, {.called = "1 ", .registered = true}}, // the handlers'
                       {MUTEX_LOCK, {.called = "2 ", .registered = true}},
                       {COLLABORATOR, {.queued = "2 ", .registered = true}, "thrown"},
                       {COLLABORATOR, {.called = "1 ", .registered = true}, "thrown"}},
         .repeatsFailedMutexes = true},

        {.covers = {"GetEmsUtilAgentDebugInterface()"},
         .run = [] { return GetEmsUtilAgentDebugInterface() == TheDebugInterface(); },
         .returns = 1, .tolerates = {READ_LOCK}},
        {.covers = {"string_format(char const*, ...)"},
         .run = [] { return string_format("%600s", "x").size(); }, .returns = 600},
        {.covers = {"EmsUtilTraced(char const*, ...)"},
         .run = [] { EmsUtilTraced("%s", "text"); }, .leaves = State{.reported = "text"},
         .otherwise = {{WRITE, {.reported = "te"}}}},
        {.covers = {"EmsUtilReport(char const*, ...)"},
         .run = [] { EmsUtilReport("%s", "text"); }, .leaves = State{.reported = "stamptext"},
         .otherwise = {{TIME_TEXT, {.reported = "text"}}, {WRITE, {.reported = "text"}},
                       {WRITE, {.reported = "stamp"}}, {WRITE, {.reported = "sttext"}},
                       {WRITE, {.reported = "stte"}}, {WRITE, {.reported = "stampte"}}}},
        {.covers = {"AgentTimeGuard::AgentTimeGuard(char const*, ...)",
                    "AgentTimeGuard::~AgentTimeGuard()"},
         .run = [] { const AgentTimeGuard guard("%s", LONG.c_str()); },
         .leaves = State{.lines = {LONG, "used time(ms): 0"}}, .tolerates = {CLOCK, READ_LOCK},
         .otherwise = {{CLOCK, {.lines = {LONG, "used time(ms): 1000000"}}}, // since 1970
                       {COLLABORATOR, {.lines = {LONG}}}, {COLLABORATOR, {}}}},
        {.covers = {"AgentTimeGuard::AgentTimeGuard(char const*, ...)"}, .when = "malformed",
         .run = [] { const AgentTimeGuard guard("%ls", L"\u20ac"); },
         .leaves = State{.lines = {malformed, "used time(ms): 0"}}, .tolerates = {CLOCK, READ_LOCK},
         .otherwise = {{CLOCK, {.lines = {malformed, "used time(ms): 1000000"}}},
                       {COLLABORATOR, {.lines = {malformed}}}}},

        {.covers = {"RegEmsThreadInfo::RegEmsThreadInfo(map*)"},
         .run = Enter, .leaves = inside, .tolerates = {CLOCK},
         .otherwise = {{WRITE_LOCK, {.threads = {{.inside = true, .events = 1, .report = false}}}}}},
        {.covers = {"RegEmsThreadInfo::RegEmsThreadInfo(map*)"}, .when = "again, after it left",
         .prepare = [] { Enter(); g_Values = {{"later", {LONG, 0}}}; },
         .run = [] { g_Work.emplace(&g_Values); },
         .leaves = State{.threads = {{.inside = true, .events = 3, .report = true}}},
         .tolerates = {CLOCK},
         .otherwise = {{ALLOCATION, outside, "bad_alloc"}, {WRITE_LOCK, outside}, // the entry fails
                       {WRITE_LOCK, {.threads = {{.inside = true, .events = 2, .report = true}}}}}},
        {.covers = {"RegEmsThreadInfo::~RegEmsThreadInfo()"}, .prepare = Enter,
         .run = [] { g_Work.reset(); }, .leaves = outside, .tolerates = {CLOCK}},
        {.covers = {"AddEmsThreadInfo(map&, char const*, char const*)"},
         .run = [] { AddEmsThreadInfo(g_Values, LONG.c_str(), LONG.c_str()); }},
        {.covers = {"AddEmsThreadInfo(map&, char const*, int)"},
         .run = [] { AddEmsThreadInfo(g_Values, LONG.c_str(), 7); }},
        {.covers = {"IsEmsThreadTimeout(long)"}, .prepare = Enter,
         .run = [] { return IsEmsThreadTimeout(10); }, .returns = 1, .refusedUnprepared = true},
        {.covers = {"IsEmsThreadReport(unsigned long)"}, .prepare = Enter,
         .run = [] { return IsEmsThreadReport(pthread_self()); }, .returns = 1,
         .refusedUnprepared = true},
        {.covers = {"GetEmsThreadInfo(list&, long)"}, .prepare = Enter,
         .run = [] { return CountRecords(0); }, .returns = 1, .refusedUnprepared = true},
        {.covers = {"GetEmsThreadInfo(list&, long)"}, .when = "of overdue threads", .prepare = Enter,
         .run = [] { return CountRecords(10); }, .returns = 1, .refusedUnprepared = true},
        {.covers = {"StatEmsThreadInfo()"}, .prepare = Enter, .run = StatEmsThreadInfo,
         .leaves = State{.lines = {"Ems Thread Information"}, .threads = inside.threads},
         .tolerates = {READ_LOCK}}, // of the debug interface
        {.covers = {"StatEmsThreadInfo()"}, .when = "without records", .run = StatEmsThreadInfo,
         .leaves = State{.lines = {"Ems Thread Information"}}, .tolerates = {READ_LOCK}},
        {.covers = {"EmsUtilVersion()"},
         .run = [] { return EMSUTIL_VERSION == std::string_view(EmsUtilVersion()); }, .returns = 1},
        {.covers = {"ReadMsgHandleModeSwitcher()"},
         .run = ReadMsgHandleModeSwitcher, .returns = 0, .refused = 1},

        {.covers = {"ScheduleEmsUtilTimer(unsigned char, EmsUtilTimerInterface&, void*)"},
         .prepare = [] { Timers().Start(); },
         .run = [] { ScheduleEmsUtilTimer(7, g_Timer, &g_Cmd); },
         .leaves = State{.called = "copy timeout free "},
         .otherwise = {{ALLOCATION, {.lines = {noTask}}}, {ALLOCATION, {.called = "copy free "}},
                       {MUTEX_LOCK, {.called = "copy free "}}, // of the timer
                       {MUTEX_LOCK, {.called = "copy free "}, "system_error"}}}, // of the manager
        {.covers = {"ScheduleEmsUtilTimer(unsigned char, EmsUtilTimerInterface&, void*)"},
         .when = "without a manager", .prepare = [] { Timers(); },
         .run = [] { ScheduleEmsUtilTimer(9, g_Timer, &g_Cmd); },
         .leaves = State{.lines = {"Find TaskMgrID 9 failed"}}, .tolerates = {READ_LOCK}},

        {.covers = {"QNTransactionLog::QNTransactionLog()", "QNTransactionLog::IsValid() const"},
         .run = [] { return g_Log.emplace().IsValid(); }, .returns = 1,
         .leaves = State{.logs = {{.references = 1, .extra = 0, .buffers = 0}}}},
        {.covers = {"QNTransactionLog::QNTransactionLog(unsigned long)"}, .prepare = CreateLog,
         .run = [] { return g_Second.emplace(1).IsValid(); }, .returns = 1,
         .leaves = State{.logs = {{.references = 2, .extra = 0, .buffers = 1}}}},
        {.covers = {"QNTransactionLog::~QNTransactionLog()",
                    "QNTransactionBuffer::~QNTransactionBuffer()"}, .prepare = CreateLog,
         .run = [] { g_Log.reset(); }, .leaves = State{.called = "~Buffer "},
         .tolerates = {WRITE_LOCK}}, // of the buffers
        {.covers = {"QNTransactionLog::ClearAllLog()"},
         .prepare = [] { CreateReferencedLog(); g_Log.reset(); },
         .run = QNTransactionLog::ClearAllLog,
         .leaves = State{.called = "~Buffer ", .lines = {"file:translog:353", "file:translog:354"}},
         .tolerates = {WRITE_LOCK}, // of the buffers
         .otherwise = {{COLLABORATOR, {.called = "~Buffer ", .lines = {"file:translog:354"}}},
                       {COLLABORATOR, {.called = "~Buffer ", .lines = {"file:translog:353"}}},
                       {COLLABORATOR, {.called = "~Buffer "}}}},
        {.covers = {"QNTransactionLog::GetHandle()"}, .when = "unattached",
         .prepare = [] { g_Log.emplace(0ul); }, .run = [] { return g_Log->GetHandle(); },
         .leaves = State{.lines = {"file:translog:262"}}},
        {.covers = {"QNTransactionLog::AddRef(int)"}, .prepare = CreateLog,
         .run = [] { return g_Log->AddRef(2); }, .returns = 2,
         .leaves = State{.logs = {{.references = 3, .extra = 2, .buffers = 1}}}},
        {.covers = {"QNTransactionLog::AddRef(int)"}, .when = "of no reference",
         .prepare = CreateLog, .run = [] { return g_Log->AddRef(0); },
         .leaves = State{.lines = {"file:translog:419"}, .logs = {log}}, .tolerates = {MUTEX_LOCK}},
        {.covers = {"QNTransactionLog::Release()"}, .prepare = CreateReferencedLog,
         .run = [] { return g_Log->Release(); }, .returns = 1,
         .leaves = State{.logs = {{.references = 2, .extra = 1, .buffers = 1}}}},
        {.covers = {"QNTransactionLog::Release()"}, .when = "without an extra reference",
         .prepare = CreateLog, .run = [] { return g_Log->Release(); },
         .leaves = State{.lines = {"file:translog:439"}, .logs = {log}}, .tolerates = {MUTEX_LOCK}},
        {.covers = {"QNTransactionLog::AddBuffer(string const&, unsigned long, QNTransactionBuffer*)"},
         .prepare = CreateLog, .run = [] { g_Log->AddBuffer(LONG, 1, &g_Buffer); },
         .leaves = State{.logs = {{.references = 1, .extra = 0, .buffers = 2}}}},
        {.covers = {"QNTransactionLog::AddBuffer(string const&, unsigned long, QNTransactionBuffer*)"},
         .when = "of no buffer",
         .prepare = CreateLog, .run = [] { g_Log->AddBuffer(LONG, 1, nullptr); },
         .leaves = State{.lines = {"file:translog:467"}, .logs = {log}}},
        {.covers = {"QNTransactionLog::GetBuffer(string const&, unsigned long)"},
         .prepare = CreateLog, .run = [] { return g_Log->GetBuffer("a", 1) != nullptr; },
         .returns = 1},
        {.covers = {"QNTransactionLog::RemoveBuffer(string const&, unsigned long)"},
         .prepare = [] { CreateLog(); g_Log->AddBuffer("b", 1, &g_Buffer); },
         .run = [] { return g_Log->RemoveBuffer("b", 1) != nullptr; }, .returns = 1,
         .leaves = State{.logs = {log}}},

        {.covers = {"QNMitLockErrMgr::Instance()", "QNMitLockErrMgr::QNMitLockErrMgr()"},
         .run = [] { return QNMitLockErrMgr::Instance() != nullptr; }, .returns = 1,
         .leaves = State{.lockErrors = 0}},
        {.covers = {"QNMitLockErrMgr::Destroy()", "QNMitLockErrMgr::~QNMitLockErrMgr()"},
         .prepare = Locks, .run = QNMitLockErrMgr::Destroy, .leaves = State{},
         .tolerates = {MUTEX_LOCK}}, // of the records
        {.covers = {"QNMitLockErrMgr::InsertThrIDandInfo(int, char const*)"}, .prepare = Locks,
         .run = [] { Locks().InsertThrIDandInfo(7, LONG.c_str()); },
         .leaves = State{.lockErrors = 1}},
        {.covers = {"QNMitLockErrMgr::EraseThrIDandInfo(int)"},
         .prepare = [] { Locks().InsertThrIDandInfo(7, "text"); },
         .run = [] { Locks().EraseThrIDandInfo(7); }, .leaves = State{.lockErrors = 0}},
    };
    // clang-format on
    for (Operation operation : std::vector(operations)) {
        if (operation.refusedUnprepared) {
            operation.when += " unprepared";
            operation.prepare = [] {};
            operation.returns = operation.refused;
            operation.leaves = State{};
            operations.push_back(operation);
        }
    }
    return operations;
}

void SetUpServices()
{
    TheDebugInterface(); // created here, not under a fault
    ThePlatform().readMode = [](int& value) { return value = 0, 1; };
    faults::g_llClock = START;
    faults::g_pCtime = [](char* buffer) { return std::strcpy(buffer, "stamp\n"); };
    g_bEnableMitLockErrMgr = true;
}

State TakeState()
{
    State state;
    Timers().Start();
    faults::g_llClock += 1'000'000;
    Timers().DeliverExpired();
    Timers().Stop();
    state.called = std::exchange(g_Called, {});

    auto& handlers = HandlersOf(*EmsGeneralCmdMgr::Instance());
    state.registered = !handlers.empty();
    Register();
    runGeneralCmd();
    handlers.clear();
    state.queued = std::exchange(g_Called, {});

    for (const std::string& line : TakeLines()) {
        state.lines.push_back(line.substr(2, line.find_first_of(",\n") - 2));
    }
    state.reported = ReportDirectory::Take();

    auto& threads = RecordsOf(*EmsThreadInfoMgr::Instance());
    for (const auto& [id, record] : threads) {
        state.threads.push_back({.inside = record.m_nStatus == 1,
                                 .events = record.m_llRecvs,
                                 .report = IsEmsThreadReport(id)});
    }
    g_Work.reset();
    threads.clear();
    ReportersOf(*EmsThreadInfoMgr::Instance()).clear();
    g_Values = {};

    if (QNMitLockErrMgr::m_pInstance != nullptr) {
        state.lockErrors = RecordsOf(Locks()).size();
        QNMitLockErrMgr::Destroy();
    }

    for (const auto& [handle, log] : g_TransLogMap) {
        state.logs.push_back({.references = log->m_nRefCount,
                              .extra = log->m_nRefCountEx,
                              .buffers = log->m_TransBufMap.size()});
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
    g_Called = {};

    faults::g_llClock = START;
    return state;
}
