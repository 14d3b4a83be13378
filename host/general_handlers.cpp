#include <algorithm>
#include <chrono>
#include <climits>
#include <thread>

#include <emsplatform/debug_interface.h>
#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int HIGHEST_EXIT_STATUS = 255;
constexpr int MOST_REPEATS = 1000000; // they are all in memory at once
constexpr int LONGEST_PAUSE_MS = 60000;

void Show(Host&, EmsGeneralCmd& cmd)
{
    Console::Instance().Print(cmd.ToString());
}

void Level(Host& host, EmsGeneralCmd& cmd)
{
    if (const auto level = IntOf(FindPair(cmd, "value"), INT_MIN, INT_MAX)) {
        emsstandin::SetLowestDebugLevel(*level);
    } else {
        host.ReportBadCommand(cmd, "needs value:long=N");
    }
}

void Debug(Host& host, EmsGeneralCmd& cmd)
{
    const auto text = TextOf(FindPair(cmd, "text"));
    const Pair* const levelPair = FindPair(cmd, "level");
    const auto level = IntOf(levelPair, INT_MIN, INT_MAX);
    if (!text || (levelPair != nullptr && !level)) {
        host.ReportBadCommand(cmd, "needs text=TEXT [level:long=N]");
        return;
    }
    if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface()) {
        debug->DebugPrint(level.value_or(1), "%s\n", text->c_str());
    }
}

void RunFile(Host& host, EmsGeneralCmd& cmd)
{
    const auto file = TextOf(FindPair(cmd, "file"));
    if (!file || file->empty()) {
        host.ReportBadCommand(cmd, "needs file=PATH");
    } else if (file->find('\0') != std::string::npos) {
        host.ReportBadCommand(cmd, Quoted(*file) + " cannot be a path");
    } else {
        host.RunScript(cmd, *file);
    }
}

/// The added command is this one without what tells how to repeat it: more pairs of these names are
/// its own, so that a repeat can be repeated.
void Repeat(Host& host, EmsGeneralCmd& cmd)
{
    const Pair* const timesPair = FindPair(cmd, "times");
    const Pair* const commandPair = FindPair(cmd, "command");
    const auto times = IntOf(timesPair, 0, MOST_REPEATS);
    const auto command = TextOf(commandPair);
    if (!times || !command) {
        host.ReportBadCommand(cmd, "needs times:long=N, at most " + std::to_string(MOST_REPEATS) +
                                       ", and command=NAME");
        return;
    }
    EmsGeneralCmd added;
    added.name = *command;
    added.objs = cmd.objs;
    for (const Pair& pair : cmd.nvtps.nvtps) {
        if (&pair != timesPair && &pair != commandPair) {
            added.nvtps.nvtps.push_back(pair);
        }
    }
    Pair& number = added.nvtps.nvtps.emplace_back();
    number.name = 'n';
    number.rtype = NVTP_TYPE_LONG;
    for (int count = 1; count <= *times; ++count) {
        number.value = std::to_string(count);
        EmsGeneralCmd copy = added; // a command that runs at once may change itself
        host.Add(cmd, copy);
    }
}

void Help(Host&, EmsGeneralCmd&)
{
    std::size_t width = 0;
    for (const auto& [name, help] : HandlerHelp()) {
        width = std::max(width, name.size());
    }
    for (const auto& [name, help] : HandlerHelp()) {
        Console::Instance().Print(
            string_format("%-*s  %s", static_cast<int>(width), name.c_str(), help));
    }
}

void Pause(Host& host, EmsGeneralCmd& cmd)
{
    const auto time = IntOf(FindPair(cmd, "ms"), 0, LONGEST_PAUSE_MS);
    if (!time) {
        host.ReportBadCommand(cmd, "needs ms:long=N, at most " + std::to_string(LONGEST_PAUSE_MS));
        return;
    }
    Console::Instance().Flush(); // whoever watches sees what led here
    std::this_thread::sleep_for(std::chrono::milliseconds(*time));
}

void Quit(Host& host, EmsGeneralCmd& cmd)
{
    const Pair* const statusPair = FindPair(cmd, "status");
    const auto status = IntOf(statusPair, 0, HIGHEST_EXIT_STATUS);
    if (statusPair != nullptr && !status) {
        host.ReportBadCommand(cmd, "needs [status:long=N] from 0 to 255");
        return;
    }
    host.Quit(status.value_or(0));
}

const HandlerTable g_Handlers = {
    {"debug", Handler<Debug>, "text=TEXT [level:long=N]: writes a debug line, at level 1"},
    {"help", Handler<Help>, "lists the commands"},
    {"level", Handler<Level>, "value:long=N: sets the lowest level of the debug lines shown"},
    {"pause", Handler<Pause>, "ms:long=N: waits for N milliseconds"},
    {"quit", Handler<Quit>, "[status:long=N]: ends the process; what follows is skipped"},
    {"repeat", Handler<Repeat>,
     "times:long=N command=NAME ...: adds NAME N times, with the rest and n:long=1, 2 and so on"},
    {"run", Handler<RunFile>, "file=PATH: runs the commands of another script at once"},
    {"show", Handler<Show>, "...: prints its own text form"},
};

} // namespace

} // namespace emshost
