#include "emsutil/thread_monitor.h"

#include <memory>
#include <utility>

#include <pthread.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr long NEVER = 3600; // seconds that no monitored work takes here

struct Counts
{
    Count entries = 0;
    Count reports = 0;
    Count polls = 0;
    Count goodPolls = 0;
};

std::uint64_t CountEvents(std::list<EmsThreadInfo>& records)
{
    std::uint64_t events = 0;
    GetEmsThreadInfo(records, 0);
    for (const EmsThreadInfo& record : records) {
        events += static_cast<std::uint64_t>(record.m_llRecvs);
    }
    return events;
}

void Poll(Counts& counts, std::uint64_t& events)
{
    std::list<EmsThreadInfo> records;
    std::list<EmsThreadInfo> overdue;
    GetEmsThreadInfo(overdue, NEVER);
    const std::uint64_t latest = CountEvents(records);
    const bool good =
        latest > std::exchange(events, latest) && overdue.empty() && !IsEmsThreadTimeout(NEVER);
    StatEmsThreadInfo();
    counts.goodPolls += good ? 1 : 0;
    ++counts.polls;
}

void EnterAndLeave(Counts& counts, const Pace& pace)
{
    EmsThreadInfoMap values = {{"Report", {"", THREADINFO_TYPE_STRING}}};
    std::uint64_t entries = 0;
    std::uint64_t events = 0;
    pace.Repeat(
        [&] {
            AddEmsThreadInfo(values, "entries", std::to_string(++entries).c_str());
            const RegEmsThreadInfo inside(&values);
            counts.reports += IsEmsThreadReport(pthread_self()) ? 1 : 0;
        },
        [&] {
            Poll(counts, events);
            pace.Pause();
        });
    counts.entries += entries;
}

std::vector<Total> Finish(const Counts& counts)
{
    std::uint64_t values = 0;
    std::list<EmsThreadInfo> records;
    const std::uint64_t events = CountEvents(records);
    for (const EmsThreadInfo& record : records) {
        values += std::stoull(record.m_InfoMap.at("entries").first);
    }
    return {{"monitored events", 2 * counts.entries, events},
            {"monitored values", counts.entries, values},
            {"entries of report threads", counts.entries, counts.reports},
            {"polls without a fault", counts.polls, counts.goodPolls},
            {"statistics", counts.polls, g_DebugLines.statistics}};
}

} // namespace

/// Report threads enter and leave, and poll all records after each burst.
Load ThreadMonitorLoad(int threads)
{
    const auto counts = std::make_shared<Counts>();
    return {threads, [counts](int, const Pace& pace) { EnterAndLeave(*counts, pace); },
            [counts] { return Finish(*counts); }};
}

} // namespace soak
