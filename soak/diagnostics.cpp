#include "emsutil/diagnostics.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <utility>

#include <emsplatform/platform.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::size_t STAMP = 24; // characters in front of a report

struct Writer
{
    std::uint64_t number = 0;   // of the next entry, for the writer
    std::uint64_t expected = 0; // the same, for the check
};

struct State
{
    std::shared_mutex file; // shared by the threads that write, exclusive for the check
    std::vector<Writer> writers;
    Count written = 0;
    std::uint64_t whole = 0; // for the check
};

bool IsReport(std::uint64_t number)
{
    return number % 2 == 0;
}

std::string Entry(std::size_t writer, std::uint64_t number)
{
    return "writer " + std::to_string(writer) + " entry " + std::to_string(number);
}

void Write(State& state, std::size_t writer)
{
    const std::shared_lock lock(state.file);
    const std::uint64_t number = state.writers[writer].number++;
    const std::string entry = Entry(writer, number);
    (IsReport(number) ? EmsUtilReport : EmsUtilTraced)("%s\n", entry.c_str());
    ++state.written;
}

bool IsNextEntry(State& state, std::string_view line)
{
    for (std::size_t writer = 0; writer < state.writers.size(); ++writer) {
        std::uint64_t& expected = state.writers[writer].expected;
        const std::string entry = Entry(writer, expected);
        const std::size_t stamp = IsReport(expected) ? STAMP : 0;
        if (line.ends_with(entry) && line.size() == entry.size() + stamp) {
            ++expected;
            return true;
        }
    }
    return false;
}

/// Checks the report file line by line and removes it.
void CheckFile(State& state, const std::function<void()>& atRest)
{
    const std::unique_lock lock(state.file);
    const std::string path = NSQN_util::GetParentPath(NSQN_util::GetEKORPath()) + "../var/dump/" +
                             NSQN_util::g_ProcName + ".rpt";
    {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            state.whole += !file.eof() && IsNextEntry(state, line) ? 1 : 0;
        }
    }
    std::error_code missing; // shows as entries that are missing
    std::filesystem::remove(path, missing);
    atRest();
}

} // namespace

/// Threads write reports and traces. The first checks the file after each of its bursts.
Load ReportLoad(int threads, std::function<void()> atRest)
{
    const auto state = std::make_shared<State>();
    state->writers.resize(static_cast<std::size_t>(threads));
    return {[state](int thread) { Write(*state, static_cast<std::size_t>(thread)); },
            [state]() -> std::vector<Total> {
                CheckFile(*state, [] {});
                return {{"report entries whole", state->written, state->whole}};
            },
            [state, atRest = std::move(atRest)](int thread) {
                if (thread == 0) {
                    CheckFile(*state, atRest);
                }
            }};
}

/// Threads guard their time.
Load TimeGuardLoad()
{
    const auto guards = std::make_shared<Count>(0);
    const auto step = [guards](int thread) {
        const AgentTimeGuard guard("soak guard %d", thread);
        ++*guards;
    };
    return {step, [guards]() -> std::vector<Total> {
                return {{"time guards, their lines", 2 * *guards, g_DebugLines.guard}};
            }};
}

} // namespace soak
