#include "host/soak/load.h"

#include <chrono>
#include <list>
#include <string>
#include <thread>
#include <utility>

#include "emsutil/thread_monitor.h"
#include "host/soak/debug_lines.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;

/// Threads go through monitored stretches; one thread polls.
class MonitorLoad final : public SoakLoad
{
public:
    std::vector<Work> Works() override
    {
        std::vector<Work> works;
        for (int i = 0; i < WORKERS; ++i) {
            works.emplace_back([this, i](const Stop& stop) { WorkInStretches(i == 0, stop); });
        }
        works.emplace_back([this](const Stop& stop) { Poll(stop); });
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        std::list<EmsThreadInfo> records;
        GetEmsThreadInfo(records, 0);
        std::uint64_t events = 0;
        std::uint64_t values = 0;
        for (const EmsThreadInfo& record : records) {
            events += static_cast<std::uint64_t>(record.m_llRecvs);
            values += std::stoull(record.m_InfoMap.at("stretches").first);
        }
        return {{"stretches, their events", 2 * m_nStretches, events},
                {"stretches, their values", m_nStretches, values},
                {"polls that find all well", m_nPolls, m_nGoodPolls},
                {"statistics", m_nStatistics, DebugLines::Instance().m_nStatistics}};
    }

private:
    static constexpr int WORKERS = 3;
    static constexpr long NEVER = 3600; // seconds that no stretch takes

    void WorkInStretches(bool isReport, const Stop& stop)
    {
        EmsThreadInfoMap values;
        if (isReport) {
            AddEmsThreadInfo(values, "Report", "yes");
        }
        std::uint64_t stretches = 0;
        RepeatUntil(stop, [&] {
            AddEmsThreadInfo(values, "stretches", std::to_string(++stretches).c_str());
            const RegEmsThreadInfo inside(&values);
        });
        m_nStretches += stretches;
    }

    void Poll(const Stop& stop)
    {
        long long latest = 0;
        while (!stop) {
            std::list<EmsThreadInfo> records;
            GetEmsThreadInfo(records, 0);
            long long events = 0;
            for (const EmsThreadInfo& record : records) {
                events += record.m_llRecvs;
            }
            std::list<EmsThreadInfo> overdue;
            GetEmsThreadInfo(overdue, NEVER);
            const bool good = events >= std::exchange(latest, events) && overdue.empty() &&
                              !IsEmsThreadTimeout(NEVER);
            ++m_nPolls;
            m_nGoodPolls += good ? 1 : 0;
            StatEmsThreadInfo();
            ++m_nStatistics;
            std::this_thread::sleep_for(10ms);
        }
    }

    Count m_nStretches = 0;
    Count m_nPolls = 0;
    Count m_nGoodPolls = 0;
    Count m_nStatistics = 0;
};

} // namespace

std::unique_ptr<SoakLoad> MakeMonitorLoad()
{
    return std::make_unique<MonitorLoad>();
}

} // namespace emshost
