#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <optional>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ace/Log_Category.h>
#include <ace/Log_Msg.h>

#include <emsplatform/task_manager.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "agent/emsutil_thread.h"
#include "agent/emsutil_util_timer.h"
#include "emsutil/diagnostics.h"
#include "emsutil/lock_error_manager.h"
#include "tests/expose.h"
#include "tests/faults.h"
#include "tests/test_platform.h"
#include "util/translog.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;
using namespace std::chrono_literals;

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
};

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

/// One that stays the test's.
QNTransactionBuffer& TheBuffer()
{
    static Buffer& buffer = *new Buffer;
    return buffer;
}

/// Attached handles are not to be left when their logs go.
void Clear()
{
    QNTransactionLog::ClearAllLog();
    const faults::Pause unswept;
    if (g_TransLogMap.empty()) {
        new (&*g_Log) QNTransactionLog(0ul);
    }
}

std::string CountRecords(long seconds)
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, seconds);
    return std::to_string(infos.size());
}

emsplatform::TaskManager& Timers()
{
    static emsplatform::TaskManager& manager = *emsplatform::AddTaskManager(
        7, {100ms, [] { return std::chrono::microseconds(faults::g_llClock); }});
    return manager;
}

EmsUtilTimerInterface g_Timer = {[](void*) { Note("timeout "); },
                                 [](void* param) {
                                     Note("copy ");
                                     return param;
                                 },
                                 [](void*) { g_Events += "free "; }};

std::string Number(long number)
{
    return std::to_string(number);
}

const char* YesOrNo(bool yes)
{
    return yes ? "yes" : "no";
}

/// A folder of the test's own.
std::string ReportPath()
{
    return testing::TempDir() + "emsutil_sweep." + Number(getpid()) + "/";
}

