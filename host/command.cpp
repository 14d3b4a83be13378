#include "host/command.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <numeric>
#include <utility>

#include "host/command_parser.h"
#include "host/host.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using Pair = EmsNameAndValueStringTypePair;

/// Created on first use, because objects in other files fill it while the program is initialised.
Commands& MutableCommands()
{
    static auto* const commands = new Commands;
    return *commands;
}

std::map<std::string, const Command*, std::less<>>& CommandsByName()
{
    static auto* const commands = new std::map<std::string, const Command*, std::less<>>;
    return *commands;
}

/// How many letters must be changed, added or left out to make one word the other.
std::size_t Distance(std::string_view from, std::string_view to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::string RangeOf(const Argument& argument)
{
    return std::to_string(argument.lowest) + " to " + std::to_string(argument.highest);
}

bool IsInRange(const Argument& argument, std::string_view number)
{
    number.remove_prefix(number.starts_with('+') ? 1 : 0);
    const char* const end = number.data() + number.size();
    if (number.starts_with('-')) {
        std::int64_t value = 0;
        return std::from_chars(number.data(), end, value).ec == std::errc() &&
               value >= argument.lowest;
    }
    std::uint64_t value = 0;
    return std::from_chars(number.data(), end, value).ec == std::errc() &&
           value <= argument.highest &&
           (argument.lowest <= 0 || value >= static_cast<std::uint64_t>(argument.lowest));
}

std::string CheckValue(const Argument& argument, const Pair& pair)
{
    if ((pair.rtype == NVTP_TYPE_LONG) != argument.isNumber) {
        return std::string(argument.isNumber ? "must be a number: " : "must be a text: ") +
               argument.Form();
    }
    if (argument.isNumber) {
        return IsInRange(argument, pair.value)
                   ? ""
                   : pair.value + " is out of the range " + RangeOf(argument);
    }
    if (pair.value.find('\0') != std::string::npos) {
        return Quoted(pair.value) + " has a NUL, where the text would be cut";
    }
    if (pair.value.size() > argument.highest) {
        return "longer than " + std::to_string(argument.highest) + " bytes";
    }
    const auto& choices = argument.choices;
    return choices.empty() || std::count(choices.begin(), choices.end(), pair.value) > 0
               ? ""
               : "must be " + argument.Form();
}

} // namespace

Argument Number(const char* name, std::int64_t lowest, std::uint64_t highest, const char* help,
                const char* fallback)
{
    return {name, true, lowest, highest, help, fallback};
}

Argument Text(const char* name, const char* help, std::uint64_t longest, const char* fallback)
{
    return {name, false, 0, longest, help, fallback};
}

Argument Choice(const char* name, std::vector<std::string> choices, const char* help)
{
    return {name, false, 0, ANY_LENGTH, help, nullptr, std::move(choices)};
}

std::string Argument::Form() const
{
    std::string form = name + std::string(isNumber ? ":long=N" : choices.empty() ? "=TEXT" : "=");
    for (const std::string& choice : choices) {
        form += (form.ends_with('=') ? "" : "|") + choice;
    }
    return form;
}

std::string Command::Usage() const
{
    std::string usage = name;
    for (const Argument& argument : arguments) {
        usage +=
            argument.fallback == nullptr ? ' ' + argument.Form() : " [" + argument.Form() + ']';
    }
    return takesMore ? usage + " ..." : usage;
}

std::vector<std::string> Command::Explanations() const
{
    std::vector<std::string> lines;
    for (const Argument& argument : arguments) {
        std::string line = argument.name + std::string(": ") + argument.help;
        if (argument.isNumber) {
            line += ", " + RangeOf(argument);
        } else if (argument.highest != ANY_LENGTH) {
            line += ", at most " + std::to_string(argument.highest) + " bytes";
        }
        if (argument.fallback != nullptr && *argument.fallback != '\0') {
            line += std::string("; ") + argument.fallback + " unless given";
        }
        lines.push_back(line);
    }
    return lines;
}

std::string Command::Check(const EmsGeneralCmd& cmd) const
{
    std::vector<bool> given(arguments.size());
    for (const Pair& pair : cmd.nvtps.nvtps) {
        const auto found = std::find_if(arguments.begin(), arguments.end(),
                                        [&](const Argument& own) { return pair.name == own.name; });
        const auto index = static_cast<std::size_t>(found - arguments.begin());
        if (found == arguments.end() || given[index]) {
            if (takesMore) {
                continue;
            }
            std::vector<std::string> names;
            for (const Argument& argument : arguments) {
                names.emplace_back(argument.name);
            }
            return found == arguments.end() ? Unknown(pair.name, names)
                                            : pair.name + ": given twice";
        }
        given[index] = true;
        if (const std::string wrong = CheckValue(*found, pair); !wrong.empty()) {
            return pair.name + ": " + wrong;
        }
    }
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (!given[index] && arguments[index].fallback == nullptr) {
            return arguments[index].name + (": missing; the command is " + Usage());
        }
    }
    return takesMore || cmd.objs.objs.empty() ? "" : "takes no object in braces";
}

Service::Service(const char* title, std::initializer_list<Command> commands)
{
    for (const Command& command : commands) {
        const auto* const kept = new Command(command); // until the process ends, as the library's
        std::string name = command.name;
        const RegEmsUtilCmd registration(name, Host::Dispatch);
        MutableCommands()[title].emplace(name, kept);
        CommandsByName().emplace(name, kept);
    }
}

const Commands& AllCommands()
{
    return MutableCommands();
}

const Command* FindCommand(std::string_view name)
{
    const auto found = CommandsByName().find(name);
    return found == CommandsByName().end() ? nullptr : found->second;
}

std::vector<std::string> CommandNames()
{
    std::vector<std::string> names;
    for (const auto& [name, command] : CommandsByName()) {
        names.push_back(name);
    }
    return names;
}

std::string Unknown(std::string_view name, const std::vector<std::string>& known)
{
    const std::string_view begin = name.substr(0, 40);
    std::string_view nearest;
    std::size_t least = begin.size() < 4 ? 2 : 3; // nothing is near from here on
    for (const std::string& candidate : known) {
        const std::size_t distance = Distance(begin, candidate);
        if (distance < least) {
            nearest = candidate;
            least = distance;
        }
    }
    const std::string text = Printable(name) + ": unknown";
    return nearest.empty() ? text : text + "; did you mean " + std::string(nearest) + '?';
}

std::string Call::Text(std::string_view name) const
{
    for (const Pair& pair : m_Cmd.nvtps.nvtps) {
        if (pair.name == name) {
            return pair.value;
        }
    }
    for (const Argument& argument : m_Command.arguments) {
        if (argument.name == name && argument.fallback != nullptr) {
            return argument.fallback;
        }
    }
    throw std::logic_error("undeclared argument " + std::string(name));
}

/// The check has found it in its range, so one of the two readings has it.
std::uint64_t Call::Bits(const std::string& number)
{
    return number.starts_with('-') ? static_cast<std::uint64_t>(std::stoll(number))
                                   : std::stoull(number);
}

} // namespace emshost
