#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "fuzz/expect.h"
#include "host/command_parser.h"

using namespace NSQN_EMSUTIL_AGENT;
using emshost::BadLine;
using emshost::ParseCommand;

namespace {

struct Parsed
{
    explicit Parsed(std::string_view line, const EmsGeneralCmd& used = {}) : m_Cmd(used)
    {
        try {
            m_bCommand = ParseCommand(line, m_Cmd);
        } catch (const BadLine& bad) {
            m_strError = bad.what();
        }
    }

    EmsGeneralCmd m_Cmd;
    bool m_bCommand = false;
    std::string m_strError;
};

std::string Quote(const std::string& text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += string_format("\\x%02x", static_cast<unsigned char>(character));
    }
    return quoted + '"';
}

std::string LineOf(const EmsNVTPList& list)
{
    std::string line;
    for (const EmsNameAndValueStringTypePair& pair : list.nvtps) {
        line += ' ' + Quote(pair.name) + (pair.rtype == NVTP_TYPE_LONG ? ":long=" : "=") +
                Quote(pair.value);
    }
    return line;
}

/// Returns a line of the same command with everything quoted. Two commands are equal if their lines
/// are.
std::string LineOf(const EmsGeneralCmd& cmd)
{
    std::string line = Quote(cmd.name) + LineOf(cmd.nvtps);
    for (const EmsGeneralObj& object : cmd.objs.objs) {
        line += " {" + LineOf(object.nvtps) + " }";
    }
    return line;
}

void CheckCommand(const Parsed& parsed, std::size_t size)
{
    EmsGeneralCmd cmd = parsed.m_Cmd;
    const std::string text = cmd.ToString();
    Expect(text.starts_with(':') && text.ends_with("};"), "a text form is whole");
    // The greatest growth is that of "a= ": three bytes become the 34 of an empty pair.
    Expect(text.size() <= 32 + 16 * size, "a text form is no longer than its line allows");

    const Parsed again(LineOf(parsed.m_Cmd));
    Expect(again.m_bCommand, "the quoted line is a command");
    Expect(LineOf(again.m_Cmd) == LineOf(parsed.m_Cmd), "the quoted line is the same command");
}

void CheckError(const std::string& error, std::size_t size)
{
    Expect(std::none_of(error.begin(), error.end(),
                        [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }),
           "an error is one line without control characters");
    constexpr std::string_view before = " at column ";
    const std::size_t column = error.rfind(before);
    Expect(column != 0 && column != std::string::npos, "an error says what is wrong and where");
    const unsigned long number = std::stoul(error.substr(column + before.size()));
    Expect(number >= 1 && number <= size + 1, "the column is in the line");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string line(reinterpret_cast<const char*>(data), size);
    const Parsed parsed(line);
    if (parsed.m_bCommand) {
        CheckCommand(parsed, size);
    } else if (!parsed.m_strError.empty()) {
        CheckError(parsed.m_strError, size);
    } else {
        Expect(LineOf(parsed.m_Cmd) == LineOf(EmsGeneralCmd()), "a blank line has no command");
    }

    const Parsed again(line, parsed.m_Cmd);
    Expect(again.m_bCommand == parsed.m_bCommand && again.m_strError == parsed.m_strError &&
               LineOf(again.m_Cmd) == LineOf(parsed.m_Cmd),
           "a line that is parsed again into a used command gives the same");
    return 0;
}
