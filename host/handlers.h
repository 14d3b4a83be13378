#ifndef HOST_HANDLERS_H
#define HOST_HANDLERS_H

/// The handlers of the host, a file for each service. A file holds its handlers and one table of
/// them at namespace scope, which registers them before main() starts:
///
///     void Show(Host&, EmsGeneralCmd& cmd) { Console::Instance().Print(cmd.ToString()); }
///
///     const HandlerTable g_Handlers = {{"show", Handler<Show>, "prints its own text form"}};
///
/// Handlers run on the main thread, one at a time or one inside another.

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "emsutil/general_command.h"
#include "host/host.h"

namespace emshost {

/// What the library calls for `Function`.
template <Host::Function* Function>
int Handler(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    Host::Instance().RunCommand(*cmd, *Function);
    return 0;
}

struct HandlerEntry
{
    const char* m_pName;
    NSQN_EMSUTIL_AGENT::EmsGeneralCmdHandler m_pHandler;
    const char* m_pHelp; // one line: the pairs that it takes, and what it does
};

class HandlerTable
{
public:
    HandlerTable(std::initializer_list<HandlerEntry> entries);
};

/// The help line of every command that has a handler.
const std::map<std::string, const char*>& HandlerHelp();

// What a command says. Of pairs with one name the first counts. A pair that is null, of the wrong
// type or out of range has no value.

using Pair = NSQN_EMSUTIL_AGENT::EmsNameAndValueStringTypePair;

const Pair* FindPair(const EmsGeneralCmd& cmd, std::string_view name);
std::optional<std::string> TextOf(const Pair* pair);
std::optional<int> IntOf(const Pair* pair, int lowest, int highest);
std::optional<unsigned long> UnsignedOf(const Pair* pair);

} // namespace emshost

#endif
