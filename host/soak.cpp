#include "host/soak.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
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

constexpr int THREADS = 3; // of each load

/// What the process holds.
constexpr std::array<const char*, 3> HELD = {"memory, KiB", "descriptors", "threads"};
using Holding = std::array<std::uint64_t, HELD.size()>;

Holding HeldNow()
{
    const auto count = [](const char* directory) {
        std::error_code failure; // the count is then 0, which is reported
        const std::filesystem::directory_iterator entries(directory, failure);
        return static_cast<std::uint64_t>(std::distance(begin(entries), {}));
    };
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const auto pageSize = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return {pages * pageSize / 1024, count("/proc/self/fd"), count("/proc/self/task")};
}

/// The highest samples of the second quarter and of the second half of the time: a list of samples
/// would grow.
struct Gauge
{
    const Clock::duration time;
    const Clock::time_point start = Clock::now();
    Clock::duration next = 1s;
    Holding secondQuarter = {};
    Holding secondHalf = {};

    Clock::duration Elapsed() const { return Clock::now() - start; }

    /// Samples each second. A sample that is complete only after the time does not count: threads
    /// may have ended.
    void Sample()
    {
        if (Elapsed() < next) {
            return;
        }
        const Holding now = HeldNow();
        const auto elapsed = Elapsed();
        next = std::chrono::floor<std::chrono::seconds>(elapsed) + 1s;
        if (elapsed >= time / 4 && elapsed < time) {
            Holding& highest = elapsed < time / 2 ? secondQuarter : secondHalf;
            std::ranges::transform(highest, now, highest.begin(), std::ranges::max);
        }
    }
};

void ShowProgress(std::chrono::seconds elapsed, std::chrono::seconds time)
{
    static const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
    static std::chrono::seconds shown = 0s;
    if (isTerminal && elapsed != std::exchange(shown, elapsed)) {
        const bool isOver = elapsed >= time;
        std::fprintf(stderr, isOver ? "\r\033[K" : "\rsoak: %lld of %lld s ",
                     static_cast<long long>(elapsed.count()), static_cast<long long>(time.count()));
    }
}

void PrintHead(const char* what, const char* first, const char* second)
{
    Print(string_format("%-28s %15s %15s  ok", what, first, second));
}

/// Returns `isWell`.
bool PrintRow(const std::string& what, std::uint64_t first, std::uint64_t second, bool isWell)
{
    Print(string_format("%-28s %15" PRIu64 " %15" PRIu64 "  %s", what.c_str(), first, second,
                        isWell ? "yes" : "NO"));
    if (!isWell) {
        Message(
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
    Gauge gauge{time};
    static soak::Count unexpected = 0; // debug lines may come until the process has ended
    emsstandin::SetDebugCallback([](emsstandin::DebugOperation, int, const std::string& text) {
        if (!soak::CountDebugLine(text)) {
            ++unexpected;
            DebugLine(text);
        }
    });
    const auto loads = soak::AllLoads(THREADS, [&gauge] { gauge.Sample(); });
    std::stop_source over;
    soak::Run(loads, THREADS, {.stop = over.get_token()}, [&] {
        const auto elapsed = std::chrono::floor<std::chrono::seconds>(gauge.Elapsed());
        ShowProgress(elapsed, time);
        if (elapsed >= time || stop.stop_requested()) {
            over.request_stop();
        }
    });

    bool isWell = true;
    PrintHead("service", "done", "seen");
    for (const soak::Load& load : loads) {
        for (const soak::Total& total : load.finish()) {
            isWell &= PrintRow(total.what, total.done, total.seen, total.IsExact());
        }
    }
    isWell &= PrintRow("debug lines not expected", 0, unexpected, unexpected == 0);
    if (!stop.stop_requested()) {
        PrintHead("highest of", "2nd quarter", "2nd half");
        for (std::size_t i = 0; i < HELD.size(); ++i) {
            const std::uint64_t earlier = gauge.secondQuarter.at(i);
            const std::uint64_t later = gauge.secondHalf.at(i);
            isWell &= PrintRow(HELD.at(i), earlier, later, IsFlat(i, earlier, later));
        }
    }
    Flush();
    return isWell && !IsAnyLost() ? 0 : 1;
}

} // namespace emshost
