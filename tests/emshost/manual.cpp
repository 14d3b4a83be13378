// Writes the section of the manual on the commands, from their declarations.

#include <cstdio>
#include <string>

#include "host/command.h"

int main()
{
    for (const auto& [title, commands] : emshost::AllCommands()) {
        std::printf(".Ss %s\n.Bl -tag -width Ds\n", title.c_str());
        for (const auto& [name, command] : commands) {
            std::printf(".It Ic %s\n%s\n", command.Usage().c_str(), command.help);
            for (const std::string& line : command.Explanations()) {
                const std::size_t colon = line.find(':');
                std::printf(".Pp\n.Ar %s%s\n", line.substr(0, colon).c_str(),
                            (" :" + line.substr(colon + 1)).c_str());
            }
        }
        std::puts(".El");
    }
}
