#include "emsutil/thread_monitor.h"

#include <memory>
#include <utility>

#include <pthread.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr long NEVER = 3600; // seconds that no monitored work takes here

struct Monitored
{
    EmsThreadInfoMap values = {{"Report", {"", THREADINFO_TYPE_STRING}}};
    std::uint64_t entries = 0;
    std::uint64_t events = 0; // of all threads, at the latest poll
};

struct State
{
    std::vector<Monitored> threads;
    Count entries = 0;
    Count reports = 0;
    Count polls = 0;
    Count goodPolls = 0;
};

void EnterAndLeave(State& state, Monitored& thread)
{
    AddEmsThreadInfo(thread.values, "entries", std::to_string(++thread.entries).c_str());
    const RegEmsThreadInfo inside(&thread.values);
    state.reports += IsEmsThreadReport(pthread_self()) ? 1 : 0;
    ++state.entries;
}

std::uint64_t CountEvents(std::list<EmsThreadInfo>& records)
{
    std::uint64_t events = 0;
    GetEmsThreadInfo(records, 0);
    for (const EmsThreadInfo& record : records) {
        events += static_cast<std::uint64_t>(record.m_llRecvs);
    }
    return events;
}

void Poll(State& state, Monitored& thread)
{
    std::list<EmsThreadInfo> records;
    std::list<EmsThreadInfo> overdue;
    GetEmsThreadInfo(overdue, NEVER);
    const std::uint64_t events = CountEvents(records);
    const bool isGood = events > std::exchange(thread.events, events) && overdue.empty() &&
                        !IsEmsThreadTimeout(NEVER);
    StatEmsThreadInfo();
    state.goodPolls += isGood ? 1 : 0;
    ++state.polls;
}

std::vector<Total> Finish(const State& state)
{
    std::uint64_t values = 0;
    std::list<EmsThreadInfo> records;
    const std::uint64_t events = CountEvents(records);
    for (const EmsThreadInfo& record : records) {
        values += std::stoull(record.m_InfoMap.at("entries").first);
    }
    return {{"monitored events", 2 * state.entries, events},
            {"monitored values", state.entries, values},
            {"entries of report threads", state.entries, state.reports},
            {"polls without a fault", state.polls, state.goodPolls},
            {"statistics", state.polls, g_DebugLines.statistics}};
}

} // namespace

/// Report threads enter and leave, and poll all records after each burst.
Load ThreadMonitorLoad(int threads)
{
    const auto state = std::make_shared<State>();
    state->threads.resize(static_cast<std::size_t>(threads));
    const auto monitored = [state](int thread) -> Monitored& {
        return state->threads[static_cast<std::size_t>(thread)];
    };
    return {[=](int thread) { EnterAndLeave(*state, monitored(thread)); },
            [=] { return Finish(*state); }, [=](int thread) { Poll(*state, monitored(thread)); }};
}

} // namespace soak
