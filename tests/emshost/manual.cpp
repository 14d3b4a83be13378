// Writes the section of the manual on the commands, from their declarations.

#include <cstdio>
#include <map>
#include <string>

#include "host/command.h"

int main()
{
    std::map<std::string, std::string> sections; // by title
    for (const auto& [name, command] : emshost::AllCommands()) {
        std::string& section = sections[command.title];
        section += ".It Ic " + command.Usage() + '\n' + command.help + '\n';
        for (const std::string& line : command.Explanations()) {
            const std::size_t colon = line.find(':');
            section += ".Pp\n.Ar " + line.substr(0, colon) + ' ' + line.substr(colon) + '\n';
        }
    }
    for (const auto& [title, section] : sections) {
        std::printf(".Ss %s\n.Bl -tag -width Ds\n%s.El\n", title.c_str(), section.c_str());
    }
}
