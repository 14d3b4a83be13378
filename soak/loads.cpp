#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>

#include <emsplatform/platform.h>
#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"
#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

/// A number for each thread of a load.
using PerThread = std::array<std::uint64_t, MOST_THREADS>;

constinit Total g_Run = {"commands run"};
constinit Total g_InOrder = {"commands in order"};
constinit Total g_RunAtOnce = {"commands run at once"};
constinit PerThread g_NextCommand = {};
constinit PerThread g_ExpectedCommand = {}; // only for the draining thread

void Register(std::string name, EmsGeneralCmdHandler handler)
{
    const RegEmsUtilCmd registration(name, handler);
}

int CheckQueued(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    const auto& pair = cmd->nvtps.nvtps.front();
    const bool isWhole = cmd->objs.objs.front().nvtps.nvtps.front().value == pair.value;
    const std::uint64_t number = std::stoull(pair.value);
    std::uint64_t& expected = g_ExpectedCommand.at(std::stoul(pair.name));
    ++g_Run.seen;
    g_InOrder.seen += isWhole && number == expected ? 1 : 0;
    expected = number + 1;
    return 0;
}

/// Threads queue commands with ascending numbers, and run others at once. Meanwhile they register
/// further names, 100 each.
void AddAndRun(std::size_t thread)
{
    const std::uint64_t number = g_NextCommand.at(thread)++;
    EmsGeneralCmd cmd; // with the number of the thread, and twice that of the command
    auto& pair = cmd.nvtps.nvtps.emplace_back();
    pair.name = std::to_string(thread);
    pair.value = std::to_string(number);
    cmd.objs.objs.emplace_back().nvtps.nvtps.push_back(pair);
    cmd.name = "soak-queued";
    addGeneralCmd(cmd);
    ++g_Run.done;
    ++g_InOrder.done;

    cmd.name = "soak-at-once";
    runGeneralCmd(cmd);
    g_RunAtOnce.Add(cmd.name == "done");

    if (number % BURST == 0) {
        Register("soak-other " + pair.name + ' ' + std::to_string(number / BURST % 100),
                 [](EmsGeneralCmd*, EmsGeneralCmd*) { return 0; });
    }
}

constinit Total g_WholeEntries = {"report entries whole"};
constinit PerThread g_NextEntry = {};
constinit PerThread g_ExpectedEntry = {}; // only for the check
constinit std::shared_mutex g_ReportFile; // shared by the threads that write

std::string Entry(std::size_t writer, std::uint64_t number)
{
    return "writer " + std::to_string(writer) + " entry " + std::to_string(number);
}

/// Every second entry is a report. Returns how many characters the library puts in front of it.
std::size_t StampLength(std::uint64_t number)
{
    return number % 2 == 0 ? 24 : 0;
}

bool IsNextEntry(std::string_view line)
{
    for (std::size_t writer = 0; writer < g_ExpectedEntry.size(); ++writer) {
        std::uint64_t& expected = g_ExpectedEntry.at(writer);
        const std::string entry = Entry(writer, expected);
        if (line.ends_with(entry) && line.size() == StampLength(expected) + entry.size()) {
            ++expected;
            return true;
        }
    }
    return false;
}

/// Checks the report file line by line and removes it.
void CheckReportFile()
{
    const std::unique_lock lock(g_ReportFile);
    const std::string path = GetParentPath(GetEKORPath()) + "../var/dump/" + g_ProcName + ".rpt";
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        g_WholeEntries.seen += !file.eof() && IsNextEntry(line) ? 1 : 0;
    }
    std::error_code missing; // shows as entries that are missing
    std::filesystem::remove(path, missing);
}

/// Threads write reports and traces. The first checks the file before each of its bursts.
void Write(std::size_t thread)
{
    const std::uint64_t number = g_NextEntry.at(thread)++;
    if (thread == 0 && number % BURST == 0) {
        CheckReportFile();
    }
    const std::shared_lock lock(g_ReportFile);
    const auto write = StampLength(number) > 0 ? EmsUtilReport : EmsUtilTraced;
    write("%s\n", Entry(thread, number).c_str());
    ++g_WholeEntries.done;
}

