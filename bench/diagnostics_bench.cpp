#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <unistd.h>

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#ifdef BENCH_HAS_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include <emsstandin/setup.h>

#include "bench/measure.h"
#include "emsutil/diagnostics.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int PORT = 4711;

/// A buffer that doubles from 512 bytes until the text fits, as string_format() has it, over the C
/// library's own formatter.
[[gnu::format(printf, 1, 2)]] std::string BareLoop(const char* format, ...)
{
    std::string text;
    for (std::size_t size = 512;; size *= 2) {
        text.resize(size);
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(text.data(), size, format, args);
        va_end(args);
        if (length >= 0 && static_cast<std::size_t>(length) < size) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
    }
}

/// `format()` returns the text.
template <class Format>
Body FormatText(const std::string& text, Format format)
{
    return [text, format](benchmark::State& state) {
        std::string formatted;
        Measure(state, [&] { benchmark::DoNotOptimize(formatted = format()); });
        Check(state, formatted == text);
    };
}

void AddLength(std::size_t length, const std::string& name, double goal)
{
    const std::string operation = "string_format, " + name + " characters";
    const std::string begin = "alpha on port 4711: ";
    const std::string rest(length - begin.size(), 'x');
    Ours(operation, FormatText(begin + rest, [rest] {
             return string_format("%s on port %d: %s", "alpha", PORT, rest.c_str());
         }));
    Floor(operation, goal, FormatText(begin + rest, [rest] {
              return BareLoop("%s on port %d: %s", "alpha", PORT, rest.c_str());
          }));
#ifdef BENCH_HAS_SPDLOG
    Peer(operation, "fmt::format", 0, FormatText(begin + rest, [rest] {
             return fmt::format("{} on port {}: {}", "alpha", PORT, rest.c_str());
         }));
#endif
}

/// This process's installation. Its report files are in "var/dump".
const std::filesystem::path g_Directory =
    std::filesystem::temp_directory_path() / ("emsutil_bench." + std::to_string(getpid()));

/// Measures `write`, which appends an entry to the only file in the directory of report files.
template <class Write>
void MeasureReport(benchmark::State& state, Write write)
{
    std::filesystem::create_directories(g_Directory / "var/dump");
    Measure(state, write);
    std::string text;
    std::ifstream file(std::filesystem::directory_iterator(g_Directory / "var/dump")->path());
    std::getline(file, text, '\0');
    Check(state, text.ends_with("alpha on port 4711\n"));
    std::filesystem::remove_all(g_Directory);
}

void WriteBareEntry(const char* path)
{
    static ACE_Thread_Mutex lock;
    char message[512] = {};
    const int length = std::snprintf(message, sizeof message, "%s on port %d\n", "alpha", PORT);
    const ACE_Guard<ACE_Thread_Mutex> guard(lock);
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
    const time_t now = time(nullptr);
    char stamp[26] = {};
    ctime_r(&now, stamp);
    [[maybe_unused]] const ssize_t written =
        write(file, stamp, 24) + write(file, message, static_cast<std::size_t>(length));
    close(file);
}

void TimeABlock()
{
    const AgentTimeGuard guard("loading %s on port %d", "alpha", PORT);
}

} // namespace

void AddDiagnostics()
{
    const std::string integer = "string_format, an integer";
    Ours(integer, FormatText("4711", [] { return string_format("%d", PORT); }));
    Floor(integer, 1.05, FormatText("4711", [] { return BareLoop("%d", PORT); }));
#ifdef BENCH_HAS_SPDLOG
    Peer(integer, "fmt::format", 0, FormatText("4711", [] { return fmt::format("{}", PORT); }));
#endif
    AddLength(40, "40", 1.05);
    AddLength(5000, "5,000", 0.2);
    AddLength(500000, "500,000", 1.1);
    Ours("write a report entry", [](benchmark::State& state) {
        emsstandin::SetInstallPath(g_Directory / "var/install");
        MeasureReport(state, [] { EmsUtilReport("%s on port %d\n", "alpha", PORT); });
    });
    Floor("write a report entry", 1.05, [](benchmark::State& state) {
        const std::string path = g_Directory / "var/../var/dump/bare.rpt";
        MeasureReport(state, [&] { WriteBareEntry(path.c_str()); });
    });
#ifdef BENCH_HAS_SPDLOG
    Peer("write a report entry", "spdlog, flushed", 1, [](benchmark::State& state) {
        using Sink = spdlog::sinks::basic_file_sink_mt;
        spdlog::logger logger("file", std::make_shared<Sink>(g_Directory / "var/dump/log"));
        logger.flush_on(spdlog::level::info);
        MeasureReport(state, [&] { logger.info("alpha on port {}", PORT); });
    });
#endif
    Ours("time a block", [](benchmark::State& state) {
        Measure(state, TimeABlock);
        const std::string text = DebugText(TimeABlock);
        Check(state, text.find("loading alpha on port 4711") != std::string::npos &&
                         text.find("used time(ms): ") != std::string::npos);
    });
}
