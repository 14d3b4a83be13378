#include "host/soak.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"
#include "host/temporary_install.h"
#include "soak/load.h"

namespace emshost {

namespace {

using namespace std::chrono_literals;
using NSQN_EMSUTIL_AGENT::string_format;

constexpr std::size_t THREADS = 3; // of each load

std::uint64_t ResidentKiB()
{
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

std::uint64_t CountEntries(const char* directory)
{
    std::error_code failure; // the count is then 0, which is reported
    const std::filesystem::directory_iterator entries(directory, failure);
    return static_cast<std::uint64_t>(std::distance(begin(entries), {}));
}

/// What the process holds: the highest samples, because a list of samples would grow.
struct Gauge
{
    const char* what = nullptr;
    std::uint64_t (*read)() = nullptr;
    std::uint64_t tolerance = 0;
    std::uint64_t secondQuarter = 0; // of the time
    std::uint64_t secondHalf = 0;
};

/// Returns `isWell`.
bool PrintRow(const char* what, std::uint64_t first, std::uint64_t second, bool isWell)
{
    Print(string_format("%-28s %15" PRIu64 " %15" PRIu64 "  %s", what, first, second,
                        isWell ? "yes" : "NO"));
    if (!isWell) {
        Message(string_format("emshost: soak: %s: %" PRIu64 ", %" PRIu64, what, first, second));
    }
    return isWell;
}

} // namespace

int Soak(std::chrono::seconds time, const std::stop_token& stop)
{
    const TemporaryInstall install;
    static soak::Count unexpected = 0; // debug lines may come until the process has ended
    emsstandin::SetDebugCallback([](emsstandin::DebugOperation, int, const std::string& text) {
        if (!soak::CountDebugLine(text)) {
            ++unexpected;
            DebugLine(text);
        }
    });
    Gauge gauges[] = {
        {"memory, KiB", ResidentKiB, 1024}, // and a tenth: it moves up and down a little
        // Each thread that writes reports may have the file open.
        {"descriptors", [] { return CountEntries("/proc/self/fd"); }, THREADS},
        {"threads", [] { return CountEntries("/proc/self/task"); }},
    };
    const auto loads = soak::AllLoads();
    const auto start = std::chrono::steady_clock::now();
    auto latest = 0s;
    std::atomic<bool> isOver = false;
    const auto pause = [&isOver](std::size_t) {
        std::this_thread::sleep_for(1ms);
        return !isOver;
    };
    soak::Run(loads, THREADS, pause, [&] {
        std::this_thread::sleep_for(1ms);
        const auto elapsed = floor<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
        isOver = elapsed >= time || stop.stop_requested();
        if (elapsed == std::exchange(latest, elapsed)) {
            return;
        }
        if (::isatty(STDERR_FILENO) == 1) {
            std::fprintf(stderr, elapsed < time ? "\rsoak: %lld of %lld s " : "\r\033[K",
                         static_cast<long long>(elapsed.count()),
                         static_cast<long long>(time.count()));
        }
        if (elapsed * 4 >= time && !isOver) {
            for (Gauge& gauge : gauges) {
                auto& highest = elapsed * 2 < time ? gauge.secondQuarter : gauge.secondHalf;
                highest = std::max(highest, gauge.read());
            }
        }
    });

    bool isWell = true;
    Print(string_format("%-28s %15s %15s  ok", "service", "done", "seen"));
    for (const soak::Load& load : loads) {
        load.finish();
        for (const soak::Total* total : load.totals) {
            isWell &= PrintRow(total->what, total->done, total->seen, total->IsExact());
        }
    }
    isWell &= PrintRow("debug lines not expected", 0, unexpected, unexpected == 0);
    if (!stop.stop_requested()) {
        Print(string_format("%-28s %15s %15s  ok", "highest of", "2nd quarter", "2nd half"));
        for (const auto& [what, read, tolerance, earlier, later] : gauges) {
            const std::uint64_t most =
                earlier + tolerance + (read == ResidentKiB ? earlier / 10 : 0);
            isWell &= PrintRow(what, earlier, later, later > 0 && later <= most);
        }
    }
    Flush();
    return isWell && !IsAnyLost() ? 0 : 1;
}

} // namespace emshost