constinit Total g_GuardLines = {"time guards, their lines"};

/// Threads guard their time.
void GuardTime(std::size_t thread)
{
    const AgentTimeGuard guard("soak guard %zu", thread);
    g_GuardLines.done += 2;
}

constexpr long NEVER = 3600; // seconds that no monitored work takes here

constinit Total g_Events = {"monitored events"};
constinit Total g_Values = {"monitored values"};
constinit Total g_ReportThreads = {"entries of report threads"};
constinit Total g_GoodPolls = {"polls without a fault"};
constinit Total g_Statistics = {"statistics"};
constinit PerThread g_Entries = {};
constinit PerThread g_PolledEvents = {}; // of all threads, at the latest poll

std::uint64_t CountEvents()
{
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    std::uint64_t events = 0;
    std::uint64_t values = 0;
    for (const EmsThreadInfo& record : records) {
        events += static_cast<std::uint64_t>(record.m_llRecvs);
        values += std::stoull(record.m_InfoMap.at("entries").first);
    }
    g_Events.seen = events;
    g_Values.seen = values;
    return events;
}

/// Report threads enter and leave, and poll all records at the end of each burst.
void EnterAndPoll(std::size_t thread)
{
    const std::uint64_t entries = ++g_Entries.at(thread);
    EmsThreadInfoMap values = {{"Report", {"", THREADINFO_TYPE_STRING}}};
    AddEmsThreadInfo(values, "entries", std::to_string(entries).c_str());
    const RegEmsThreadInfo inside(&values);
    g_Events.done += 2;
    ++g_Values.done;
    g_ReportThreads.Add(IsEmsThreadReport(pthread_self()));
    if (entries % BURST == 0) {
        std::list<EmsThreadInfo> overdue;
        GetEmsThreadInfo(overdue, NEVER);
        const std::uint64_t events = CountEvents();
        const std::uint64_t earlier = std::exchange(g_PolledEvents.at(thread), events);
        g_GoodPolls.Add(events > earlier && overdue.empty() && !IsEmsThreadTimeout(NEVER));
        StatEmsThreadInfo();
        ++g_Statistics.done;
    }
}

constexpr unsigned char MANAGER = 1;
constexpr std::uint64_t MOST_PENDING = 1000;

constinit Total g_Freed = {"timers freed"};
constinit Total g_FiredOnce = {"timers fired once"};
constinit emsstandin::TaskManager* g_pManager = nullptr;

void Free(void* data)
{
    const std::unique_ptr<int> fired(static_cast<int*>(data));
    g_FiredOnce.seen += *fired == 1 ? 1 : 0;
    ++g_Freed.seen;
    g_Freed.seen.notify_all();
}

/// Threads schedule timers as fast as they are freed.
void Schedule(std::size_t)
{
    auto freed = g_Freed.seen.load();
    while (g_Freed.done - freed >= MOST_PENDING) {
        g_Freed.seen.wait(freed);
        freed = g_Freed.seen;
    }
    ++g_Freed.done;
    ++g_FiredOnce.done;
    EmsUtilTimerInterface timer = {
        [](void* data) { ++*static_cast<int*>(data); },
        [](void* data) -> void* { return new int(*static_cast<int*>(data)); }, Free};
    int fired = 0;
    ScheduleEmsUtilTimer(MANAGER, timer, &fired);
}

void AwaitFreed()
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (g_Freed.seen != g_Freed.done && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    g_pManager->Stop();
}

constexpr unsigned long BUFFERS = 3; // of a log that is passed on

constinit Total g_Attached = {"logs attached"};
constinit Total g_Found = {"buffers found"};
constinit Total g_Deleted = {"buffers deleted"};
constinit Total g_References = {"references of a shared log", 1};
constinit std::atomic<unsigned long> g_Latest = 0;
constinit std::atomic<unsigned long> g_NextBuffer = 0;

