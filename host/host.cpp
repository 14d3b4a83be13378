#include "host/host.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/line_reader.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::size_t DEEPEST_NESTING = 16;
constexpr auto IDLE_BEFORE_FLUSH = std::chrono::milliseconds(50);

/// In the order of Host::Count.
constexpr const char* COUNT_NAMES[] = {"read",
                                       "added_by_handlers",
                                       "run",
                                       "without_a_handler",
                                       "bad_lines",
                                       "failed_commands",
                                       "scripts_that_could_not_be_read",
                                       "skipped_at_the_end"};

constinit Host* g_pHost = nullptr;

/// What cannot be run as a command goes through the queue too, so that its message comes in its
/// turn: as a command of this name, with the message and the kind of fault in its position.
std::string g_strFault = "(fault)";
const RegEmsUtilCmd g_FaultRegistration(g_strFault, Host::Dispatch);

} // namespace

Host::Host(const HostOptions& options, std::stop_source stop)
    : m_Options(options), m_Stop(std::move(stop)), m_Workers(options.workers, StopToken())
{
    g_pHost = this;
}

int Host::Run(const std::vector<std::string>& scripts)
{
    m_bReadsInput = std::ranges::count(scripts, "-") > 0;
    m_bInteractive = scripts == std::vector<std::string>{"-"} && ::isatty(STDIN_FILENO) == 1 &&
                     ::isatty(STDOUT_FILENO) == 1;
    if (m_Options.direct || m_bInteractive) {
        ReadAll(scripts);
    } else {
        const std::jthread reader([&] {
            ReadAll(scripts);
            Announce(m_bAllRead);
        });
        try {
            Drain();
        } catch (...) { // skips what is left, so that the reader does not wait for room
            m_Stop.request_stop();
            Drain();
            throw;
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

void Host::ReadAll(const std::vector<std::string>& scripts)
{
    if (m_bInteractive) {
        Print("help lists the commands, and Ctrl-D ends the process.");
    }
    for (const std::string& script : scripts) {
        try {
            ReadScript(script, false);
        } catch (const std::exception& failure) {
            DeliverFault(UNREAD, failure.what(), false);
        }
    }
}

void Host::ReadScript(const std::string& path, bool nested)
{
    LineReader reader(path, StopToken(), m_bInteractive && !nested);
    EmsGeneralCmd cmd;
    Position position;
    position.name = path;
    for (std::string line; !m_Stop.stop_requested() && !m_bReadEnough;) {
        try {
            if (!reader.Next(line)) {
                return;
            }
            if (ParseCommand(line, cmd)) {
                ++m_Counts[READ];
                position.value = reader.Where();
                Deliver(cmd, position, nested);
            }
        } catch (const BadLine& bad) {
            DeliverFault(BAD_LINES, reader.Where() + ": " + bad.what(), nested);
        }
    }
}

void Host::Deliver(EmsGeneralCmd& cmd, const Position& position, bool nested)
{
    if (position.rtype == READ && FindCommand(cmd.name) == nullptr) {
        const std::string unknown = Unknown(cmd.name, CommandNames());
        DeliverFault(UNKNOWN, position.value + ": " + unknown, nested);
        return;
    }
    cmd.nvtps.nvtps.push_back(position); // RunCommand() removes it
    if (nested || m_Options.direct) {
        runGeneralCmd(cmd);
        return;
    }
    addGeneralCmd(cmd);
    if (m_bInteractive && m_Running.empty()) {
        runGeneralCmd();
        Flush();
    } else {
        Announce(m_bAdded);
    }
}

void Host::DeliverFault(Count kind, const std::string& message, bool nested)
{
    EmsGeneralCmd cmd;
    cmd.name = g_strFault;
    Position fault;
    fault.value = message;
    fault.rtype = kind;
    if (m_Options.strict && kind != UNKNOWN) {
        m_bReadEnough = true;
    }
    Deliver(cmd, fault, nested);
}

/// The reader announces each command after adding it; here the announcement is taken back before
/// draining. So a command that was added before is drained now, and one added later is announced
/// again. A reader that waits for room in the queue has announced all that fills it.
void Host::Drain()
{
    for (bool allRead = false; !allRead;) {
        {
            std::unique_lock lock(m_NewsMutex);
            const auto hasNews = [this] { return m_bAdded || m_bAllRead; };
            if (!m_News.wait_for(lock, IDLE_BEFORE_FLUSH, hasNews)) {
                Flush();
            }
            m_bAdded = false;
            allRead = m_bAllRead;
        }
        runGeneralCmd();
    }
}

void Host::Announce(bool& news)
{
    const std::lock_guard guard(m_NewsMutex);
    if (!std::exchange(news, true)) {
        m_News.notify_all();
    }
}

int Host::Dispatch(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    g_pHost->RunCommand(*cmd);
    return 0;
}

void Host::RunCommand(EmsGeneralCmd& cmd)
{
    auto& pairs = cmd.nvtps.nvtps;
    m_Running.splice(m_Running.end(), pairs, std::prev(pairs.end()));
    const Position& position = m_Running.back();
    if (IsOutputLost()) {
        m_Stop.request_stop();
    }
    const auto fault = static_cast<Count>(position.rtype);
    if (m_Stop.stop_requested()) {
        m_Counts[SKIPPED] += fault == READ || fault == UNKNOWN ? 1 : 0;
    } else if (fault != READ) {
        Report(fault, position.value);
    } else {
        ++m_Counts[RUN];
        const Command& command = *FindCommand(cmd.name);
        const Call call(*this, cmd, position);
        try {
            command.Complete(cmd);
            command.function(call);
        } catch (const std::exception& failure) {
            Report(FAILED, call.Where() + ": " + failure.what());
        }
    }
    m_Running.pop_back();
}

void Host::Report(Count kind, const std::string& message)
{
    ++m_Counts[kind];
    Message(message);
    if (m_Options.strict && kind != UNKNOWN) {
        m_Stop.request_stop();
    }
}

void Host::CheckNesting() const
{
    if (m_Running.size() > DEEPEST_NESTING) {
        throw std::runtime_error(string_format("nested more than %zu deep", DEEPEST_NESTING));
    }
}

void Host::RunScript(const std::string& path)
{
    const auto fileOf = [](const std::string& name) { return name == "-" ? "/dev/stdin" : name; };
    // A script that ran itself twice would run 2^DEEPEST_NESTING times. Two readers of standard
    // input would each get a part of it.
    std::vector<std::string> others;
    std::ranges::transform(m_Running, std::back_inserter(others), &Position::name);
    if (m_bReadsInput) {
        others.emplace_back("-");
    }
    for (const std::string& other : others) {
        std::error_code missing;
        if (path == other || std::filesystem::equivalent(fileOf(path), fileOf(other), missing)) {
            throw std::runtime_error(path + " is being run already");
        }
    }
    CheckNesting();
    ReadScript(path, true);
}

void Host::Add(EmsGeneralCmd& cmd)
{
    if (m_Options.direct) {
        CheckNesting();
    }
    ++m_Counts[ADDED];
    const Position position = m_Running.back();
    Deliver(cmd, position, false);
}

void Host::Quit(int status)
{
    m_nQuitStatus = status;
    m_Stop.request_stop();
}

void Host::Submit(const Call& call, const std::string& name, const Workers::Job& job)
{
    m_Workers.Submit(name, [this, where = call.Where(), job](const std::stop_token& ending) {
        try {
            job(ending);
        } catch (const std::exception& failure) {
            Report(FAILED, where + ": " + failure.what());
        }
    });
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
        rows[COUNT_NAMES[count]] = m_Counts.at(count).load();
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
