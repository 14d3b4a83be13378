#include "host/command_parser.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "emsutil/diagnostics.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using Pair = EmsNameAndValueStringTypePair;

constexpr std::string_view BLANKS = " \t";
constexpr std::string_view NAME_ENDS = " \t{}=:\"";
constexpr std::string_view VALUE_ENDS = " \t{}\"";
constexpr std::string_view WORD_ENDS = " \t{}";

constexpr std::size_t LONGEST_QUOTED = 40;

bool IsInteger(std::string_view text)
{
    text.remove_prefix(text.starts_with('+') || text.starts_with('-') ? 1 : 0);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Reads from left to right. Throws BadLine.
class LineParser
{
public:
    explicit LineParser(std::string_view line) : m_Line(line) {}

    bool Parse(EmsGeneralCmd& cmd)
    {
        if (AtEnd()) {
            return false;
        }
        const std::size_t begin = m_nAt;
        cmd.name = TakeText(NAME_ENDS);
        if (!AtOneOf(WORD_ENDS) || m_nAt == begin) {
            FailExpected("a command name", begin);
        }
        TakePairs(cmd.nvtps, cmd.name == "help");
        for (; !AtEnd(); ++m_nAt) {
            TakeObject(cmd.objs.objs.emplace_back());
        }
        return true;
    }

private:
    bool At(char wanted) const { return m_nAt < m_Line.size() && m_Line[m_nAt] == wanted; }

    bool AtOneOf(std::string_view characters) const
    {
        return m_nAt == m_Line.size() || characters.find(m_Line[m_nAt]) != std::string_view::npos;
    }

    /// Goes on to the next token. A comment is the end too.
    bool AtEnd()
    {
        m_nAt = std::min(m_Line.find_first_not_of(BLANKS, m_nAt), m_Line.size());
        return m_nAt == m_Line.size() || At('#');
    }

    [[noreturn]] static void Fail(const std::string& what, std::size_t at)
    {
        throw BadLine(what + " at column " + std::to_string(at + 1));
    }

    [[noreturn]] void FailExpected(const std::string& expected, std::size_t at) const
    {
        const std::size_t end = m_Line.find_first_of(BLANKS, at);
        Fail("expected " + expected + ", found " + Quoted(m_Line.substr(at, end - at)), at);
    }

    std::string_view TakeBare(std::string_view ends)
    {
        const std::size_t begin = m_nAt;
        m_nAt = std::min(m_Line.find_first_of(ends, begin), m_Line.size());
        return m_Line.substr(begin, m_nAt - begin);
    }

    /// A bare text, which may be empty, or a quoted one.
    std::string TakeText(std::string_view ends)
    {
        if (!At('"')) {
            return std::string(TakeBare(ends));
        }
        std::string text;
        const std::size_t begin = m_nAt++;
        for (; !At('"'); ++m_nAt) {
            if (m_nAt == m_Line.size()) {
                Fail("unterminated quote", begin);
            }
            text += At('\\') ? TakeEscape() : m_Line[m_nAt];
        }
        ++m_nAt;
        return text;
    }

    /// Leaves the position on the last character of the escape.
    char TakeEscape()
    {
        constexpr std::string_view names = "\"\\ntr";
        constexpr std::string_view values = "\"\\\n\t\r";
        const std::string_view escape = m_Line.substr(m_nAt, 2);
        if (escape.size() < 2) {
            return '\\'; // the quote is not terminated
        }
        const std::size_t begin = m_nAt++;
        if (const auto index = names.find(escape[1]); index != std::string_view::npos) {
            return values[index];
        }
        if (!At('x')) {
            Fail("unknown escape " + Quoted(escape), begin);
        }
        const std::string_view digits = m_Line.substr(m_nAt + 1, 2);
        const char* const end = digits.data() + digits.size();
        unsigned char byte = 0;
        if (std::from_chars(digits.data(), end, byte, 16).ptr != end || digits.size() < 2) {
            Fail("\\x without two hexadecimal digits", begin);
        }
        m_nAt += 2;
        return static_cast<char>(byte);
    }

    /// "help WORD" is short for "help command=WORD".
    void TakePairs(EmsNVTPList& list, bool isHelp = false)
    {
        for (; !AtEnd() && !At('{') && !At('}'); isHelp = false) {
            TakePair(list.nvtps.emplace_back(), isHelp);
        }
    }

    void TakePair(Pair& pair, bool mayBeTopic)
    {
        const std::size_t begin = m_nAt;
        const bool quotedName = At('"');
        pair.name = TakeText(NAME_ENDS);
        const bool named = m_nAt > begin;
        if (mayBeTopic && named && !quotedName && AtOneOf(WORD_ENDS)) {
            pair.value = std::exchange(pair.name, "command");
            return;
        }
        if (At(':')) {
            const std::size_t typeBegin = ++m_nAt;
            const std::string_view type = TakeBare(NAME_ENDS);
            if (named && At('=') && type != "long") {
                Fail("unknown type " + Quoted(type) + ", only long is known", typeBegin);
            }
            pair.rtype = NVTP_TYPE_LONG;
        }
        if (!named || !At('=')) {
            FailExpected("name=value", begin);
        }
        const std::size_t valueBegin = ++m_nAt;
        const bool quoted = At('"');
        pair.value = TakeText(VALUE_ENDS);
        if (!AtOneOf(WORD_ENDS)) {
            Fail(quoted ? "text after a closing quote" : "quote inside a bare value", m_nAt);
        }
        if (pair.rtype == NVTP_TYPE_LONG && !IsInteger(pair.value)) {
            Fail(Quoted(pair.value) + " is not an integer", valueBegin);
        }
    }

    /// Leaves the position on the closing brace.
    void TakeObject(EmsGeneralObj& object)
    {
        const std::size_t begin = m_nAt;
        if (!At('{')) {
            FailExpected("{ or the end of the line", begin);
        }
        ++m_nAt;
        TakePairs(object.nvtps);
        if (AtEnd()) {
            Fail("object not closed with }", begin);
        }
        if (!At('}')) {
            FailExpected("name=value or }", m_nAt);
        }
    }

    std::string_view m_Line;
    std::size_t m_nAt = 0;
};

} // namespace

bool ParseCommand(std::string_view line, EmsGeneralCmd& cmd)
{
    cmd = EmsGeneralCmd();
    return LineParser(line).Parse(cmd);
}

std::string Printable(std::string_view text)
{
    const std::string quoted = Quoted(text);
    const bool isPlain = quoted.size() == text.size() + 2 && !text.empty() &&
                         text.find_first_of(NAME_ENDS) == std::string_view::npos;
    return isPlain ? std::string(text) : quoted;
}

std::string Quoted(std::string_view text)
{
    std::size_t size = std::min(text.size(), LONGEST_QUOTED);
    while (size > 0 && size < text.size() && (text[size] & 0xC0) == 0x80) {
        --size; // not inside a character of UTF-8
    }
    std::string quoted = "\"";
    for (const char character : text.substr(0, size)) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7f) {
            quoted += string_format("\\x%02x", byte);
            continue;
        }
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    return quoted + (text.size() > size ? "\"..." : "\"");
}

} // namespace emshost
