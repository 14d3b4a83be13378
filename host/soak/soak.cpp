#include "host/soak/soak.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"
#include "host/soak/debug_lines.h"
#include "host/soak/load.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// What the process holds. Nothing here keeps any of it.
struct Holding
{
    std::uint64_t m_nMemoryKiB = 0; // that is resident
    std::uint64_t m_nDescriptors = 0;
    std::uint64_t m_nThreads = 0;

    static Holding Now()
    {
        Holding now;
        std::uint64_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        now.m_nMemoryKiB = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        now.m_nDescriptors = static_cast<std::uint64_t>(std::distance(begin(descriptors), {})) - 1;
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            if (word == "Threads:") {
                status >> now.m_nThreads;
                break;
            }
        }
        return now;
    }

    /// Of two, the higher of each.
    void Raise(const Holding& other)
    {
        m_nMemoryKiB = std::max(m_nMemoryKiB, other.m_nMemoryKiB);
        m_nDescriptors = std::max(m_nDescriptors, other.m_nDescriptors);
        m_nThreads = std::max(m_nThreads, other.m_nThreads);
    }
};

/// Samples what the process holds each second. The first quarter of the time is the warm-up; of
/// the second quarter and of the second half it keeps the highest, and nothing else: a list of
/// samples would grow.
class Gauge
{
public:
    explicit Gauge(std::chrono::seconds time) : m_Time(time) {}

    /// Takes a sample when a second has gone by. One that is not complete when the time is over
    /// does not count: threads may have ended meanwhile.
    void Look()
    {
        if (Elapsed() < m_Next) {
            return;
        }
        const Holding now = Holding::Now();
        const auto elapsed = Elapsed();
        m_Next = std::chrono::floor<std::chrono::seconds>(elapsed) + 1s;
        if (elapsed < m_Time / 4 || elapsed >= m_Time) {
            return;
        }
        (elapsed < m_Time / 2 ? m_SecondQuarter : m_SecondHalf).Raise(now);
    }

    Clock::duration Elapsed() const { return Clock::now() - m_Start; }
    const Holding& SecondQuarter() const { return m_SecondQuarter; }
    const Holding& SecondHalf() const { return m_SecondHalf; }

private:
    const Clock::time_point m_Start = Clock::now();
    const Clock::duration m_Time;
    Clock::duration m_Next = 1s;
    Holding m_SecondQuarter;
    Holding m_SecondHalf;
};

/// Prints a table of two numbers a line, and says what is wrong.
class Verdict
{
public:
    void PrintHead(const char* what, const char* first, const char* second)
    {
        Console::Instance().Print(string_format("%-28s %15s %15s  ok", what, first, second));
    }

    void PrintLine(const std::string& what, std::uint64_t first, std::uint64_t second, bool ok)
    {
        Console::Instance().Print(string_format("%-28s %15" PRIu64 " %15" PRIu64 "  %s",
                                                what.c_str(), first, second, ok ? "yes" : "NO"));
        if (!ok) {
            m_Faults.push_back(string_format("emshost: soak: %s is off: %" PRIu64 ", %" PRIu64,
                                             what.c_str(), first, second));
        }
    }

    /// Writes the messages behind the table. Returns the exit status.
    int End() const
    {
        Console& console = Console::Instance();
        console.Flush();
        for (const std::string& fault : m_Faults) {
            console.Message(fault);
        }
        return m_Faults.empty() && !console.IsOutputLost() ? 0 : 1;
    }

private:
    std::vector<std::string> m_Faults;
};

void RunThreads(const std::vector<std::unique_ptr<SoakLoad>>& loads, const Gauge& gauge,
                std::chrono::seconds time)
{
    SoakLoad::Stop stop = false;
    std::vector<std::thread> threads;
    for (const auto& load : loads) {
        for (SoakLoad::Work& work : load->Works()) {
            threads.emplace_back(std::move(work), std::cref(stop));
        }
    }
    while (gauge.Elapsed() < time) {
        std::this_thread::sleep_for(100ms);
        Console::Instance().Progress([&] {
            const auto seconds = std::chrono::floor<std::chrono::seconds>(gauge.Elapsed());
            return string_format("soak: %lld of %lld s", static_cast<long long>(seconds.count()),
                                 static_cast<long long>(time.count()));
        });
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Fragments of the heap move what is resident up and down a little; a leak goes up only.
bool IsFlat(std::uint64_t earlier, std::uint64_t later)
{
    return later > 0 && later <= earlier + earlier / 10 + 1024;
}

} // namespace

int Soak(std::chrono::seconds time)
{
    Gauge gauge(time);
    DebugLines::Instance().Collect();
    std::vector<std::unique_ptr<SoakLoad>> loads;
    loads.push_back(MakeCommandLoad());
    loads.push_back(MakeMonitorLoad());
    loads.push_back(MakeTimerLoad());
    loads.push_back(MakeLogLoad());
    loads.push_back(MakeReportLoad([&gauge] { gauge.Look(); }));
    loads.push_back(MakeGuardLoad());
    loads.push_back(MakeLockErrorLoad());
    RunThreads(loads, gauge, time);

    Verdict verdict;
    verdict.PrintHead("service", "done", "seen");
    for (const auto& load : loads) {
        for (const auto& [what, done, seen] : load->Finish()) {
            verdict.PrintLine(what, done, seen, done == seen && done > 0);
        }
    }
    const Holding& earlier = gauge.SecondQuarter();
    const Holding& later = gauge.SecondHalf();
    verdict.PrintHead("highest of", "2nd quarter", "2nd half");
    verdict.PrintLine("memory, KiB", earlier.m_nMemoryKiB, later.m_nMemoryKiB,
                      IsFlat(earlier.m_nMemoryKiB, later.m_nMemoryKiB));
    verdict.PrintLine("descriptors", earlier.m_nDescriptors, later.m_nDescriptors,
                      earlier.m_nDescriptors == later.m_nDescriptors);
    verdict.PrintLine("threads", earlier.m_nThreads, later.m_nThreads,
                      earlier.m_nThreads == later.m_nThreads);
    return verdict.End();
}

} // namespace emshost
