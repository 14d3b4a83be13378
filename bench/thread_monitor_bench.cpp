#include <algorithm>
#include <latch>
#include <list>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/time.h>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>

#include "bench/measure.h"
#include "emsutil/thread_monitor.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// The monitor's records, with nothing around them.
template <class Lock, class Guard>
struct BareMonitor
{
    void Change(int status, const EmsThreadInfoMap& values)
    {
        timeval time{};
        gettimeofday(&time, nullptr);
        const ACE_Time_Value now(time);
        const Guard guard(lock);
        EmsThreadInfo& record = records[pthread_self()];
        record.m_nStatus = status;
        ++record.m_llRecvs;
        if (status == 1) {
            record.m_Duration = now - record.m_StartTime;
            record.m_MaxDuration = std::max(record.m_MaxDuration, record.m_Duration);
        } else {
            record.m_StartTime = now;
        }
        for (const auto& [name, value] : values) {
            record.m_InfoMap[name] = value;
        }
    }

    Lock lock;
    std::map<unsigned long, EmsThreadInfo> records;
};

using AceMonitor = BareMonitor<ACE_RW_Thread_Mutex, ACE_Write_Guard<ACE_RW_Thread_Mutex>>;
using StandardMonitor = BareMonitor<std::shared_mutex, std::lock_guard<std::shared_mutex>>;

EmsThreadInfoMap Values(int count)
{
    EmsThreadInfoMap values;
    for (int i = 0; i < count; ++i) {
        AddEmsThreadInfo(values, ("jobs" + std::to_string(i)).c_str(), 1000 * i);
    }
    return values;
}

std::list<EmsThreadInfo> Records()
{
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    return records;
}

bool IsComplete(const EmsThreadInfo& record, int values)
{
    return record.m_llRecvs >= 2 && record.m_InfoMap.size() >= static_cast<std::size_t>(values);
}

Body EnterAndLeave(int count)
{
    return [count](benchmark::State& state) {
        EmsThreadInfoMap values = Values(count);
        Measure(state, [&] { const RegEmsThreadInfo inside(&values); });
        const std::list<EmsThreadInfo> records = Records();
        Check(state, !records.empty() && IsComplete(records.back(), count));
    };
}

template <class Monitor>
Body EnterAndLeaveBare(int count)
{
    return [count](benchmark::State& state) {
        static Monitor monitor;
        const EmsThreadInfoMap values = Values(count);
        Measure(state, [&] {
            monitor.Change(1, values);
            monitor.Change(0, {});
        });
        Check(state, IsComplete(monitor.records.at(pthread_self()), count));
    };
}

void AddEntries(int count, int threads, const std::string& text, double goal)
{
    const std::string operation = "enter and leave, " + text;
    for (Row* row :
         {Ours(operation, EnterAndLeave(count)),
          Floor(operation, goal, EnterAndLeaveBare<AceMonitor>(count)),
          Peer(operation, "std::shared_mutex", 1, EnterAndLeaveBare<StandardMonitor>(count))}) {
        if (threads > 1) {
            row->Threads(threads)->UseRealTime();
        }
    }
}

int CountRecords()
{
    return static_cast<int>(Records().size());
}

/// Adds what is missing of `count` records, by threads that exist at once, so that no two have the
/// same id.
void AddRecords(int count)
{
    const int missing = std::max(0, count - CountRecords());
    std::latch allInside(missing);
    std::vector<std::jthread> threads;
    for (int i = 0; i < missing; ++i) {
        threads.emplace_back([&allInside] {
            EmsThreadInfoMap values = Values(4);
            const RegEmsThreadInfo inside(&values);
            allInside.arrive_and_wait();
        });
    }
}

/// What works on all records; the time is that per record.
void AddQueries(int count, const std::string& text)
{
    Ours("statistics, per record of " + text, [count](benchmark::State& state) {
        AddRecords(count);
        Measure(state, StatEmsThreadInfo, CountRecords());
        const std::string lines = DebugText(StatEmsThreadInfo);
        Check(state, lines.find(" thread recvs        2\n jobs0 0\n") != std::string::npos);
    });
    Ours("copies of the records, per record of " + text, [count](benchmark::State& state) {
        AddRecords(count);
        Measure(state, CountRecords, CountRecords());
        Check(state, CountRecords() >= count);
    });
    Ours("overdue check, per record of " + text, [count](benchmark::State& state) {
        AddRecords(count);
        bool isOverdue = true;
        const auto check = [&] { isOverdue = IsEmsThreadTimeout(1000); };
        Measure(state, check, CountRecords());
        Check(state, !isOverdue);
    });
}

} // namespace

void AddThreadMonitor()
{
    Ours("add a named value", [](benchmark::State& state) {
        EmsThreadInfoMap values;
        Measure(state, [&] { AddEmsThreadInfo(values, "jobs", 4711); });
        Check(state, values["jobs"].first == "4711");
    });
    AddEntries(0, 1, "0 values, 1 thread", 1.1);
    AddEntries(4, 1, "4 values, 1 thread", 1.1);
    AddEntries(16, 1, "16 values, 1 thread", 1.1);
    AddEntries(4, 2, "4 values, 2 threads", 1.5);
    AddEntries(4, 8, "4 values, 8 threads", 1.5);
    AddQueries(10, "10");
    AddQueries(1000, "1,000");
}
