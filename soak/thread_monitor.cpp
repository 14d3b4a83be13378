#include "emsutil/thread_monitor.h"

#include <utility>

#include <pthread.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr long NEVER = 3600; // seconds that no monitored work takes here

/// Report threads enter and leave, and poll all records after each burst.
class ThreadMonitorLoad final : public Load
{
public:
    using Load::Load;

    void Work(int, const Pace& pace) override
    {
        EmsThreadInfoMap values = {{"Report", {"", THREADINFO_TYPE_STRING}}};
        std::uint64_t entries = 0;
        std::uint64_t reports = 0;
        std::uint64_t events = 0;
        pace.Repeat(
            [&] {
                AddEmsThreadInfo(values, "entries", std::to_string(++entries).c_str());
                const RegEmsThreadInfo inside(&values);
                reports += IsEmsThreadReport(pthread_self()) ? 1 : 0;
            },
            [&] {
                Poll(events);
                pace.Pause();
            });
        m_nEntries += entries;
        m_nReports += reports;
    }

    std::vector<Total> Finish() override
    {
        std::uint64_t values = 0;
        std::list<EmsThreadInfo> records;
        const std::uint64_t events = CountEvents(records);
        for (const EmsThreadInfo& record : records) {
            const auto entries = record.m_InfoMap.find("entries");
            values += entries == record.m_InfoMap.end() ? 0 : std::stoull(entries->second.first);
        }
        return {{"monitored events", 2 * m_nEntries, events},
                {"monitored values", m_nEntries, values},
                {"entries of report threads", m_nEntries, m_nReports},
                {"polls without a fault", m_nPolls, m_nGoodPolls},
                {"statistics", m_nPolls, g_DebugLines.statistics}};
    }

private:
    static std::uint64_t CountEvents(std::list<EmsThreadInfo>& records)
    {
        std::uint64_t events = 0;
        GetEmsThreadInfo(records, 0);
        for (const EmsThreadInfo& record : records) {
            events += static_cast<std::uint64_t>(record.m_llRecvs);
        }
        return events;
    }

    void Poll(std::uint64_t& events)
    {
        std::list<EmsThreadInfo> records;
        std::list<EmsThreadInfo> overdue;
        GetEmsThreadInfo(overdue, NEVER);
        const std::uint64_t latest = CountEvents(records);
        const bool good =
            latest > std::exchange(events, latest) && overdue.empty() && !IsEmsThreadTimeout(NEVER);
        StatEmsThreadInfo();
        m_nGoodPolls += good ? 1 : 0;
        ++m_nPolls;
    }

    Count m_nEntries = 0;
    Count m_nReports = 0;
    Count m_nPolls = 0;
    Count m_nGoodPolls = 0;
};

} // namespace

std::unique_ptr<Load> CreateThreadMonitorLoad(int threads)
{
    return std::make_unique<ThreadMonitorLoad>(threads);
}

} // namespace soak