/// What the operations have left behind, in all services, which are then as before.
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
    std::ifstream file(ThePlatform().parentPath + "../var/dump/test.rpt");
    g_Events.append(std::istreambuf_iterator<char>(file), {});
    std::filesystem::remove(ThePlatform().parentPath + "../var/dump/test.rpt");
    for (const auto& [id, record] : RecordsOf(*EmsThreadInfoMgr::Instance())) {
        g_Events += (record.m_nStatus == 1 ? "inside" : "outside") + Number(record.m_llRecvs) +
                    (IsEmsThreadReport(id) ? " report " : " ");
    }
    g_Stretch.reset();
    RecordsOf(*EmsThreadInfoMgr::Instance()).clear();
    ReportersOf(*EmsThreadInfoMgr::Instance()).clear();
    if (QNMitLockErrMgr::m_pInstance != nullptr) {
        g_Events += "locks" + Number(static_cast<long>(RecordsOf(Locks()).size())) + " ";
        QNMitLockErrMgr::Destroy();
    }
    for (const auto& [handle, log] : g_TransLogMap) {
        g_Events += "log" + Number(log->m_nRefCount) + Number(log->m_nRefCountEx) +
                    Number(static_cast<long>(log->m_TransBufMap.size())) + " ";
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

struct Operation
{
    const char* m_pName;
    std::function<void()> m_Prepare;
    std::function<std::string()> m_Run;
    // Outcomes are what the operation gave, "|", and what it left behind.
    std::string m_Usual;
    std::string m_Refused; // when it could not be done
    /// What other outcomes faults of a kind may have.
    std::vector<std::pair<faults::Call, std::string>> m_Others = {};
    /// The usual outcome without the preparation; empty where that cannot be.
    std::string m_Unprepared = {};
    bool m_bPersistently = true;     // lock failures, too
    int m_nMostMutexLocks = INT_MAX; // that are made to fail
};

struct Fault
{
    faults::Call m_Call;
    int m_nNth;
    int m_nError;
    bool m_bPersistently;
};

std::string Run(const Operation& operation)
{
    try {
        return operation.m_Run();
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const std::system_error&) {
        return "system_error";
    } catch (const faults::Thrown&) {
        return "thrown";
    }
}

std::string PrepareAndRun(const Operation& operation)
{
    operation.m_Prepare();
    std::string outcome = Run(operation);
    return outcome + "|" + TakeState();
}

bool IsLock(faults::Call call)
{
    return call == faults::MUTEX_LOCK || call == faults::READ_LOCK || call == faults::WRITE_LOCK;
}

bool Allows(const Operation& operation, faults::Call call, const std::string& outcome)
{
    const std::string nothing = operation.m_Refused.substr(operation.m_Refused.find('|'));
    return (call == faults::ALLOCATION     ? outcome == "bad_alloc" + nothing
            : call == faults::COLLABORATOR ? outcome == "thrown" + nothing
                                           : outcome == operation.m_Refused) ||
           std::count(operation.m_Others.begin(), operation.m_Others.end(),
                      std::pair(call, outcome)) != 0;
}

int LowestFreeDescriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

/// Whether the fault has come; all that must hold then is checked.
bool Survives(const Operation& operation, const Fault& fault)
{
    const int descriptor = LowestFreeDescriptor();
    operation.m_Prepare();
    std::string outcome;
    bool happened = false;
    int error = 0;
    {
        const faults::FailNth injected(fault.m_Call, fault.m_nNth, fault.m_nError,
                                       fault.m_bPersistently);
        outcome = Run(operation);
        error = errno;
        happened = injected.Happened();
    }
    outcome += "|" + TakeState();
    SCOPED_TRACE(std::string(operation.m_pName) + ", call " + Number(fault.m_Call) + ", nth " +
                 Number(fault.m_nNth) + ", error " + Number(fault.m_nError) +
                 (fault.m_bPersistently ? ", persistently" : ""));
    if (!happened) {
        EXPECT_EQ(outcome, operation.m_Usual);
        return false;
    }
    EXPECT_TRUE(Allows(operation, fault.m_Call, outcome)) << outcome;
    if (IsLock(fault.m_Call) && outcome == operation.m_Refused) {
        EXPECT_EQ(error, fault.m_nError);
    }
    EXPECT_EQ(PrepareAndRun(operation), operation.m_Usual);
    std::future<std::string> other =
        std::async(std::launch::async, PrepareAndRun, std::cref(operation));
    if (other.wait_for(1s) != std::future_status::ready) {
        ADD_FAILURE() << "another thread hangs";
        std::fflush(stdout);
        std::_Exit(1);
    }
    EXPECT_EQ(other.get(), operation.m_Usual);
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
    return true;
}

/// Fails the first call of each kind, then the second and so on, until `survives` tells that the
/// operation got through. Returns how many faults came.
int Sweep(const Operation& operation, const std::function<bool(const Fault&)>& survives)
{
    static const std::map<faults::Call, std::vector<int>> errors = {
        {faults::ALLOCATION, {ENOMEM}},
        {faults::MUTEX_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::READ_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::WRITE_LOCK, {EINVAL, EAGAIN, EDEADLK}},
        {faults::OPEN, {ENOENT, EACCES, EMFILE, EINTR, ENOSPC}},
        {faults::WRITE, {ENOSPC, EIO, EINTR, faults::SHORT_WRITE}},
        {faults::CLOCK, {EINVAL}},
        {faults::TIME_TEXT, {EINVAL}},
        {faults::COLLABORATOR, {0}},
    };
    int faults = 0;
    for (const auto& [call, ofCall] : errors) {
        for (const int error : ofCall) {
            for (const bool persistently : {false, true}) {
                if (persistently && IsLock(call) && !operation.m_bPersistently) {
                    continue;
                }
                int nth = 1;
                while (!testing::Test::HasFailure() && // one is enough
                       !(call == faults::MUTEX_LOCK && nth > operation.m_nMostMutexLocks) &&
                       survives({call, nth, error, persistently})) {
                    ++nth;
                }
                faults += nth - 1;
            }
        }
    }
    return faults;
}

/// The same in a child process, whose exit code it is. Failures show on its standard output.
bool SurvivesAtFirstUse(const Operation& operation, const Fault& fault, long* live)
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const long before = faults::LiveAllocations();
        const bool happened = Survives(operation, fault);
        if (!happened) { // as often as with a fault
            PrepareAndRun(operation);
            std::async(std::launch::async, PrepareAndRun, std::cref(operation)).get();
        }
        if (fault.m_nNth == 0) {
            *live = faults::LiveAllocations() - before;
        }
        EXPECT_EQ(faults::LiveAllocations() - before, *live)
            << operation.m_pName << " leaks, call " << fault.m_Call << ", nth " << fault.m_nNth;
        std::fflush(stdout);
        std::_Exit(testing::Test::HasFailure() ? 2 : happened);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << operation.m_pName << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

void None() {}

/// All that a record can do, with failures of memory at every step.
template <class Record>
Operation OnRecord(const char* name, const Record& source)
{
    std::string usual = Record(source).ToString() + Record().ToString() + "|";
    const auto run = [source] {
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): to copy is what is swept
        Record copy(source);
        Record assigned;
        assigned = copy;
        std::string text = assigned.ToString();
        return text += Record::FromString(text).ToString();
    };
    return {name, None, run, usual, "|"};
}

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
        "new EmsUtilAgentTimerTask task failed bytes " + Number(sizeof(EmsUtilAgentTimerTask));
    const auto noResult = [](auto call) {
        return [call] {
            call();
            return std::string();
        };
    };

    // clang-format off
    return {
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
        // A queue whose lock fails is asked again, but a look-up that fails drops its command. The
        // seventh lock is out: when it fails, the queue that is by then empty counts as one that is
        // not, and the drain waits for the next add.
        {"drain", AddTwo, noResult([] { runGeneralCmd(); }), "|1 2 registered ", "|registered ",
         {{MUTEX_LOCK, "|1 2 registered "}, {MUTEX_LOCK, "|1 registered "},
          {MUTEX_LOCK, "|2 registered "}, {COLLABORATOR, "thrown|registered 2 "},
          {COLLABORATOR, "thrown|1 registered "}}, {}, false, 6},

        {"debug interface", None,
         [] { return YesOrNo(GetEmsUtilAgentDebugInterface() == TheDebugInterface()); },
         "yes|", "no|", {{READ_LOCK, "yes|"}}},
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
        {"leave", Enter, noResult([] { g_Stretch.reset(); }), "|outside2 report ",
         "|inside1 report ", {{CLOCK, "|outside2 report "}}},
        {"name a text", None, noResult([] { AddEmsThreadInfo(g_Values, LONG.c_str(), LONG.c_str()); }),
         "|", "|"},
        {"name a number", None, noResult([] { AddEmsThreadInfo(g_Values, LONG.c_str(), 7); }),
         "|", "|"},
        {"time-out", Enter, [] { return YesOrNo(IsEmsThreadTimeout(10)); },
         "yes|inside1 report ", "no|inside1 report ", {}, "no|"},
        {"report thread", Enter, [] { return YesOrNo(IsEmsThreadReport(pthread_self())); },
         "yes|inside1 report ", "no|inside1 report ", {}, "no|"},
        {"statistics", Enter, noResult(StatEmsThreadInfo),
         "|Ems Thread Information inside1 report ", "|inside1 report ",
         {{READ_LOCK, "|Ems Thread Information inside1 report "}},
         "|Ems Thread Information "},
        {"records", Enter, [] { return CountRecords(0); }, "1|inside1 report ",
         "0|inside1 report ", {}, "0|"},
        {"overdue records", Enter, [] { return CountRecords(10); }, "1|inside1 report ",
         "0|inside1 report ", {}, "0|"},
        {"mode", None, [] { return Number(ReadMsgHandleModeSwitcher()); }, "0|", "1|"},

        // The third lock, the manager's in arming, is out: what it throws leaves a timer that only the
        // manager's stop ends.
        {"timer", [] { Timers().Start(); }, noResult([] { ScheduleEmsUtilTimer(7, g_Timer, &g_Cmd); }),
         "|copy timeout free ", "|",
         {{ALLOCATION, "|" + noTask + " "}, {ALLOCATION, "|copy timeout free "},
          {ALLOCATION, "|copy free "}, {MUTEX_LOCK, "system_error|copy free "}}, {}, true, 2},
        {"timer, no manager", [] { Timers(); },
         noResult([] { ScheduleEmsUtilTimer(9, g_Timer, &g_Cmd); }), "|Find TaskMgrID 9 failed ", "|",
         {{READ_LOCK, "|Find TaskMgrID 9 failed "}}},

        {"log", None, [] { return YesOrNo(g_Log.emplace().IsValid()); }, "yes|log100 ", "no|"},
        {"attach", MakeLog<0>, [] { return YesOrNo(g_Second.emplace(1).IsValid()); },
         "yes|log201 ", "no|log101 "},
        // Without the lock of its buffers they go all the same.
        {"detach", MakeLog<0>, noResult([] { g_Log.reset(); }), "|deleted ", "|log101 ",
         {{WRITE_LOCK, "|deleted "}}},
        {"clear", MakeLog<1>, noResult([] { Clear(); }),
         "|deleted file:translog:353 file:translog:354 ", "|log211 ",
         {{WRITE_LOCK, "|deleted file:translog:353 file:translog:354 "},
          {COLLABORATOR, "|deleted file:translog:354 "}, {COLLABORATOR, "|deleted file:translog:353 "},
          {COLLABORATOR, "|deleted "}}},
        {"handle", [] { g_Log.emplace(0ul); }, [] { return Number(static_cast<long>(g_Log->GetHandle())); },
         "0|file:translog:262 ", "0|"},
        {"add references", MakeLog<0>, [] { return Number(g_Log->AddRef(2)); }, "2|log321 ", "0|log101 "},
        {"add no reference", MakeLog<0>, [] { return Number(g_Log->AddRef(0)); },
         "0|file:translog:419 log101 ", "0|log101 ", {{MUTEX_LOCK, "0|file:translog:419 log101 "}}},
        {"release", MakeLog<2>, [] { return Number(g_Log->Release()); }, "1|log211 ", "0|log321 "},
        {"release none", MakeLog<0>, [] { return Number(g_Log->Release()); },
         "0|file:translog:439 log101 ", "0|log101 ", {{MUTEX_LOCK, "0|file:translog:439 log101 "}}},
        {"add buffer", MakeLog<0>, noResult([] { g_Log->AddBuffer(LONG, 1, &TheBuffer()); }),
         "|log102 ", "|log101 "},
        {"add no buffer", MakeLog<0>, noResult([] { g_Log->AddBuffer(LONG, 1, nullptr); }),
         "|file:translog:467 log101 ", "|log101 "},
        {"get buffer", MakeLog<0>, [] { return YesOrNo(g_Log->GetBuffer("a", 1) != nullptr); },
         "yes|log101 ", "no|log101 "},
        {"remove buffer", [] {
             MakeLog<0>();
             g_Log->AddBuffer("b", 1, &TheBuffer());
         }, [] { return YesOrNo(g_Log->RemoveBuffer("b", 1) != nullptr); }, "yes|log101 ", "no|log102 "},

        {"lock errors", None, [] { return YesOrNo(QNMitLockErrMgr::Instance() != nullptr); },
         "yes|locks0 ", "no|"},
        {"no lock errors", Locks, noResult(QNMitLockErrMgr::Destroy), "|", "|locks0 ",
         {{MUTEX_LOCK, "|"}}},
        {"insert lock error", Locks, noResult([] { Locks().InsertThrIDandInfo(7, LONG.c_str()); }),
         "|locks1 ", "|locks0 "},
        {"erase lock error", [] { Locks().InsertThrIDandInfo(7, "text"); },
         noResult([] { Locks().EraseThrIDandInfo(7); }), "|locks0 ", "|locks1 "},
    };
    // clang-format on
}

} // namespace

