#include "emsutil/diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>
#include <emsstandin/setup.h>

#include "host/host.h"
#include "host/temporary_install.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t LONGEST_ENTRY = 510; // the library's limit without the line end
constexpr std::int64_t LONGEST_GUARD = 511; // the library's limit

// For the main thread.
std::optional<fs::path> g_ReportFile; // which the library decides on at the first entry
bool g_bTemporary = false;

fs::path ReportFile()
{
    return g_ReportFile.value_or(NSQN_util::GetParentPath(NSQN_util::GetEKORPath()) +
                                 "../var/dump/" + NSQN_util::g_ProcName + ".rpt");
}

void Install(const Call& call)
{
    if (g_ReportFile) {
        throw std::runtime_error("the report file is " + g_ReportFile->string() + " already");
    }
    const auto install = std::make_shared<TemporaryInstall>();
    call.m_Host.AtEnd([install] {}); // keeps it until then
    g_bTemporary = true;
    Print("install path " + NSQN_util::GetEKORPath());
}

std::uintmax_t SizeOf(const fs::path& file)
{
    std::error_code missing;
    const std::uintmax_t size = fs::file_size(file, missing);
    return missing ? 0 : size;
}

/// The library does not report whether it has written.
template <void (*Write)(const char* format, ...)>
void WriteEntry(const Call& call)
{
    const fs::path file = ReportFile();
    const std::uintmax_t before = SizeOf(file);
    Write("%s\n", call.Text("text").c_str());
    const bool isFirst = !std::exchange(g_ReportFile, file);
    if (SizeOf(file) <= before + call.Text("text").size()) {
        // The attempt to write a line end shows the reason. A device has no size.
        const bool canWrite = !std::ofstream(file, std::ios::app).put('\n').flush().fail();
        const std::string reason = canWrite
                                       ? "reason unknown, a line end could be written afterwards"
                                       : std::generic_category().message(errno);
        if (!canWrite || fs::is_regular_file(file)) {
            throw std::runtime_error("not written: " + file.string() + ": " + reason);
        }
    }
    if (isFirst && !g_bTemporary) {
        Message(call.Where() + ": the report file is " + file.string());
    }
}

void Tail(const Call& call)
{
    const fs::path path = ReportFile();
    errno = 0;
    std::ifstream file(path);
    if (!file || !fs::is_regular_file(path)) { // a device may never end
        throw std::system_error(errno != 0 ? errno : EINVAL, std::generic_category(), path);
    }
    std::deque<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(std::move(line));
        if (lines.size() > call.Number<std::size_t>("lines")) {
            lines.pop_front();
        }
    }
    std::ranges::for_each(lines, Print);
}

void Guard(const Call& call)
{
    const AgentTimeGuard guard("%s", call.Text("text").c_str());
    call.m_Host.Pause(call.Number<int>("ms"));
}

void Debug(const Call& call)
{
    if (NSQN_util::DebugInterface* const debug = GetEmsUtilAgentDebugInterface()) {
        debug->DebugPrint(call.Number<int>("level"), "%s\n", call.Text("text").c_str());
    }
}

const Argument ENTRY = Text("text", "the line", nullptr, LONGEST_ENTRY);

const Service g_Service(
    "Diagnostics",
    {{"debug",
      "Write a debug line.",
      Debug,
      {Text("text", "the line"), Number("level", INT_MIN, INT_MAX, "its level", "1")}},
     {"guard",
      "Wait under a time guard, which writes debug lines.",
      Guard,
      {Text("text", "what the guard is for", nullptr, LONGEST_GUARD),
       Number("ms", 0, 60000, "how long, in milliseconds")}},
     {"install",
      "Create a temporary install path, and a directory for the report file; both are removed when "
      "the process ends.",
      Install},
     {"level",
      "Set the lowest level of the debug lines that are shown, 0 at first.",
      [](const Call& call) { emsstandin::SetLowestDebugLevel(call.Number<int>("value")); },
      {Number("value", INT_MIN, INT_MAX, "the level")}},
     {"report",
      "Append a line to the report file, with the time in front.",
      WriteEntry<EmsUtilReport>,
      {ENTRY}},
     {"tail",
      "Print the last lines of the report file.",
      Tail,
      {Number("lines", 1, 1000, "how many")}},
     {"trace", "Append a line to the report file.", WriteEntry<EmsUtilTraced>, {ENTRY}}});

} // namespace
