#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"
#include "host/handlers.h"
#include "host/temporary_install.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

namespace fs = std::filesystem;

constexpr int LONGEST_STRETCH_MS = 60000;
constexpr int MOST_LINES = 1000;
constexpr std::size_t LONGEST_TEXT = 510; // a message's limit, less the line end

void Guard(Host& host, EmsGeneralCmd& cmd)
{
    const auto text = TextOf(FindPair(cmd, "text"));
    const auto time = IntOf(FindPair(cmd, "ms"), 0, LONGEST_STRETCH_MS);
    if (!text || !time) {
        host.ReportBadCommand(
            cmd, string_format("needs text=TEXT and ms:long=N, at most %d", LONGEST_STRETCH_MS));
        return;
    }
    Console::Instance().Flush(); // whoever watches sees what led here
    const AgentTimeGuard guard("%s", text->c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(*time));
}

/// The library's report file, which it settles on at the first entry. Of the main thread.
std::optional<fs::path>& SettledReportFile()
{
    static auto* const path = new std::optional<fs::path>;
    return *path;
}

fs::path ReportFile()
{
    return SettledReportFile().value_or(NSQN_util::GetParentPath(NSQN_util::GetEKORPath()) +
                                        "../var/dump/" + NSQN_util::g_ProcName + ".rpt");
}

std::uintmax_t SizeOf(const fs::path& file)
{
    std::error_code error;
    const std::uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

/// Why the report file cannot be used.
std::string WhyNot(const fs::path& file)
{
    std::error_code error;
    return fs::is_directory(file.parent_path(), error)
               ? file.string() + " is not there, or cannot be read or written as a file"
               : "there is no folder " + file.parent_path().string();
}

void Install(Host& host, EmsGeneralCmd& cmd)
{
    if (const auto& file = SettledReportFile()) {
        host.ReportBadCommand(cmd, "the report file is " + file->string() + " already");
        return;
    }
    try {
        const auto install = std::make_shared<TemporaryInstall>();
        host.AtEnd([install] {}); // it is there until then
        Console::Instance().Print("install path " + install->InstallPath());
    } catch (const std::system_error& failure) {
        host.ReportBadCommand(cmd, failure.what());
    }
}

/// The library does not tell whether it has written.
template <void (*Write)(const char* format, ...)>
void WriteEntry(Host& host, EmsGeneralCmd& cmd)
{
    const auto text = TextOf(FindPair(cmd, "text"));
    if (!text || text->size() > LONGEST_TEXT) {
        host.ReportBadCommand(cmd,
                              string_format("needs text=TEXT, at most %zu bytes", LONGEST_TEXT));
        return;
    }
    const fs::path file = ReportFile();
    SettledReportFile() = file;
    const std::uintmax_t before = SizeOf(file);
    Write("%s\n", text->c_str());
    if (SizeOf(file) == before) {
        host.ReportBadCommand(cmd, "nothing is written: " + WhyNot(file));
    }
}

void Tail(Host& host, EmsGeneralCmd& cmd)
{
    const auto most = IntOf(FindPair(cmd, "lines"), 1, MOST_LINES);
    if (!most) {
        host.ReportBadCommand(cmd, string_format("needs lines:long=N from 1 to %d", MOST_LINES));
        return;
    }
    const fs::path path = ReportFile();
    std::ifstream file(path);
    if (!file || !fs::is_regular_file(path)) { // a device may never end
        host.ReportBadCommand(cmd, WhyNot(path));
        return;
    }
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(std::move(line));
        if (lines.size() > static_cast<std::size_t>(*most)) {
            lines.pop_front();
        }
    }
    for (const std::string& line : lines) {
        Console::Instance().Print(line);
    }
}

const HandlerTable g_Handlers = {
    {"guard", Handler<Guard>,
     "text=TEXT ms:long=N: waits for N milliseconds under a time guard, which writes debug lines"},
    {"install", Handler<Install>,
     "sets the install path to a temporary folder, with room for the report file; removed at the "
     "end"},
    {"report", Handler<WriteEntry<EmsUtilReport>>,
     "text=TEXT: appends a line to the report file, with the time in front"},
    {"tail", Handler<Tail>, "lines:long=N: prints the last N lines of the report file"},
    {"trace", Handler<WriteEntry<EmsUtilTraced>>, "text=TEXT: appends a line to the report file"},
};

} // namespace

} // namespace emshost
