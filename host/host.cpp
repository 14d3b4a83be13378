#include "host/host.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <thread>
#include <utility>

#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::size_t DEEPEST_NESTING = 16;
constexpr auto IDLE_BEFORE_FLUSH = std::chrono::milliseconds(50);

constinit Host* g_pHost = nullptr;

} // namespace

Host& Host::Instance()
{
    return *g_pHost;
}

Host::Host(const HostOptions& options) : m_Options(options), m_Workers(options.m_nWorkers)
{
    g_pHost = this;
}

int Host::Run(const std::vector<std::string>& scripts)
{
    if (m_Options.m_bDirect) {
        ReadAll(scripts, Delivery::AtOnce);
    } else {
        std::thread reader([&] {
            Completes([&] { ReadAll(scripts, Delivery::Queued); });
            Announce(m_bAllRead);
        });
        DrainUntilRead();
        reader.join();
    }
    m_Workers.End();
    for (; !m_AtEnd.empty(); m_AtEnd.pop_back()) {
        Completes(m_AtEnd.back());
    }
    Console& console = Console::Instance();
    console.Flush();
    console.Message(m_Tally.Summary(std::chrono::steady_clock::now() - m_Start));
    return m_Tally.IsAllWell() && !console.IsOutputLost() ? m_nQuitStatus : 1;
}

void Host::ReadAll(const std::vector<std::string>& scripts, Delivery delivery)
{
    LineReader::BeforeWait beforeWait;
    if (delivery == Delivery::AtOnce) { // else the thread that drains sees to it
        beforeWait = [this] { FlushResults(); };
    }
    if (scripts.empty()) {
        LineReader standardInput(m_Interrupt, beforeWait);
        ReadScript(standardInput, delivery);
    }
    for (const std::string& script : scripts) {
        LineReader reader(script, m_Interrupt, beforeWait);
        if (!ReadScript(reader, delivery)) {
            return;
        }
    }
}

/// False when nothing more is to be read. `askedBy` begins the message when not all can be read.
bool Host::ReadScript(LineReader& reader, Delivery delivery, const std::string& askedBy)
{
    EmsGeneralCmd cmd;
    while (!m_bStopped) {
        switch (reader.Next()) {
        case LineReader::Result::Line:
            if (!ReadLine(reader, delivery, cmd)) {
                return false;
            }
            break;
        case LineReader::Result::BadLine:
            ++m_Tally.m_nBadLines;
            Console::Instance().Message(reader.Error());
            if (m_Options.m_bStrict) {
                return false;
            }
            break;
        case LineReader::Result::Failed:
            ++m_Tally.m_nUnreadScripts;
            Console::Instance().Message(askedBy + reader.Error());
            return !m_Options.m_bStrict;
        case LineReader::Result::End:
            return true;
        case LineReader::Result::Interrupted:
            return false;
        }
    }
    return false;
}

/// False when nothing more is to be read.
bool Host::ReadLine(const LineReader& reader, Delivery delivery, EmsGeneralCmd& cmd)
{
    Position position;
    std::string error;
    switch (ParseCommand(reader.Line(), cmd, error)) {
    case ParseResult::Command:
        ++m_Tally.m_nRead;
        ShowProgress();
        position.name = reader.Path();
        position.value = reader.Where();
        Deliver(cmd, position, delivery);
        return true;
    case ParseResult::Blank:
        return true;
    case ParseResult::Error:
        break;
    }
    ++m_Tally.m_nBadLines;
    Console::Instance().Message(reader.Where() + ": " + error);
    return !m_Options.m_bStrict;
}

void Host::Deliver(EmsGeneralCmd& cmd, const Position& position, Delivery delivery)
{
    cmd.nvtps.nvtps.push_back(position); // RunCommand() takes it off
    // The library drops a command without a handler silently.
    if (!HandlerHelp().contains(cmd.name)) {
        m_Tally.CountWithoutHandler(cmd.name);
    }
    if (delivery == Delivery::Queued) {
        addGeneralCmd(cmd);
        Announce(m_bAdded);
    } else {
        Completes([&] { runGeneralCmd(cmd); });
    }
}