struct Buffer final : QNTransactionBuffer
{
    ~Buffer() override { ++g_Deleted.seen; }
};

void AddBuffer(QNTransactionLog& log, unsigned long number)
{
    ++g_Deleted.done;
    log.AddBuffer("soak", number, std::make_unique<Buffer>().release());
    g_Found.Add(log.GetBuffer("soak", number) != nullptr);
}

unsigned long CreateLog(unsigned long buffers)
{
    QNTransactionLog log;
    for (unsigned long number = 0; number < buffers; ++number) {
        AddBuffer(log, number);
    }
    log.AddRef(1);
    return log.GetHandle();
}

/// Takes one buffer out; the others are deleted with the log.
void TakeOver(unsigned long value)
{
    if (value == 0) { // there is no earlier log
        return;
    }
    QNTransactionLog log(value);
    const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", value % BUFFERS));
    g_Attached.seen += log.IsValid() && taken != nullptr ? 1 : 0;
    log.Release();
}

/// Returns the handle value of a log that all threads use.
unsigned long SharedLog()
{
    static const unsigned long value = CreateLog(0);
    return value;
}

/// Each thread creates logs with buffers, and passes the handle value of each on to the thread that
/// creates the next one. All work on one shared log besides.
void UseLogs(std::size_t)
{
    TakeOver(g_Latest.exchange(CreateLog(BUFFERS)));
    ++g_Attached.done;
    QNTransactionLog log(SharedLog());
    const unsigned long number = g_NextBuffer++;
    log.AddRef(2);
    AddBuffer(log, number);
    const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", number));
    log.Release();
    log.Release();
}

void TakeLast()
{
    TakeOver(g_Latest.exchange(0));
    QNTransactionLog log(SharedLog());
    log.AddRef(1);
    g_References.seen = static_cast<std::uint64_t>(log.Release());
    log.Release();
}

/// Threads insert and erase texts under ever new ids, and insert one under an id that all share.
/// The library has no operation that reads the texts, so there are no totals: a text that is not
/// erased shows as memory that grows.
void InsertAndErase(std::size_t)
{
    static constinit Count latest = 0;
    QNMitLockErrMgr& locks = *QNMitLockErrMgr::Instance();
    const int id = static_cast<int>(latest++ & 0x7fffffff);
    locks.InsertThrIDandInfo(-1, "the shared text");
    locks.InsertThrIDandInfo(id, "waits for a lock that all threads want");
    locks.EraseThrIDandInfo(id);
}

} // namespace

std::vector<Load> AllLoads()
{
    Register("soak-queued", CheckQueued);
    Register("soak-at-once", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        cmd->name = "done";
        return 0;
    });
    emsstandin::TaskManagerOptions options;
    options.m_Unit = std::chrono::microseconds(100);
    g_pManager = emsstandin::AddTaskManager(MANAGER, options);
    g_pManager->Start();
    std::atomic_ref(g_bEnableMitLockErrMgr).store(true);
    return {
        {"general commands", AddAndRun, {&g_Run, &g_InOrder, &g_RunAtOnce}},
        {"reports", Write, {&g_WholeEntries}, CheckReportFile},
        {"time guards", GuardTime, {&g_GuardLines}},
        {"thread monitor",
         EnterAndPoll,
         {&g_Events, &g_Values, &g_ReportThreads, &g_GoodPolls, &g_Statistics},
         CountEvents},
        {"timers", Schedule, {&g_Freed, &g_FiredOnce}, AwaitFreed},
        {"transaction logs", UseLogs, {&g_Attached, &g_Found, &g_Deleted, &g_References}, TakeLast},
        {"lock errors", InsertAndErase, {}},
    };
}

bool CountDebugLine(const std::string& line)
{
    const bool isGuard = line.starts_with("soak guard ") || line.starts_with("used time(ms): ");
    const bool isStatistics = line.starts_with("Ems Thread Information\n");
    g_GuardLines.seen += isGuard ? 1 : 0;
    g_Statistics.seen += isStatistics ? 1 : 0;
    return isGuard || isStatistics;
}

} // namespace soak
