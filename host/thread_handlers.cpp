#include <chrono>
#include <climits>
#include <list>
#include <string>

#include <sys/time.h>

#include "emsutil/diagnostics.h"
#include "emsutil/thread_monitor.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int MOST_TIMES = 100000; // they are all in memory at once
constexpr int LONGEST_JOB_MS = 60000;

void Work(Host& host, EmsGeneralCmd& cmd)
{
    const auto job = TextOf(FindPair(cmd, "job"));
    const Pair* const timesPair = FindPair(cmd, "times");
    const Pair* const timePair = FindPair(cmd, "ms");
    const auto times = IntOf(timesPair, 0, MOST_TIMES);
    const auto time = IntOf(timePair, 0, LONGEST_JOB_MS);
    if (!job || (timesPair != nullptr && !times) || (timePair != nullptr && !time)) {
        host.ReportBadCommand(
            cmd, string_format("needs job=NAME [times:long=N], at most %d, [ms:long=N], at most %d",
                               MOST_TIMES, LONGEST_JOB_MS));
        return;
    }
    const std::chrono::milliseconds busy(time.value_or(0));
    for (int count = times.value_or(1); count > 0; --count) {
        host.Submit(*job, [&host, busy] { host.Workers().BeBusy(busy); });
    }
}

void Await(Host& host, EmsGeneralCmd&)
{
    host.Workers().Await();
}

void Stick(Host& host, EmsGeneralCmd& cmd)
{
    if (!host.Workers().Stick()) {
        host.ReportBadCommand(cmd, "all workers are stuck already");
    }
}

void Unstick(Host& host, EmsGeneralCmd&)
{
    host.Workers().Unstick();
}

void Stat(Host&, EmsGeneralCmd&)
{
    StatEmsThreadInfo();
}

double Seconds(const ACE_Time_Value& time)
{
    return static_cast<double>(time.sec()) + static_cast<double>(time.usec()) / 1e6;
}

std::string ValuesOf(const EmsThreadInfo& thread)
{
    std::string values;
    for (const auto& [name, value] : thread.m_InfoMap) {
        const auto& [text, type] = value;
        values += "  " + name + '=' + (type == THREADINFO_TYPE_INT ? text : Quoted(text));
    }
    return values;
}

/// A line a thread, whoever has not been done for longest first. Times are those of the monitor,
/// which knows of a thread inside its stretch when it was last done, not when it came in: "since"
/// is the time from the latest exit, or else the first entry, to now, and "longest" the longest
/// such time that an entry ended.
void PrintTable(std::list<EmsThreadInfo>& threads)
{
    timeval now = {};
    ::gettimeofday(&now, nullptr); // the clock of the records
    threads.sort([](const EmsThreadInfo& left, const EmsThreadInfo& right) {
        return left.m_StartTime < right.m_StartTime;
    });
    Console::Instance().Print(
        "thread            kind    state    since s  longest s  events  values");
    for (const EmsThreadInfo& thread : threads) {
        Console::Instance().Print(string_format(
            "%-16lx  %-6s  %-7s  %7.1f  %9.1f  %6lld%s", thread.m_ulThreadId,
            IsEmsThreadReport(thread.m_ulThreadId) ? "report" : "worker",
            thread.m_nStatus == 1 ? "inside" : "outside",
            Seconds(ACE_Time_Value(now) - thread.m_StartTime), Seconds(thread.m_MaxDuration),
            thread.m_llRecvs, ValuesOf(thread).c_str()));
    }
}

void Threads(Host&, EmsGeneralCmd&)
{
    std::list<EmsThreadInfo> threads;
    GetEmsThreadInfo(threads, 0);
    PrintTable(threads);
}

void Overdue(Host& host, EmsGeneralCmd& cmd)
{
    const auto seconds = IntOf(FindPair(cmd, "seconds"), INT_MIN, INT_MAX);
    if (!seconds) {
        host.ReportBadCommand(cmd, "needs seconds:long=N");
        return;
    }
    std::list<EmsThreadInfo> threads;
    if (IsEmsThreadTimeout(*seconds)) { // never for 0, which would list all threads
        GetEmsThreadInfo(threads, *seconds);
    }
    if (threads.empty()) {
        Console::Instance().Print("no thread is overdue");
    } else {
        PrintTable(threads);
    }
}

void Mode(Host&, EmsGeneralCmd&)
{
    Console::Instance().Print(
        string_format("message-handling mode %d", ReadMsgHandleModeSwitcher()));
}

const HandlerTable g_Handlers = {
    {"await", Handler<Await>, "waits until the workers have done all jobs, but for stuck ones"},
    {"mode", Handler<Mode>, "prints the message-handling mode"},
    {"overdue", Handler<Overdue>,
     "seconds:long=N: prints the threads inside their stretch for N seconds or more"},
    {"stat", Handler<Stat>, "writes the records of all threads as debug lines, at level 1"},
    {"stick", Handler<Stick>, "has a worker get stuck in a job"},
    {"threads", Handler<Threads>, "prints the records of all threads as a table"},
    {"unstick", Handler<Unstick>, "lets all stuck workers go on"},
    {"work", Handler<Work>,
     "job=NAME [times:long=N] [ms:long=M]: hands the workers N jobs of M milliseconds"},
};

} // namespace

} // namespace emshost
