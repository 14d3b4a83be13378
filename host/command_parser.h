#ifndef HOST_COMMAND_PARSER_H
#define HOST_COMMAND_PARSER_H

#include <stdexcept>
#include <string>
#include <string_view>

#include "emsutil/general_command.h"

namespace emshost {

/// What is wrong with a line of a script.
struct BadLine : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// Reads the command in a line of a script, without its line end, and overwrites `cmd`. Returns
/// false if there is nothing but blanks and a comment. Throws BadLine, which says the column in
/// bytes.
///
///     name  name=value ...  name:long=value ...  { name=value ... } ...   # comment
///
/// The command's name comes first, then its pairs, then its objects, which hold pairs only. Blanks
/// are spaces and tabs.
///
/// - A bare name ends at a blank or one of  { } = : "
///   and a bare value at a blank or one of  { } "
///   A bare value may be empty, and nothing in it is escaped.
/// - Either may stand in double quotes, with the escapes \" \\ \n \t \r and \xHH. A quoted text is
///   the whole name or the whole value, and may be empty.
/// - A value of the type long is an optional sign and decimal digits, as many as you like.
/// - A bare word as the first argument of "help" is short for command=WORD.
/// - # begins a comment where a name could begin, and is an ordinary character elsewhere.
bool ParseCommand(std::string_view line, NSQN_EMSUTIL_AGENT::EmsGeneralCmd& cmd);

/// `text` as it is, if it is a plain word, else quoted.
std::string Printable(std::string_view text);

/// `text` in quotes, fit for a message: control characters escaped, a long text cut.
std::string Quoted(std::string_view text);

} // namespace emshost

#endif
