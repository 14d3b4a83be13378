#include "emsutil/general_command.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "emsutil/diagnostics.h"
#include "host/host.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// The text form shows a number reduced to 32 bits, and a text up to its first NUL.
void ReportWhatIsCut(const Call& call, const EmsNVTPList& list)
{
    for (const auto& pair : list.nvtps) {
        const auto report = [&](const std::string& what) {
            Message(call.Where() + ": " + Printable(pair.name) + ": the text form " + what);
        };
        const long value = std::strtol(pair.value.c_str(), nullptr, 10);
        if (pair.rtype == NVTP_TYPE_LONG && (value < INT_MIN || value > INT_MAX)) {
            report("reduces " + pair.value + " to 32 bits");
        }
        for (const std::string* const text : {&pair.name, &pair.value}) {
            if (text->find('\0') != std::string::npos) {
                report("ends at the NUL of " + Quoted(*text));
            }
        }
    }
}

void Show(const Call& call)
{
    ReportWhatIsCut(call, call.m_Cmd.nvtps);
    for (const EmsGeneralObj& object : call.m_Cmd.objs.objs) {
        ReportWhatIsCut(call, object.nvtps);
    }
    Print(call.m_Cmd.ToString());
}

void Run(const Call& call)
{
    const std::filesystem::path asking = call.m_Host.Script().Path();
    const std::string file = call.Text("file");
    call.m_Host.RunScript(file == "-" ? file : (asking.parent_path() / file).string());
}

/// The repeated command is this one without the first "times" and "command". A further pair with
/// one of these names belongs to the repeated command, so that a repeat can be repeated.
void Repeat(const Call& call)
{
    call.m_Host.CheckNesting();
    EmsGeneralCmd repeated = call.m_Cmd;
    repeated.name = call.Text("command");
    auto& pairs = repeated.nvtps.nvtps;
    for (const char* own : {"times", "command"}) {
        pairs.erase(std::ranges::find(pairs, own, &EmsNameAndValueStringTypePair::name));
    }
    int left = call.Number<int>("times");
    for (; left > 0 && !call.m_Host.StopToken().stop_requested(); --left) {
        call.m_Host.Deliver(repeated, Host::ADDED);
    }
}

void Help(const Call& call)
{
    const std::string name = call.Text("command");
    if (const Command* const command = FindCommand(name)) {
        Print(command->Usage());
        Print(std::string("    ") + command->help);
        for (const std::string& line : command->Explanations()) {
            Print("    " + line);
        }
        return;
    }
    if (!name.empty()) {
        throw std::runtime_error(Unknown(name, CommandNames()));
    }
    std::map<std::string, std::string> lists; // by title
    for (const auto& [command, declared] : AllCommands()) {
        lists[declared.title] += string_format("  %-13s %s\n", command.c_str(), declared.help);
    }
    for (const auto& [title, list] : lists) {
        Print(title + ':');
        Print(list);
    }
    Print("help COMMAND explains the arguments of a command.");
}

const Service g_Service(
    "General commands",
    {{"help",
      "List the commands, or explain one.",
      Help,
      {Text("command", "which to explain", "")}},
     {"pause",
      "Wait.",
      [](const Call& call) { call.m_Host.Pause(call.Number<int>("ms")); },
      {Number("ms", 0, 60000, "how long, in milliseconds")}},
     {"quit",
      "End the process; the lines that follow are not read.",
      [](const Call& call) { call.m_Host.Quit(call.Number<int>("status")); },
      {Number("status", 0, 255, "the exit status", "0")}},
     {"repeat",
      "Run a command several times, with all further arguments of this line, before the next line.",
      Repeat,
      {Number("times", 0, 1000000, "how many times"), Text("command", "the name of the command")},
      true},
     {"run",
      "Run the commands of another script, before the next line of this one.",
      Run,
      {Text("file", "the path of the script; a relative path begins at the directory of the script "
                    "that has this command, or at the current directory if that is standard "
                    "input; - is standard input")}},
     {"show", "Print the text form of this command.", Show, {}, true},
     {"summary", "Print how many commands there have been so far.",
      [](const Call& call) { Print(call.m_Host.Summary()); }}});

} // namespace
