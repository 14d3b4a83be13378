#include "host/soak.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include <unistd.h>

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"
#include "host/temporary_install.h"
#include "soak/load.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// What the process holds.
constexpr std::array<const char*, 3> HELD = {"memory, KiB", "descriptors", "threads"};
using Holding = std::array<std::uint64_t, HELD.size()>;

Holding HeldNow()
{
    Holding now = {};
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    now[0] = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
    std::error_code failure; // without a descriptor to be had the count is 0, which is reported
    const std::filesystem::directory_iterator descriptors("/proc/self/fd", failure);
    now[1] = static_cast<std::uint64_t>(std::distance(begin(descriptors), {}));
    const std::filesystem::directory_iterator threads("/proc/self/task", failure);
    now[2] = static_cast<std::uint64_t>(std::distance(begin(threads), {}));
    return now;
}

/// Samples each second, and keeps the highest of the second quarter and of the second half of the
/// time: a list of samples would grow.
class Gauge
{
public:
    explicit Gauge(std::chrono::seconds time) : m_Time(time) {}

    /// A sample that is complete only after the time does not count: threads may have ended.
    void Sample()
    {
        if (Elapsed() < m_Next) {
            return;
        }
        const Holding now = HeldNow();
        const auto elapsed = Elapsed();
        m_Next = std::chrono::floor<std::chrono::seconds>(elapsed) + 1s;
        if (elapsed >= m_Time / 4 && elapsed < m_Time) {
            Holding& highest = elapsed < m_Time / 2 ? m_SecondQuarter : m_SecondHalf;
            for (std::size_t i = 0; i < highest.size(); ++i) {
                highest.at(i) = std::max(highest.at(i), now.at(i));
            }
        }
    }

    Clock::duration Elapsed() const { return Clock::now() - m_Start; }

    Holding m_SecondQuarter = {};
    Holding m_SecondHalf = {};

private:
    const Clock::time_point m_Start = Clock::now();
    const Clock::duration m_Time;
    Clock::duration m_Next = 1s;
};

void PrintHead(const char* what, const char* first, const char* second)
{
    Console::Instance().Print(string_format("%-28s %15s %15s  ok", what, first, second));
}

/// Returns `isWell`.
bool PrintRow(const std::string& what, std::uint64_t first, std::uint64_t second, bool isWell)
{
    Console::Instance().Print(string_format("%-28s %15" PRIu64 " %15" PRIu64 "  %s", what.c_str(),
                                            first, second, isWell ? "yes" : "NO"));
    if (!isWell) {
        Console::Instance().Message(
            string_format("emshost: soak: %s: %" PRIu64 ", %" PRIu64, what.c_str(), first, second));
    }
    return isWell;
}

/// What is resident moves up and down a little; a leak only goes up.
bool IsFlat(std::size_t index, std::uint64_t earlier, std::uint64_t later)
{
    const std::uint64_t tolerance = index == 0 ? earlier / 10 + 1024 : 0;
    return later > 0 && later <= earlier + tolerance;
}

} // namespace

int Soak(std::chrono::seconds time, const std::stop_token& stop)
{
    const TemporaryInstall install;
    Gauge gauge(time);
    soak::Count unexpected = 0;
    emsstandin::SetDebugCallback([&](emsstandin::DebugOperation, int, const std::string& text) {
        if (!soak::CountDebugLine(text)) {
            ++unexpected;
            Console::Instance().DebugLine(text);
        }
    });
    const std::vector<soak::Load> loads = soak::AllLoads(3, [&gauge] { gauge.Sample(); });
    soak::Pace pace;
    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    soak::Run(loads, pace, [&] {
        std::mutex mutex;
        std::condition_variable_any stopped;
        std::unique_lock lock(mutex);
        while (gauge.Elapsed() < time && !stop.stop_requested()) {
            stopped.wait_for(lock, stop, 1s, [] { return false; });
            if (terminal) {
                std::fprintf(stderr, "\rsoak: %.0f of %lld s ",
                             std::chrono::duration<double>(gauge.Elapsed()).count(),
                             static_cast<long long>(time.count()));
            }
        }
    });
    if (terminal) {
        std::fputs("\r\033[K", stderr);
    }

    bool allWell = true;
    PrintHead("service", "done", "seen");
    for (const soak::Load& load : loads) {
        for (const soak::Total& total : load.finish()) {
            allWell &= PrintRow(total.what, total.done, total.seen, total.IsExact());
        }
    }
    allWell &= PrintRow("debug lines not expected", 0, unexpected, unexpected == 0);
    if (!stop.stop_requested()) {
        PrintHead("highest of", "2nd quarter", "2nd half");
        for (std::size_t i = 0; i < HELD.size(); ++i) {
            const std::uint64_t earlier = gauge.m_SecondQuarter.at(i);
            const std::uint64_t later = gauge.m_SecondHalf.at(i);
            allWell &= PrintRow(HELD.at(i), earlier, later, IsFlat(i, earlier, later));
        }
    }
    Console::Instance().Flush();
    emsstandin::SetDebugCallback({});
    return allWell && !Console::Instance().IsOutputLost() ? 0 : 1;
}

} // namespace emshost
