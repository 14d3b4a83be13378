#include "host/host.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <iterator>
#include <memory>
#include <thread>
#include <utility>

#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/json.h"
#include "host/line_editor.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::size_t DEEPEST_NESTING = 16;
constexpr auto IDLE_BEFORE_FLUSH = std::chrono::milliseconds(50);

constinit Host* g_pHost = nullptr;

/// What cannot be run as a command goes through the queue too, so that its message comes in its
/// turn: as a command of this name with one pair, the kind of fault and the message.
std::string g_strFault = "(fault)";
const RegEmsUtilCmd g_FaultRegistration(g_strFault, Host::Dispatch);

constexpr const char* BAD_LINE = "bad line";
constexpr const char* UNREAD_SCRIPT = "unread script";
constexpr const char* UNKNOWN_COMMAND = "unknown command";

void MakeFault(EmsGeneralCmd& cmd, const char* kind, const std::string& message)
{
    cmd = EmsGeneralCmd();
    cmd.name = g_strFault;
    auto& pair = cmd.nvtps.nvtps.emplace_back();
    pair.name = kind;
    pair.value = message;
}

} // namespace

Host::Host(const HostOptions& options, std::stop_source stop)
    : m_Workers(options.workers, stop.get_token()), m_Options(options), m_Stop(std::move(stop)),
      m_Interrupt(m_Stop.get_token())
{
    g_pHost = this;
}

Host::~Host()
{
    m_Workers.End(); // their jobs use the other members
}

int Host::Run(const std::vector<std::string>& scripts)
{
    m_bInteractive = scripts.empty() && ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
    if (m_Options.direct || m_bInteractive) {
        ReadAll(scripts);
    } else {
        const std::jthread reader([&] {
            ReadAll(scripts);
            Announce(m_bAllRead);
        });
        Drain();
    }
    m_Workers.End();
    for (; !m_AtEnd.empty(); m_AtEnd.pop_back()) {
        m_AtEnd.back()();
    }
    Console& console = Console::Instance();
    console.Flush();
    if (!m_bInteractive) {
        console.Message(Summary());
    }
    const bool allWell = m_Counts.badLines + m_Counts.failed + m_Counts.unread == 0;
    return allWell && !console.IsOutputLost() && !console.IsDebugLost() ? m_nQuitStatus : 1;
}

void Host::ReadAll(const std::vector<std::string>& scripts)
{
    try {
#if EMSHOST_HAS_LINE_EDITOR
        if (m_bInteractive) {
            LineEditor editor(m_Interrupt, CommandNames());
            LineReader reader("-", m_Interrupt,
                              [&editor]() -> std::string_view { return editor.Read(); });
            ReadScript(reader, false);
            return;
        }
#endif
        for (const std::string& script :
             scripts.empty() ? std::vector<std::string>{"-"} : scripts) {
            LineReader reader(script, m_Interrupt);
            if (!ReadScript(reader, false)) {
                return;
            }
        }
    } catch (const std::exception& failure) {
        Fail("emshost", failure.what());
    }
}

/// False when no more is to be read.
bool Host::ReadScript(LineReader& reader, bool nested)
{
    EmsGeneralCmd cmd;
    Position position;
    position.name = reader.Path();
    std::string error;
    while (!m_Stop.stop_requested()) {
        const LineReader::Result result = reader.Next();
        if (result == LineReader::Result::End) {
            return true;
        }
        position.value = reader.Where();
        bool isFault = true;
        if (result != LineReader::Result::Line) {
            const bool failed = result == LineReader::Result::Failed;
            MakeFault(cmd, failed ? UNREAD_SCRIPT : BAD_LINE, reader.Error());
        } else {
            switch (ParseCommand(reader.Line(), cmd, error)) {
            case ParseResult::Blank:
                continue;
            case ParseResult::Error:
                MakeFault(cmd, BAD_LINE, error);
                break;
            case ParseResult::Command:
                ++m_Counts.read;
                isFault = false;
                break;
            }
        }
        Deliver(cmd, position, nested);
        if (isFault && m_Options.strict) {
            return false;
        }
        if (result == LineReader::Result::Failed) {
            return true;
        }
    }
    return false;
}

void Host::Deliver(EmsGeneralCmd& cmd, const Position& position, bool nested)
{
    if (cmd.name != g_strFault && FindCommand(cmd.name) == nullptr) {
        MakeFault(cmd, UNKNOWN_COMMAND, Unknown(cmd.name, CommandNames()));
    }
    cmd.nvtps.nvtps.push_back(position); // RunCommand() takes it off
    if (nested || m_Options.direct) {
        runGeneralCmd(cmd);
        return;
    }
    addGeneralCmd(cmd);
    if (m_bInteractive && m_Running.empty()) {
        runGeneralCmd();
        Console::Instance().Flush();
    } else {
        Announce(m_bAdded);
    }
}

