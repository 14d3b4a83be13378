#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <list>
#include <map>
#include <shared_mutex>
#include <string>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>

#ifdef BENCH_HAS_FMT
#include <fmt/format.h>
#endif

#include <emsplatform/debug_interface.h>

#include "bench/compare.h"
#include "emsutil/diagnostics.h"
#include "emsutil/thread_monitor.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

/// ACE's reader-writer lock under the names that the standard's locks have.
class AceLock
{
public:
    void lock() { m_Lock.acquire_write(); }
    void unlock() { m_Lock.release(); }
    void lock_shared() { m_Lock.acquire_read(); }
    void unlock_shared() { m_Lock.release(); }

private:
    ACE_RW_Thread_Mutex m_Lock;
};

ACE_Time_Value Now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return ACE_Time_Value(now);
}

/// The monitor's records, with nothing around them.
template <class Lock>
class Monitor
{
public:
    void Enter(const EmsThreadInfoMap* values)
    {
        const ACE_Time_Value now = Now();
        const std::lock_guard guard(m_Lock);
        EmsThreadInfo& record = Record(pthread_self());
        record.m_nStatus = 1;
        ++record.m_llRecvs;
        if (record.m_StartTime < now) {
            record.m_Duration = now - record.m_StartTime;
        }
        if (record.m_Duration > record.m_MaxDuration) {
            record.m_MaxDuration = record.m_Duration;
        }
        if (values != nullptr) {
            for (const auto& [name, value] : *values) {
                record.m_InfoMap[name] = value;
            }
        }
    }

    void Leave()
    {
        const ACE_Time_Value now = Now();
        const std::lock_guard guard(m_Lock);
        EmsThreadInfo& record = Record(pthread_self());
        record.m_nStatus = 0;
        ++record.m_llRecvs;
        record.m_StartTime = now;
    }

    /// `append(text, record)` for all records.
    template <class Append>
    void Statistics(Append append)
    {
        std::string text = "Ems Thread Information\n";
        {
            const std::shared_lock guard(m_Lock);
            for (const auto& [id, record] : m_Records) {
                append(text, record);
            }
        }
        GetEmsUtilAgentDebugInterface()->DebugPrint(1, "%s", text.c_str());
    }

    void Copy(std::list<EmsThreadInfo>& infos)
    {
        const std::shared_lock guard(m_Lock);
        for (const auto& [id, record] : m_Records) {
            infos.push_back(record);
        }
    }

