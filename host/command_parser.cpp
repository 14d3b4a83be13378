#include "host/command_parser.h"

#include <algorithm>
#include <charconv>

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

/// Reads from left to right. What returns a bool returns false after an error, with the error set.
class LineParser
{
public:
    LineParser(std::string_view line, std::string& error) : m_Line(line), m_strError(error) {}

    ParseResult Parse(EmsGeneralCmd& cmd)
    {
        if (AtEnd()) {
            return ParseResult::Blank;
        }
        const std::size_t begin = m_nAt;
        if (!TakeText(cmd.name, NAME_ENDS)) {
            return ParseResult::Error;
        }
        if (!AtOneOf(WORD_ENDS) || m_nAt == begin) {
            FailExpected("a command name", begin);
            return ParseResult::Error;
        }
        TakeTopic(cmd);
        const bool isRead = TakePairs(cmd.nvtps) && TakeObjects(cmd.objs);
        return isRead ? ParseResult::Command : ParseResult::Error;
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

    bool Fail(const std::string& what, std::size_t at)
    {
        m_strError = what + " at column " + std::to_string(at + 1);
        return false;
    }

    bool FailExpected(const std::string& expected, std::size_t at)
    {
        const std::size_t end = m_Line.find_first_of(BLANKS, at);
        return Fail("expected " + expected + ", found " + Quoted(m_Line.substr(at, end - at)), at);
    }

    std::string_view TakeBare(std::string_view ends)
    {
        const std::size_t begin = m_nAt;
        m_nAt = std::min(m_Line.find_first_of(ends, begin), m_Line.size());
        return m_Line.substr(begin, m_nAt - begin);
    }

    /// A bare text, which may be empty, or a quoted one.
    bool TakeText(std::string& text, std::string_view ends)
    {
        if (!At('"')) {
            text = TakeBare(ends);
            return true;
        }
        const std::size_t begin = m_nAt++;
        for (; m_nAt < m_Line.size(); ++m_nAt) {
            if (At('"')) {
                ++m_nAt;
                return true;
            }
            if (!At('\\')) {
                text += m_Line[m_nAt];
            } else if (m_nAt + 1 < m_Line.size() && !TakeEscape(text)) {
                return false;
            }
        }
        return Fail("unterminated quote", begin);
    }

    /// Leaves the position on the last character of the escape.
    bool TakeEscape(std::string& text)
    {
        constexpr std::string_view names = "\"\\ntr";
        constexpr std::string_view values = "\"\\\n\t\r";
        const std::size_t begin = m_nAt++;
        if (const auto index = names.find(m_Line[m_nAt]); index != std::string_view::npos) {
            text += values[index];
            return true;
        }
        if (!At('x')) {
            return Fail("unknown escape " + Quoted(m_Line.substr(begin, 2)), begin);
        }
        const std::string_view digits = m_Line.substr(m_nAt + 1, 2);
        const char* const end = digits.data() + digits.size();
        unsigned char byte = 0;
        if (std::from_chars(digits.data(), end, byte, 16).ptr != end || digits.size() < 2) {
            return Fail("\\x without two hexadecimal digits", begin);
        }
        text += static_cast<char>(byte);
        m_nAt += 2;
        return true;
    }

    /// "help WORD" is short for "help command=WORD".
    void TakeTopic(EmsGeneralCmd& cmd)
    {
        if (AtEnd() || cmd.name != "help") {
            return;
        }
        const std::size_t begin = m_nAt;
        const std::string_view word = TakeBare(NAME_ENDS);
        if (word.empty() || !AtOneOf(WORD_ENDS)) {
            m_nAt = begin;
            return;
        }
        Pair& pair = cmd.nvtps.nvtps.emplace_back();
        pair.name = "command";
        pair.value = word;
    }

    bool TakePairs(EmsNVTPList& list)
    {
        while (!AtEnd() && !At('{') && !At('}')) {
            if (!TakePair(list.nvtps.emplace_back())) {
                return false;
            }
        }
        return true;
    }

    bool TakePair(Pair& pair)
    {
        const std::size_t begin = m_nAt;
        if (!TakeText(pair.name, NAME_ENDS)) {
            return false;
        }
        const bool named = m_nAt > begin;
        if (At(':')) {
            const std::size_t typeBegin = ++m_nAt;
            const std::string_view type = TakeBare(NAME_ENDS);
            if (named && At('=') && type != "long") {
                return Fail("unknown type " + Quoted(type) + ", only long is known", typeBegin);
            }
            pair.rtype = NVTP_TYPE_LONG;
        }
        if (!named || !At('=')) {
            return FailExpected("name=value", begin);
        }
        const std::size_t valueBegin = ++m_nAt;
        const bool quoted = At('"');
        if (!TakeText(pair.value, VALUE_ENDS)) {
            return false;
        }
        if (!AtOneOf(WORD_ENDS)) {
            return Fail(quoted ? "text after a closing quote" : "quote inside a bare value", m_nAt);
        }
        return pair.rtype != NVTP_TYPE_LONG || IsInteger(pair.value) ||
               Fail(Quoted(pair.value) + " is not an integer", valueBegin);
    }

    bool TakeObjects(EmsGeneralObjList& list)
    {
        for (; !AtEnd(); ++m_nAt) {
            const std::size_t begin = m_nAt;
            if (!At('{')) {
                return FailExpected("{ or the end of the line", begin);
            }
            ++m_nAt;
            if (!TakePairs(list.objs.emplace_back().nvtps)) {
                return false;
            }
            if (AtEnd()) {
                return Fail("object not closed with }", begin);
            }
            if (!At('}')) {
                return FailExpected("name=value or }", m_nAt);
            }
        }
        return true;
    }

    std::string_view m_Line;
    std::string& m_strError;
    std::size_t m_nAt = 0;
};

} // namespace

ParseResult ParseCommand(std::string_view line, EmsGeneralCmd& cmd, std::string& error)
{
    cmd.name.clear();
    cmd.nvtps.nvtps.clear();
    cmd.objs.objs.clear();
    return LineParser(line, error).Parse(cmd);
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
