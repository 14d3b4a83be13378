#include "emsutil/thread_monitor.h"

#include <climits>
#include <list>
#include <string>

#include <sys/time.h>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "host/host.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

namespace {

void Work(const Call& call)
{
    const auto job = [time = call.Number<int>("ms")](const std::stop_token& ending) {
        Sleep(ending, time);
    };
    for (int count = call.Number<int>("times"); count > 0; --count) {
        call.m_Host.GetWorkers().Submit(call.Text("job"), job);
    }
}

double Seconds(const ACE_Time_Value& time)
{
    return static_cast<double>(time.sec()) + static_cast<double>(time.usec()) / 1e6;
}

/// A line per thread, first the one that has not left for longest. Times are those of the monitor,
/// which knows when a thread left last, not when it entered: "since" is the time from the latest
/// exit, or else from the first entry, to now; "longest" is the longest such time up to an entry.
void PrintThreads(const Call& call, std::list<EmsThreadInfo>& threads)
{
    timeval now = {};
    ::gettimeofday(&now, nullptr); // the clock of the records
    threads.sort([](const EmsThreadInfo& left, const EmsThreadInfo& right) {
        return left.m_StartTime < right.m_StartTime;
    });
    if (!call.m_Host.IsJson()) {
        Print("thread            kind    state    since s  longest s  events  values");
    }
    for (const EmsThreadInfo& thread : threads) {
        const std::string id = string_format("%lx", thread.m_ulThreadId);
        const char* const kind = IsEmsThreadReport(thread.m_ulThreadId) ? "report" : "worker";
        const char* const state = thread.m_nStatus == 1 ? "inside" : "outside";
        const double since = Seconds(ACE_Time_Value(now) - thread.m_StartTime);
        const double longest = Seconds(thread.m_MaxDuration);
        Json values = Json::object();
        std::string text;
        for (const auto& [name, value] : thread.m_InfoMap) {
            const bool isNumber = value.second == THREADINFO_TYPE_INT;
            values[name] = value.first;
            text += "  " + name + '=' + (isNumber ? value.first : Quoted(value.first));
        }
        call.m_Host.PrintRow({{"thread", id},
                              {"kind", kind},
                              {"state", state},
                              {"since", since},
                              {"longest", longest},
                              {"events", thread.m_llRecvs},
                              {"values", values}},
                             string_format("%-16s  %-6s  %-7s  %7.1f  %9.1f  %6lld%s", id.c_str(),
                                           kind, state, since, longest, thread.m_llRecvs,
                                           text.c_str()));
    }
}

void Threads(const Call& call)
{
    std::list<EmsThreadInfo> threads;
    GetEmsThreadInfo(threads, 0);
    PrintThreads(call, threads);
}

void Overdue(const Call& call)
{
    std::list<EmsThreadInfo> threads;
    const int seconds = call.Number<int>("seconds");
    if (IsEmsThreadTimeout(seconds)) { // never for 0, which would list all threads
        GetEmsThreadInfo(threads, seconds);
    }
    if (!threads.empty()) {
        PrintThreads(call, threads);
    } else if (!call.m_Host.IsJson()) {
        Print("no thread is overdue");
    }
}

/// The library reads the configuration once, so what is found later is not where the mode is from.
void Mode(const Call&)
{
    static const std::string source = [] {
        std::string path;
        NSQN_util::GetEmsCfgFile(path);
        int value = 0;
        const bool isSet =
            eKorGetRegInt("MsgHandleMode", value, path.c_str()) == 1 && (value == 0 || value == 1);
        return (isSet ? "MsgHandleMode in " : "the default: no MsgHandleMode of 0 or 1 in ") + path;
    }();
    Print(string_format("message-handling mode %d, ", ReadMsgHandleModeSwitcher()) + source);
}

const Service g_Service(
    "Thread monitor",
    {{"await", "Wait until the workers have done all jobs, except those that they are stuck in.",
      [](const Call& call) {
          Flush();
          call.m_Host.GetWorkers().Await();
      }},
     {"mode", "Print the message-handling mode, 0 or 1, and where it comes from: 1 is the default.",
      Mode},
     {"overdue",
      "Print the threads that have been inside for a time or longer.",
      Overdue,
      {Number("seconds", INT_MIN, INT_MAX, "the time in seconds; with 0, no thread is printed")}},
     {"stat", "Write the records of all threads as a debug line.",
      [](const Call&) { StatEmsThreadInfo(); }},
     {"stick", "Make a worker stick in a job, and wait until it does.",
      [](const Call& call) {
          Flush();
          call.m_Host.GetWorkers().Stick();
      }},
     {"threads",
      "Print a row per thread. since: the seconds since it last left, or since it first entered if "
      "it never left. longest: the longest such time at an entry. events: how often it entered or "
      "left.",
      Threads},
     {"unstick", "Let all stuck workers go on.",
      [](const Call& call) { call.m_Host.GetWorkers().Unstick(); }},
     {"work",
      "Pass jobs to the workers in turn, except stuck workers.",
      Work,
      {Text("job", "the name of the jobs"), Number("times", 0, 100000, "how many jobs", "1"),
       Number("ms", 0, 60000, "how long each takes, in milliseconds, unless the process ends",
              "0")}}});

} // namespace