    void Add(const EmsThreadInfo& record) { m_Records.emplace(record.m_ulThreadId, record); }

private:
    EmsThreadInfo& Record(unsigned long threadId)
    {
        auto found = m_Records.find(threadId);
        if (found == m_Records.end()) {
            found = m_Records.emplace(threadId, EmsThreadInfo()).first;
            found->second.m_ulThreadId = threadId;
        }
        return found->second;
    }

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

template <class Lock>
void EnterAndLeave(benchmark::State& state, Monitor<Lock>& monitor, int count)
{
    EmsThreadInfoMap values = Values(count);
    for (auto _ : state) {
        monitor.Enter(&values);
        monitor.Leave();
    }
}

void MeasureEntries(int count, int threads)
{
    Monitor<AceLock> bare;
    Monitor<std::shared_mutex> standard;
    Compare({"entry and exit, " + std::to_string(count) + " values, " + std::to_string(threads) +
                 (threads == 1 ? " thread" : " threads"),
             threads == 1 ? 1.1 : 1.5, threads == 1 ? Time::Processor : Time::Wall, threads},
            {Ours([count](benchmark::State& state) {
                 EmsThreadInfoMap values = Values(count);
                 for (auto _ : state) {
                     const RegEmsThreadInfo inside(&values);
                 }
             }),
             Floor([&bare, count](benchmark::State& state) { EnterAndLeave(state, bare, count); }),
             Rival("std::shared_mutex", [&standard, count](benchmark::State& state) {
                 EnterAndLeave(state, standard, count);
             })});
}

std::int64_t Milliseconds(const ACE_Time_Value& time)
{
    return std::int64_t{time.sec()} * 1000 + time.usec() / 1000;
}

int Int(const std::string& text)
{
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

/// The lines of a record by plain appends.
void AppendRecord(std::string& text, const EmsThreadInfo& record)
{
    const auto line = [&text](const char* label, std::int64_t number) {
        text += label;
        text += std::to_string(number);
        text += "\n";
    };
    constexpr char digits[] = "0123456789abcdef";
    std::string id;
    for (auto rest = static_cast<std::uint32_t>(record.m_ulThreadId); rest != 0; rest /= 16) {
        id.insert(id.begin(), digits[rest % 16]);
    }
    text += " thread id           ";
    text += id;
    text += "\n";
    line(" thread status       ", record.m_nStatus);
    line(" thread start        ", Milliseconds(record.m_StartTime));
    line(" thread duration     ", Milliseconds(record.m_Duration));
    line(" thread max duration ", Milliseconds(record.m_MaxDuration));
    line(" thread recvs        ", record.m_llRecvs);
    for (const auto& [name, value] : record.m_InfoMap) {
        text += " ";
        text += name;
        text += " ";
        text +=
            value.second == THREADINFO_TYPE_INT ? std::to_string(Int(value.first)) : value.first;
        text += "\n";
    }
}

#ifdef BENCH_HAS_FMT
void FormatRecord(std::string& text, const EmsThreadInfo& record)
{
    const auto end = std::back_inserter(text);
    fmt::format_to(end, " thread id           {:x}\n",
                   static_cast<std::uint32_t>(record.m_ulThreadId));
    fmt::format_to(end, " thread status       {}\n", record.m_nStatus);
    fmt::format_to(end, " thread start        {}\n", Milliseconds(record.m_StartTime));
    fmt::format_to(end, " thread duration     {}\n", Milliseconds(record.m_Duration));
    fmt::format_to(end, " thread max duration {}\n", Milliseconds(record.m_MaxDuration));
    fmt::format_to(end, " thread recvs        {}\n", record.m_llRecvs);
    for (const auto& [name, value] : record.m_InfoMap) {
        if (value.second == THREADINFO_TYPE_INT) {
            fmt::format_to(end, " {} {}\n", name, Int(value.first));
        } else {
            fmt::format_to(end, " {} {}\n", name, value.first);
        }
    }
}
#endif

void* EnterOnce(void*)
{
    EmsThreadInfoMap values = Values(4);
    const RegEmsThreadInfo inside(&values);
    return nullptr;
}

/// Threads that enter and end, until there are this many records. The id of a thread lies in its
/// stack, so each gets a stack of its own.
void AddRecordsUpTo(std::size_t count)
{
    constexpr std::size_t STACK = 65536;
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    const std::size_t bytes = STACK * (count - records.size());
    char* const stacks =
        static_cast<char*>(mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    for (std::size_t offset = 0; offset < bytes; offset += STACK) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstack(&attributes, stacks + offset, STACK);
        pthread_t thread{};
        pthread_create(&thread, &attributes, EnterOnce, nullptr);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
        madvise(stacks + offset, STACK, MADV_DONTNEED); // its place stays taken
    }
}

/// `body` once for all records.
template <class Run>
Body ForAll(int records, Run run)
{
    return [records, run](benchmark::State& state) {
        while (state.KeepRunningBatch(records)) {
            run();
        }
    };
}

} // namespace

void MeasureThreadMonitor()
{
    for (const int threads : {1, 2, 8}) {
        for (const int values : {0, 4, 16}) {
            MeasureEntries(values, threads);
        }
    }
}

void MeasureStatistics()
{
    const auto statistics = [](const std::string& records) {
        return "statistics, a record of " + records;
    };
    const auto copies = [](const std::string& records) {
        return "GetEmsThreadInfo, a record of " + records;
    };

    for (const auto& [records, text] : {std::pair(10, "10"), std::pair(100, "100"),
                                        std::pair(1000, "1,000"), std::pair(10000, "10,000")}) {
        AddRecordsUpTo(static_cast<std::size_t>(records));
        std::list<EmsThreadInfo> infos;
        GetEmsThreadInfo(infos, 0);
        Monitor<AceLock> bare;
        for (const EmsThreadInfo& info : infos) {
            bare.Add(info);
        }
        std::vector<Row> rows = {
            Ours(ForAll(records, StatEmsThreadInfo)),
            Floor(ForAll(records, [&bare] { bare.Statistics(AppendRecord); })),
        };
#ifdef BENCH_HAS_FMT
        rows.push_back(
            Rival("fmt::format_to", ForAll(records, [&bare] { bare.Statistics(FormatRecord); })));
#endif
        Compare({statistics(text), 1.3}, rows);
        Compare({copies(text), 1.3}, {Ours(ForAll(records,
                                                  [] {
                                                      std::list<EmsThreadInfo> copied;
                                                      GetEmsThreadInfo(copied, 0);
                                                  })),
                                      Floor(ForAll(records, [&bare] {
                                          std::list<EmsThreadInfo> copied;
                                          bare.Copy(copied);
                                      }))});
    }
    CompareGrowth(statistics("10"), statistics("10,000"), 2);
    CompareGrowth(copies("10"), copies("10,000"), 2);
}

} // namespace bench
