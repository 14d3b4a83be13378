#ifndef HOST_COMMAND_H
#define HOST_COMMAND_H

/// The commands of emshost: each is declared once, with its arguments. The check of what was read,
/// the help and the manual all come from the declaration.
///
/// There is a file for each service, with the functions of its commands and, at namespace scope,
/// one object that registers them before main() starts:
///
///     void Pause(const Call& call)
///     {
///         call.m_Host.Pause(call.Number<int>("ms"));
///     }
///
///     const Service g_Service("General commands",
///                             {{"pause", "Wait.", Pause, {Number("ms", 0, 60000, "how long")}}});

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "emsutil/general_command.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::EmsGeneralCmd;

class Host;
struct Call;

struct Argument
{
    const char* name;
    const char* help;
    const char* fallback; // the value of an argument that is not given; null: it is required
    bool isNumber = false;
    std::int64_t lowest = 0;               // of a number
    std::int64_t highest = 0;              // of a number, or of the bytes of a text; 0: any
    std::vector<std::string> choices = {}; // of a text; empty: any

    /// The argument as it is written: "ms:long=N", "state=on|off".
    std::string Form() const;
};

Argument Number(const char* name, std::int64_t lowest, std::int64_t highest, const char* help,
                const char* fallback = nullptr);
Argument Text(const char* name, const char* help, const char* fallback = nullptr,
              std::int64_t longest = 0);
Argument Choice(const char* name, std::vector<std::string> choices, const char* help);

struct Command
{
    const char* name;
    const char* help; // a sentence
    void (*function)(const Call&);
    std::vector<Argument> arguments = {};
    bool takesMore = false; // any other pairs, and objects
    const char* title = ""; // of the service

    /// The command with its arguments as they are written.
    std::string Usage() const;
    /// What each argument means, in a line per argument.
    std::vector<std::string> Explanations() const;
    /// Throws std::runtime_error if something is wrong with a command of this name that was read,
    /// or else adds the values of the arguments that were not given.
    void Complete(EmsGeneralCmd& cmd) const;
};

/// Registers the commands of a service.
class Service
{
public:
    Service(const char* title, std::initializer_list<Command> commands);
};

using Commands = std::map<std::string, Command, std::less<>>; // by name
Commands& AllCommands();
/// Null when there is no such command.
const Command* FindCommand(std::string_view name);
std::vector<std::string> CommandNames();
/// "unknown", with the name that is nearest to it when one is near.
std::string Unknown(std::string_view name, const std::vector<std::string>& known);

/// A command that runs, with all its arguments.
struct Call
{
    /// What begins a message: "file:line: name".
    std::string Where() const;
    std::string Text(std::string_view name) const;
    template <class Integer>
    Integer Number(std::string_view name) const
    {
        return static_cast<Integer>(std::stoll(Text(name)));
    }

    Host& m_Host;
    EmsGeneralCmd& m_Cmd;
};

} // namespace emshost

#endif
