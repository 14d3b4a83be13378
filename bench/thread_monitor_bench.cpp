#include <algorithm>
#include <latch>
#include <list>
#include <map>
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

struct OurMonitor
{
    void EnterAndLeave(EmsThreadInfoMap& values) { const RegEmsThreadInfo inside(&values); }
    EmsThreadInfo Record() { return Records().back(); }
};

/// The monitor's records, with nothing around them.
struct BareMonitor
{
    void EnterAndLeave(const EmsThreadInfoMap& values)
    {
        Change(1, values);
        Change(0, {});
    }

    void Change(int status, const EmsThreadInfoMap& values)
    {
        timeval time{};
        gettimeofday(&time, nullptr);
        const ACE_Time_Value now(time);
        const ACE_Write_Guard<ACE_RW_Thread_Mutex> guard(lock);
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

    EmsThreadInfo Record() { return records.at(pthread_self()); }

    ACE_RW_Thread_Mutex lock;
    std::map<unsigned long, EmsThreadInfo> records;
};

template <class Monitor>
void EnterAndLeave(benchmark::State& state, int count)
{
    static Monitor monitor;
    EmsThreadInfoMap values = Values(count);
    Measure(state, [&] { monitor.EnterAndLeave(values); });
    const EmsThreadInfo record = monitor.Record();
    Check(state, record.m_llRecvs >= 2 && record.m_InfoMap.size() >= values.size());
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
    for (const int count : {4, 16}) {
        const std::string operation =
            "enter and leave, " + std::to_string(count) + " values, 1 thread";
        Ours(operation, [=](auto& state) { EnterAndLeave<OurMonitor>(state, count); });
        Floor(operation, 1.1, [=](auto& state) { EnterAndLeave<BareMonitor>(state, count); });
    }
    for (const int threads : {2, 8}) {
        const std::string operation =
            "enter and leave, 4 values, " + std::to_string(threads) + " threads";
        for (Row* row :
             {Ours(operation, [](auto& state) { EnterAndLeave<OurMonitor>(state, 4); }),
              Floor(operation, 1.5, [](auto& state) { EnterAndLeave<BareMonitor>(state, 4); })}) {
            row->Threads(threads)->UseRealTime();
        }
    }
    AddQueries(10, "10");
    AddQueries(1000, "1,000");
}
