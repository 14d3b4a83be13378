#include "host/command.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "host/command_parser.h"
#include "host/host.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// How many letters must be changed, added or left out to turn one word into the other.
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

/// The parser lets only a sign and digits through.
bool IsInRange(const Argument& argument, std::string_view number)
{
    number.remove_prefix(number.starts_with('+') ? 1 : 0);
    std::int64_t value = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    return result.ec == std::errc() && value >= argument.lowest && value <= argument.highest;
}

void CheckValue(const Argument& argument, const EmsNameAndValueStringTypePair& pair)
{
    const auto fail = [&pair](const std::string& wrong) {
        throw std::runtime_error(pair.name + ": " + wrong);
    };
    const auto& choices = argument.choices;
    if ((pair.rtype == NVTP_TYPE_LONG) != argument.isNumber) {
        fail((argument.isNumber ? "must be a number: " : "must be a text: ") + argument.Form());
    }
    if (argument.isNumber && !IsInRange(argument, pair.value)) {
        fail(pair.value + " is out of the range " + RangeOf(argument));
    }
    if (pair.value.find('\0') != std::string::npos) {
        fail(Quoted(pair.value) + " has a NUL, where the text would be cut");
    }
    if (!argument.isNumber && argument.highest > 0 &&
        std::cmp_greater(pair.value.size(), argument.highest)) {
        fail("longer than " + std::to_string(argument.highest) + " bytes");
    }
    if (!choices.empty() && std::ranges::count(choices, pair.value) == 0) {
        fail("must be " + argument.Form());
    }
}

} // namespace

Argument Number(const char* name, std::int64_t lowest, std::int64_t highest, const char* help,
                const char* fallback)
{
    return {name, help, fallback, true, lowest, highest};
}

Argument Text(const char* name, const char* help, const char* fallback, std::int64_t longest)
{
    return {name, help, fallback, false, 0, longest};
}

Argument Choice(const char* name, std::vector<std::string> choices, const char* help)
{
    return {name, help, nullptr, false, 0, 0, std::move(choices)};
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
        const bool isRequired = argument.fallback == nullptr;
        usage += isRequired ? ' ' + argument.Form() : " [" + argument.Form() + ']';
    }
    return takesMore ? usage + " ..." : usage;
}

std::vector<std::string> Command::Explanations() const
{
    std::vector<std::string> lines;
    for (const Argument& argument : arguments) {
        std::string& line = lines.emplace_back(argument.name + std::string(": ") + argument.help);
        if (argument.isNumber) {
            line += ", " + RangeOf(argument);
        } else if (argument.highest > 0) {
            line += ", at most " + std::to_string(argument.highest) + " bytes";
        }
        if (argument.fallback != nullptr && *argument.fallback != '\0') {
            line += std::string("; ") + argument.fallback + " unless given";
        }
    }
    return lines;
}

void Command::Complete(EmsGeneralCmd& cmd) const
{
    std::vector<Argument> missing = arguments;
    for (const EmsNameAndValueStringTypePair& pair : cmd.nvtps.nvtps) {
        const auto found = std::ranges::find(missing, pair.name, &Argument::name);
        if (found != missing.end()) {
            CheckValue(*found, pair);
            missing.erase(found);
        } else if (!takesMore) {
            std::vector<std::string> names;
            std::ranges::transform(arguments, std::back_inserter(names), &Argument::name);
            const bool isKnown = std::ranges::count(names, pair.name) > 0;
            throw std::runtime_error(isKnown ? pair.name + ": given twice"
                                             : Unknown(pair.name, names));
        }
    }
    for (const Argument& argument : missing) {
        if (argument.fallback == nullptr) {
            throw std::runtime_error(argument.name + (": missing; the command is " + Usage()));
        }
        auto& pair = cmd.nvtps.nvtps.emplace_back();
        pair.name = argument.name;
        pair.value = argument.fallback;
    }
    if (!takesMore && !cmd.objs.objs.empty()) {
        throw std::runtime_error("takes no object in braces");
    }
}

Service::Service(const char* title, std::initializer_list<Command> commands)
{
    for (Command command : commands) {
        command.title = title;
        std::string name = command.name;
        AllCommands().emplace(name, command);
        const RegEmsUtilCmd registration(name, Host::Dispatch);
    }
}

/// Created on first use, because objects in other files fill it while the program is initialised.
Commands& AllCommands()
{
    static Commands& commands = *new Commands;
    return commands;
}

const Command* FindCommand(std::string_view name)
{
    const auto found = AllCommands().find(name);
    return found == AllCommands().end() ? nullptr : &found->second;
}

std::vector<std::string> CommandNames()
{
    std::vector<std::string> names;
    for (const auto& [name, command] : AllCommands()) {
        names.push_back(name);
    }
    return names;
}

std::string Unknown(std::string_view name, const std::vector<std::string>& known)
{
    const std::string_view begin = name.substr(0, 40);
    std::string nearest;
    std::size_t least = begin.size() < 4 ? 2 : 3; // nothing is near from here on
    for (const std::string& candidate : known) {
        const std::size_t distance = Distance(begin, candidate);
        if (distance < least) {
            nearest = candidate;
            least = distance;
        }
    }
    const std::string text = Printable(name) + ": unknown";
    return nearest.empty() ? text : text + "; did you mean " + nearest + '?';
}

std::string Call::Where() const
{
    return m_Host.Script().Where() + ": " + m_Cmd.name;
}

std::string Call::Text(std::string_view name) const
{
    const auto& pairs = m_Cmd.nvtps.nvtps;
    const auto found = std::ranges::find(pairs, name, &EmsNameAndValueStringTypePair::name);
    if (found == pairs.end()) {
        throw std::logic_error("undeclared argument " + std::string(name));
    }
    return found->value;
}

} // namespace emshost
