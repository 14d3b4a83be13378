#include "host/host.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <stdexcept>
#include <utility>

#include <unistd.h>

#include "emsutil/diagnostics.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::size_t DEEPEST_NESTING = 16;

/// In the order of Host::Count.
constexpr const char* COUNT_NAMES[] = {"read",
                                       "added_by_handlers",
                                       "run",
                                       "without_a_handler",
                                       "bad_lines",
                                       "failed_commands",
                                       "scripts_that_could_not_be_read"};

constinit Host* g_pHost = nullptr;

} // namespace

Host::Host(const HostOptions& options, std::stop_source stop)
    : m_Options(options), m_Stop(std::move(stop)), m_Workers(options.workers, StopToken())
{
    g_pHost = this;
}

int Host::Run(const std::vector<std::string>& scripts)
{
    m_bInteractive = scripts == std::vector<std::string>{"-"} && ::isatty(STDIN_FILENO) == 1 &&
                     ::isatty(STDOUT_FILENO) == 1;
    if (m_bInteractive) {
        Print("help lists the commands, and Ctrl-D ends the process.");
    }
    for (const std::string& script : scripts) {
        if (m_Stop.stop_requested()) {
            break;
        }
        try {
            RunScript(script);
        } catch (const std::exception& failure) {
            Report(UNREAD, failure.what());
        }
    }
    m_Workers.End();
    for (; !m_AtEnd.empty(); m_AtEnd.pop_back()) {
        m_AtEnd.back()();
    }
    Flush();
    if (!m_bInteractive) {
        Message(Summary());
    }
    const bool isWell = m_Counts[BAD_LINES] + m_Counts[FAILED] + m_Counts[UNREAD] == 0;
    return isWell && !IsAnyLost() ? m_nQuitStatus : 1;
}

void Host::RunScript(const std::string& path)
{
    CheckNesting();
    LineReader script(path, StopToken(), m_bInteractive && path == "-");
    for (const LineReader* const other : m_Scripts) { // a script that runs itself might never end
        if (script.IsSameFile(*other)) {
            throw std::runtime_error(path + " is being run already");
        }
    }
    m_Scripts.push_back(&script);
    try {
        ReadLines(script);
    } catch (...) {
        m_Scripts.pop_back();
        throw;
    }
    m_Scripts.pop_back();
}

void Host::ReadLines(LineReader& script)
{
    EmsGeneralCmd cmd;
    for (std::string line; !m_Stop.stop_requested();) {
        try {
            if (!script.Next(line)) {
                return;
            }
            if (ParseCommand(line, cmd)) {
                Deliver(cmd, READ);
            }
        } catch (const BadLine& bad) {
            Report(BAD_LINES, script.Where() + ": " + bad.what());
        }
    }
}

void Host::Deliver(EmsGeneralCmd& cmd, Count count)
{
    ++m_Counts.at(count);
    if (FindCommand(cmd.name) == nullptr) {
        Report(UNKNOWN, Script().Where() + ": " + Unknown(cmd.name, CommandNames()));
        return;
    }
    const std::uint64_t before = m_Counts[RUN];
    addGeneralCmd(cmd);
    runGeneralCmd();
    if (m_Counts[RUN] == before) {
        Report(FAILED, Script().Where() + ": " + cmd.name + ": not run: out of memory");
    }
}

int Host::Dispatch(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    g_pHost->RunCommand(*cmd);
    return 0;
}

void Host::RunCommand(EmsGeneralCmd& cmd)
{
    ++m_Counts[RUN];
    ++m_nDepth;
    const Command& command = *FindCommand(cmd.name);
    const Call call{*this, cmd};
    try {
        command.Complete(cmd);
        command.function(call);
    } catch (const std::exception& failure) {
        Report(FAILED, call.Where() + ": " + failure.what());
    }
    --m_nDepth;
}

void Host::CheckNesting() const
{
    if (m_nDepth > DEEPEST_NESTING) {
        throw std::runtime_error(string_format("nested more than %zu deep", DEEPEST_NESTING));
    }
}

void Host::Report(Count kind, const std::string& message)
{
    ++m_Counts.at(kind);
    Message(message);
    if (m_Options.strict && kind != UNKNOWN) {
        m_Stop.request_stop();
    }
}

void Host::Quit(int status)
{
    m_nQuitStatus = status;
    m_Stop.request_stop();
}

void Host::Pause(int milliseconds)
{
    Flush();
    Sleep(StopToken(), milliseconds);
}

std::string Host::Summary() const
{
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_Start;
    const auto run = static_cast<double>(m_Counts[RUN]);
    Json rows;
    for (std::size_t count = 0; count < COUNTS; ++count) {
        rows[COUNT_NAMES[count]] = m_Counts.at(count);
    }
    rows["seconds"] = std::round(elapsed.count() * 1000) / 1000;
    rows["commands_per_second"] = std::llround(run / elapsed.count());
    if (m_Options.json) {
        return Json{{"summary", rows}}.dump();
    }
    std::string table;
    for (const auto& [name, value] : rows.items()) {
        std::string label = name;
        std::ranges::replace(label, '_', ' ');
        table += string_format("%-30s %10s\n", label.c_str(), value.dump().c_str());
    }
    return table;
}

void Host::PrintRow(const Json& row, const std::string& text) const
{
    Print(m_Options.json ? row.dump(-1, ' ', false, Json::error_handler_t::replace) : text);
}

} // namespace emshost
