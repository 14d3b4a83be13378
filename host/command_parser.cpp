#include "host/command_parser.h"

#include <algorithm>
#include <charconv>

#include "emsutil/diagnostics.h"

namespace emshost {

namespace {

using namespace NSQN_EMSUTIL_AGENT;

constexpr std::string_view BLANKS = " \t";
constexpr std::string_view NAME_ENDS = " \t{}=:\"";
constexpr std::string_view VALUE_ENDS = " \t{}\"";
constexpr std::string_view WORD_ENDS = " \t{}";

constexpr std::size_t LONGEST_QUOTED = 40;

bool IsInteger(std::string_view text)
{
    if (text.starts_with('+') || text.starts_with('-')) {
        text.remove_prefix(1);
    }
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Of UTF-8.
bool IsInsideCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
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
        return ParseCommandName(cmd.name) && ParseTopic(cmd) && ParsePairs(cmd.nvtps) &&
                       ParseObjects(cmd.objs)
                   ? ParseResult::Command
                   : ParseResult::Error;
    }

private:
    bool At(char wanted) const { return m_nAt < m_Line.size() && m_Line[m_nAt] == wanted; }

    bool AtWordEnd() const
    {
        return m_nAt == m_Line.size() || WORD_ENDS.find(m_Line[m_nAt]) != std::string_view::npos;
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

    bool TakeWord(std::string& word, std::string_view ends)
    {
        if (At('"')) {
            return TakeQuoted(word);
        }
        word = TakeBare(ends);
        return true;
    }

    bool TakeQuoted(std::string& word)
    {
        const std::size_t begin = m_nAt++;
        for (; m_nAt < m_Line.size(); ++m_nAt) {
            if (At('"')) {
                ++m_nAt;
                return true;
            }
            if (!At('\\')) {
                word += m_Line[m_nAt];
            } else if (m_nAt + 1 < m_Line.size() && !TakeEscape(word)) {
                return false;
            }
        }
        return Fail("unterminated quote", begin);
    }

    /// Leaves the position on the last character of the escape.
    bool TakeEscape(std::string& word)
    {
        const std::size_t begin = m_nAt++;
        switch (const char kind = m_Line[m_nAt]) {
        case '"':
        case '\\':
            word += kind;
            return true;
        case 'n':
            word += '\n';
            return true;
        case 't':
            word += '\t';
            return true;
        case 'r':
            word += '\r';
            return true;
        case 'x': {
            const std::string_view digits = m_Line.substr(m_nAt + 1, 2);
            unsigned char byte = 0;
            const auto parsed =
                std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
            if (digits.size() < 2 || parsed.ptr != digits.data() + digits.size()) {
                return Fail("\\x without two hexadecimal digits", begin);
            }
            word += static_cast<char>(byte);
            m_nAt += 2;
            return true;
        }
        default:
            return Fail("unknown escape " + Quoted(m_Line.substr(begin, 2)), begin);
        }
    }

    bool ParseCommandName(std::string& name)
    {
        const std::size_t begin = m_nAt;
        if (!TakeWord(name, NAME_ENDS)) {
            return false;
        }
        return (AtWordEnd() && m_nAt > begin) || FailExpected("a command name", begin);
    }

    /// The word after "help", if there is one.
    bool ParseTopic(EmsGeneralCmd& cmd)
    {
        if (cmd.name != "help" || AtEnd()) {
            return true;
        }
        const std::size_t begin = m_nAt;
        const std::string_view word = TakeBare(NAME_ENDS);
        if (word.empty() || !AtWordEnd()) {
            m_nAt = begin;
            return true;
        }
        EmsNameAndValueStringTypePair& pair = cmd.nvtps.nvtps.emplace_back();
        pair.name = "command";
        pair.value = word;
        return true;
    }

    bool ParsePairs(EmsNVTPList& list)
    {
        while (!AtEnd() && !At('{') && !At('}')) {
            if (!ParsePair(list.nvtps.emplace_back())) {
                return false;
            }
        }
        return true;
    }

    bool ParsePair(EmsNameAndValueStringTypePair& pair)
    {
        const std::size_t begin = m_nAt;
        if (!TakeWord(pair.name, NAME_ENDS)) {
            return false;
        }
        const bool named = m_nAt > begin;
        if (At(':')) {
            ++m_nAt;
            pair.rtype = NVTP_TYPE_LONG;
            const std::size_t typeBegin = m_nAt;
            const std::string_view type = TakeBare(NAME_ENDS);
            if (named && At('=') && type != "long") {
                return Fail("unknown type " + Quoted(type) + ", only long is known", typeBegin);
            }
        }
        if (!named || !At('=')) {
            return FailExpected("name=value", begin);
        }
        const std::size_t valueBegin = ++m_nAt;
        const bool quoted = At('"');
        if (!TakeWord(pair.value, VALUE_ENDS)) {
            return false;
        }
        if (!AtWordEnd()) {
            return Fail(quoted ? "text after a closing quote" : "quote inside a bare value", m_nAt);
        }
        return pair.rtype != NVTP_TYPE_LONG || IsInteger(pair.value) ||
               Fail(Quoted(pair.value) + " is not an integer", valueBegin);
    }

    bool ParseObjects(EmsGeneralObjList& list)
    {
        while (!AtEnd()) {
            const std::size_t begin = m_nAt;
            if (!At('{')) {
                return FailExpected("{ or the end of the line", begin);
            }
            ++m_nAt;
            if (!ParsePairs(list.objs.emplace_back().nvtps)) {
                return false;
            }
            if (AtEnd()) {
                return Fail("object not closed with }", begin);
            }
            if (!At('}')) {
                return FailExpected("name=value or }", m_nAt);
            }
            ++m_nAt;
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
    std::string quoted = Quoted(text);
    const bool isPlain = quoted.size() == text.size() + 2 && !text.empty() &&
                         text.find_first_of(NAME_ENDS) == std::string_view::npos;
    return isPlain ? std::string(text) : quoted;
}

std::string Quoted(std::string_view text)
{
    std::size_t size = text.size();
    if (size > LONGEST_QUOTED) {
        size = LONGEST_QUOTED;
        while (size > 0 && IsInsideCharacter(text[size])) {
            --size;
        }
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
