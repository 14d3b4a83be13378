#include <algorithm>
#include <latch>
#include <list>
#include <map>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/time.h>

#include <ace/RW_Thread_Mutex.h>

#include "bench/measure.h"
#include "emsutil/thread_monitor.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

/// ACE's reader-writer lock under the names that the standard's lock has.
struct AceLock
{
    void lock() { mutex.acquire_write(); }
    void unlock() { mutex.release(); }

    ACE_RW_Thread_Mutex mutex;
};

/// The monitor's records, with nothing around them.
template <class Lock>
class Monitor
{
public:
    void Change(int status, const EmsThreadInfoMap& values)
    {
        timeval time{};
        gettimeofday(&time, nullptr);
        const ACE_Time_Value now(time);
        const std::lock_guard guard(m_Lock);
        EmsThreadInfo& record = m_Records[pthread_self()];
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

    EmsThreadInfo OwnRecord()
    {
        const std::lock_guard guard(m_Lock);
        return m_Records[pthread_self()];
    }

private:
    Lock m_Lock;
    std::map<unsigned long, EmsThreadInfo> m_Records;
};

EmsThreadInfoMap Values(int count)
{
    EmsThreadInfoMap values;
    for (int i = 0; i < count; ++i) {
        AddEmsThreadInfo(values, ("jobs" + std::to_string(i)).c_str(), 1000 * i);
    }
    return values;
}

EmsThreadInfo OurRecord()
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, 0);
    for (const EmsThreadInfo& info : infos) {
        if (info.m_ulThreadId == pthread_self()) {
            return info;
        }
    }
    return {};
}

bool IsComplete(const EmsThreadInfo& record, int values)
{
    return record.m_llRecvs >= 2 && record.m_InfoMap.size() == static_cast<std::size_t>(values);
}

template <class Lock>
Body EnterAndLeave(int count)
{
    return [count](benchmark::State& state) {
        static Monitor<Lock> monitor;
        const EmsThreadInfoMap values = Values(count);
        Measure(
            state,
            [&] {
                monitor.Change(1, values);
                monitor.Change(0, {});
            },
            [&] { return IsComplete(monitor.OwnRecord(), count); });
    };
}

void AddEntries(int count, int threads)
{
    const std::string operation = "enter and leave, " + std::to_string(count) + " values, " +
                                  std::to_string(threads) + (threads == 1 ? " thread" : " threads");
    const double goal = threads == 1 ? 1.1 : 1.5;
    Row* const rows[] = {
        Ours(operation,
             [count](benchmark::State& state) {
                 EmsThreadInfoMap values = Values(count);
                 Measure(
                     state, [&] { const RegEmsThreadInfo inside(&values); },
                     [&] { return IsComplete(OurRecord(), count); });
             }),
        Floor(operation, goal, EnterAndLeave<AceLock>(count)),
        Peer(operation, "std::shared_mutex", 1, EnterAndLeave<std::shared_mutex>(count)),
    };
    if (threads > 1) {
        for (Row* row : rows) {
            row->Threads(threads)->UseRealTime();
        }
    }
}

int CountRecords()
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, 0);
    return static_cast<int>(infos.size());
}

/// Adds as many records, by threads that exist at once, so that no two have the same id.
void AddRecords(int count)
{
    std::latch allInside(count);
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
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
    const auto add = [count, text](const std::string& query, auto run, auto hasWorked) {
        Ours(query + ", per record of " + text, [=](benchmark::State& state) {
            if (CountRecords() < count) { // an earlier repetition has added them
                AddRecords(count);
            }
            Measure(state, run, hasWorked, CountRecords());
        });
    };
    add("statistics", StatEmsThreadInfo, [] {
        return DebugText(StatEmsThreadInfo).find(" thread recvs        2\n jobs0 0\n") !=
               std::string::npos;
    });
    add("copies of the records", CountRecords, [count] { return CountRecords() >= count; });
    add(
        "overdue check", [] { benchmark::DoNotOptimize(IsEmsThreadTimeout(1000)); },
        [] { return !IsEmsThreadTimeout(1000); });
}

} // namespace

void AddThreadMonitor()
{
    Ours("add a named value", [](benchmark::State& state) {
        EmsThreadInfoMap values;
        Measure(
            state, [&] { AddEmsThreadInfo(values, "jobs", 4711); },
            [&] { return values["jobs"].first == "4711"; });
    });
    for (const int values : {0, 4, 16}) {
        AddEntries(values, 1);
    }
    AddEntries(4, 2);
    AddEntries(4, 8);
    AddQueries(10, "10");
    AddQueries(1000, "1,000");
}

} // namespace bench