TEST(FaultSweep, EveryOperationSurvivesEveryFault)
{
    // ACE has a word on memory that fails, and makes an object for it then.
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    ACE_Log_Category::ace_lib().per_thr_obj();
    TheDebugInterface(); // made here, not under a fault
    ThePlatform().parentPath = ReportPath() + "bin/";
    std::filesystem::create_directories(ReportPath() + "bin");
    std::filesystem::create_directories(ReportPath() + "var/dump");
    ThePlatform().readMode = [](int& value) {
        value = 0;
        return 1;
    };
    faults::g_llClock = START;
    faults::g_pCtime = [](char* buffer) { return std::strcpy(buffer, "stamp\n"); };
    NSQN_util::g_bEnableMitLockErrMgr = true;

    std::vector<Operation> operations = AllOperations();
    for (const Operation& prepared : std::vector(operations)) {
        if (!prepared.m_Unprepared.empty()) {
            Operation& operation = operations.emplace_back(prepared);
            operation.m_Prepare = None;
            operation.m_Usual = prepared.m_Unprepared;
            operation.m_Refused.erase(operation.m_Refused.find('|') + 1);
            operation.m_Others = {{faults::READ_LOCK, operation.m_Usual}}; // of the accessor
        }
    }
    auto* const live = static_cast<long*>(
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int faults = 0;
    for (const Operation& operation : operations) {
        const auto inChild = [&](const Fault& fault) {
            return SurvivesAtFirstUse(operation, fault, live);
        };
        inChild({});
        faults += Sweep(operation, inChild);
    }
    for (const Operation& operation : operations) {
        Survives(operation, {}); // for what is made once
        faults += Sweep(operation, [&](const Fault& fault) {
            const long before = faults::LiveAllocations();
            const bool happened = Survives(operation, fault);
            EXPECT_EQ(faults::LiveAllocations(), before) << operation.m_pName;
            return happened;
        });
    }
    munmap(live, sizeof(long));
    std::filesystem::remove_all(ReportPath());
    faults::g_llClock = faults::REAL_CLOCK;
    faults::g_pCtime = nullptr;
    std::printf("%d faults in %zu operations\n", faults, operations.size());
    EXPECT_GE(faults, 2000);
}