/// The reader announces each command after adding it; here the announcement is taken back before
/// draining. So a command added before that is drained now, and one added later is announced again:
/// none is left behind while both sides wait. A reader held back by a full queue has announced all
/// that fills it, and gets room from that drain.
void Host::DrainUntilRead()
{
    const auto news = [this] { return m_bAdded || m_bAllRead; };
    for (bool allRead = false; !allRead;) {
        {
            std::unique_lock lock(m_NewsMutex);
            if (!m_News.wait_for(lock, IDLE_BEFORE_FLUSH, news)) {
                lock.unlock();
                FlushResults();
                lock.lock();
                m_News.wait(lock, news);
            }
            m_bAdded = false;
            allRead = m_bAllRead;
        }
        while (!Completes([] { runGeneralCmd(); })) {
            // An exception has left the drain; the rest of the queue is still there.
        }
    }
}

void Host::Announce(bool& news)
{
    const std::lock_guard guard(m_NewsMutex);
    if (!std::exchange(news, true)) {
        m_News.notify_one();
    }
}

void Host::RunCommand(EmsGeneralCmd& cmd, Function& function)
{
    if (Console::Instance().IsOutputLost()) {
        Stop();
    }
    if (m_bStopped) {
        ++m_Tally.m_nSkipped;
        return;
    }
    ++m_Tally.m_nRun;
    ShowProgress();

    struct EndOfRun
    {
        std::list<Position>& m_Running;
        ~EndOfRun() { m_Running.pop_back(); }
    };
    std::list<Position>& pairs = cmd.nvtps.nvtps;
    m_Running.splice(m_Running.end(), pairs, std::prev(pairs.end()));
    const EndOfRun end{m_Running};
    function(*this, cmd);
}

void Host::RunScript(const EmsGeneralCmd& by, const std::string& path)
{
    if (!MayNest(by)) {
        return;
    }
    // One that runs itself twice would otherwise run 2^DEEPEST_NESTING times.
    if (std::any_of(m_Running.begin(), m_Running.end(),
                    [&](const Position& position) { return position.name == path; })) {
        ReportBadCommand(by, path + " is being run already");
        return;
    }
    LineReader reader(path, m_Interrupt, [this] { FlushResults(); });
    if (!ReadScript(reader, Delivery::AtOnce, Where(by) + ": ")) {
        Stop();
    }
}

void Host::Add(const EmsGeneralCmd& by, EmsGeneralCmd& cmd)
{
    const Delivery delivery = m_Options.m_bDirect ? Delivery::AtOnce : Delivery::Queued;
    if (delivery == Delivery::Queued || MayNest(by)) {
        ++m_Tally.m_nAdded;
        Deliver(cmd, m_Running.back(), delivery);
    }
}

bool Host::MayNest(const EmsGeneralCmd& by)
{
    if (m_Running.size() <= DEEPEST_NESTING) {
        return true;
    }
    ReportBadCommand(by, "nested more than " + std::to_string(DEEPEST_NESTING) + " deep");
    return false;
}

/// What begins a message about the command that runs now.
std::string Host::Where(const EmsGeneralCmd& cmd) const
{
    return m_Running.back().value + ": " + cmd.name;
}

/// Nobody is to wait for results while the process waits.
void Host::FlushResults()
{
    Console& console = Console::Instance();
    console.Flush();
    if (console.IsOutputLost()) {
        Stop();
    }
}

void Host::ReportBadCommand(const EmsGeneralCmd& cmd, const std::string& what)
{
    ++m_Tally.m_nBadCommands;
    Console::Instance().Message(Where(cmd) + ": " + what);
    if (m_Options.m_bStrict) {
        Stop();
    }
}

void Host::Quit(int status)
{
    m_nQuitStatus = status;
    Stop();
}

void Host::Submit(const std::string& name, std::function<void()> job)
{
    m_Workers.Submit(name, [this, job = std::move(job)] { Completes(job); });
}

void Host::AtEnd(std::function<void()> action)
{
    m_AtEnd.push_back(std::move(action));
}

void Host::Stop()
{
    m_bStopped = true;
    m_Interrupt.Raise();
}

void Host::ShowProgress()
{
    Console::Instance().Progress([this] {
        return std::to_string(m_Tally.m_nRead) + " read, " + std::to_string(m_Tally.m_nRun) +
               " run";
    });
}

/// False when `body` left with an exception, which is then reported.
template <class Body>
bool Host::Completes(Body body)
{
    try {
        body();
        return true;
    } catch (const std::exception& failure) {
        ++m_Tally.m_nBadCommands;
        Console::Instance().Message(std::string("emshost: a command failed: ") + failure.what());
        if (m_Options.m_bStrict) {
            Stop();
        }
        return false;
    }
}

} // namespace emshost