/// The reader announces each command after adding it; here the announcement is taken back before
/// draining. So a command that was added before is drained now, and one added later is announced
/// again. A reader that waits for room in the queue has announced all that fills it.
void Host::Drain()
{
    const auto news = [this] { return m_bAdded || m_bAllRead; };
    for (bool allRead = false; !allRead;) {
        {
            std::unique_lock lock(m_NewsMutex);
            if (!m_News.wait_for(lock, IDLE_BEFORE_FLUSH, news)) {
                lock.unlock();
                Console::Instance().Flush();
                lock.lock();
                m_News.wait(lock, news);
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
    if (Console::Instance().IsOutputLost()) {
        m_Stop.request_stop();
    }
    const Command* const command = FindCommand(cmd.name);
    if (m_Stop.stop_requested()) {
        m_Counts.skipped += command == nullptr ? 0 : 1;
    } else if (command == nullptr) {
        ReportFault(pairs.front(), position.value);
    } else {
        ++m_Counts.run;
        const Call call(*this, *command, cmd, position);
        try {
            const std::string wrong = command->Check(cmd);
            if (wrong.empty()) {
                command->function(call);
            } else {
                Fail(call.Where(), wrong);
            }
        } catch (const std::exception& failure) {
            Fail(call.Where(), failure.what());
        }
    }
    m_Running.pop_back();
}

void Host::ReportFault(const Position& fault, const std::string& where)
{
    Console::Instance().Message(where + ": " + fault.value);
    if (fault.name == UNKNOWN_COMMAND) {
        ++m_Counts.withoutHandler;
        return;
    }
    ++(fault.name == BAD_LINE ? m_Counts.badLines : m_Counts.unread);
    if (m_Options.strict) {
        m_Stop.request_stop();
    }
}

void Host::RunScript(const Call& call, const std::string& path)
{
    const bool isRunning = std::any_of(m_Running.begin(), m_Running.end(),
                                       [&](const Position& by) { return by.name == path; });
    if (isRunning) { // a script that ran itself twice would run 2^DEEPEST_NESTING times
        Fail(call.Where(), path + " is being run already");
    } else if (m_Running.size() > DEEPEST_NESTING) {
        Fail(call.Where(), "nested more than " + std::to_string(DEEPEST_NESTING) + " deep");
    } else {
        LineReader reader(path, m_Interrupt);
        ReadScript(reader, true);
    }
}

void Host::Add(EmsGeneralCmd& cmd)
{
    if (m_Options.direct && m_Running.size() > DEEPEST_NESTING) {
        throw std::runtime_error("nested more than " + std::to_string(DEEPEST_NESTING) + " deep");
    }
    ++m_Counts.added;
    const Position position = m_Running.back();
    Deliver(cmd, position, false);
}

void Host::Fail(const std::string& where, const std::string& what)
{
    ++m_Counts.failed;
    Console::Instance().Message(where + ": " + what);
    if (m_Options.strict) {
        m_Stop.request_stop();
    }
}

void Host::Quit(int status)
{
    m_nQuitStatus = status;
    m_Stop.request_stop();
}

void Host::Submit(const Call& call, const std::string& name, const std::function<void()>& job)
{
    const auto guarded = [this, where = call.Where(), job] {
        try {
            job();
        } catch (const std::exception& failure) {
            Fail(where, failure.what());
        }
    };
    if (!m_Workers.Submit(name, guarded)) {
        throw std::runtime_error("all workers are stuck");
    }
}

void Host::Sleep(std::chrono::milliseconds time)
{
    Console::Instance().Flush();
    std::unique_lock lock(m_NewsMutex);
    m_News.wait_for(lock, StopToken(), time, [] { return false; });
}

std::string Host::Summary() const
{
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - m_Start;
    const auto rate = static_cast<double>(m_Counts.run) / elapsed.count();
    Json rows = {{"read", m_Counts.read.load()},
                 {"added_by_handlers", m_Counts.added.load()},
                 {"run", m_Counts.run.load()},
                 {"without_a_handler", m_Counts.withoutHandler.load()},
                 {"bad_lines", m_Counts.badLines.load()},
                 {"failed_commands", m_Counts.failed.load()},
                 {"scripts_that_could_not_be_read", m_Counts.unread.load()},
                 {"skipped_at_the_end", m_Counts.skipped.load()},
                 {"seconds", std::round(elapsed.count() * 1000) / 1000},
                 {"commands_per_second", std::llround(rate)}};
    if (m_Options.json) {
        return Json{{"summary", rows}}.dump();
    }
    std::string table;
    for (const auto& [key, value] : rows.items()) {
        std::string label = key;
        std::replace(label.begin(), label.end(), '_', ' ');
        const std::string number =
            value.is_number_float() ? string_format("%.3f", value.get<double>()) : value.dump();
        table += string_format("%-30s %10s\n", label.c_str(), number.c_str());
    }
    return table;
}

} // namespace emshost
