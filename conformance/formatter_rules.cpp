// Rules on vsnprintf_s.

#include <cstdarg>

#include <emsplatform/platform.h>

#include "rules.h"

namespace {

constexpr char UNTOUCHED = '#';

/// What one call has returned, and the destMax bytes of its buffer.
struct Formatted
{
    const char* m_pFormat;
    int m_nResult;
    std::string m_Buffer;

    /// Whether the buffer begins with `text` and a NUL.
    bool Holds(const std::string& text) const
    {
        return m_Buffer.compare(0, text.size() + 1, text + '\0') == 0;
    }

    void RequireIt(bool holds) const
    {
        if (holds) {
            return;
        }
        std::string shown = m_Buffer;
        if (shown.size() > 64) {
            shown.replace(40, shown.size() - 41, "..."); // keeps the last byte
        }
        for (std::size_t nul = 0; (nul = shown.find('\0', nul)) != std::string::npos;) {
            shown.replace(nul, 1, "\\0");
        }
        Fail("the format \"" + std::string(m_pFormat) + "\" has the result " +
             std::to_string(m_nResult) + " and leaves \"" + shown + "\" (#: not written)");
    }

    void RequireWhole(const std::string& text) const
    {
        RequireIt(m_nResult == static_cast<int>(text.size()) && Holds(text));
    }

    void RequireCut(const std::string& text) const { RequireIt(m_nResult < 0 && Holds(text)); }

    /// A formatter may accept a format that another one rejects.
    void RequireEmptyIfRejected() const
    {
        const bool isEmpty = Holds("") && m_Buffer.back() == UNTOUCHED;
        RequireIt(m_nResult < 0 ? isEmpty
                                : m_Buffer.find('\0') == static_cast<std::size_t>(m_nResult));
    }
};

/// Calls vsnprintf_s, and fails when it writes past `destMax` bytes.
Formatted Format(std::size_t destMax, std::size_t count, const char* format, ...)
{
    std::string buffer(2048, UNTOUCHED);
    va_list args;
    va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int result = vsnprintf_s(buffer.data(), destMax, count, format, args);
#pragma GCC diagnostic pop
    va_end(args);
    Require(buffer.find_first_not_of(UNTOUCHED, destMax) == std::string::npos,
            "it writes past the end of its buffer");
    return {format, result, buffer.substr(0, destMax)};
}

constexpr Rule RULES[] = {
    {"vsnprintf_s.fits", "A text that fits must be written whole, and its length returned.",
     [](const ConformanceOptions&) {
         const std::string longest(511, 'x');
         Format(512, 511, "%s-%d-%5.1f", "text", -7, 2.5).RequireWhole("text--7-  2.5");
         Format(512, 511, "%s", "").RequireWhole("");
         Format(512, 511, "%s", longest.c_str()).RequireWhole(longest);
     }},
    {"vsnprintf_s.does_not_fit",
     "If the text does not fit, the buffer must hold its first 'count' characters and a NUL, and "
     "the result must be negative.",
     [](const ConformanceOptions&) {
         const std::string tooLong(1000, 'x');
         Format(4, 3, "%s", "text").RequireCut("tex");
         Format(2, 1, "x%s", "text").RequireCut("x");
         Format(512, 511, "%s", tooLong.c_str()).RequireCut(tooLong.substr(0, 511));
     }},
    {"vsnprintf_s.count", "'count' must limit the text, and no byte past 'destMax' may be written.",
     [](const ConformanceOptions&) {
         Format(64, 3, "%s", "text").RequireCut("tex");
         Format(64, 4, "%s", "text").RequireWhole("text");
         Format(3, 64, "%s", "text");
     }},
    {"vsnprintf_s.nul_in_text", "A NUL in the text must be written and counted as a character.",
     [](const ConformanceOptions&) {
         Format(64, 63, "a%cb", 0).RequireWhole(std::string("a\0b", 3));
         Format(4, 3, "%c%s", 0, "text").RequireCut(std::string("\0te", 3));
     }},
    {"vsnprintf_s.malformed",
     "If the format is rejected, the buffer must begin with a NUL, keep its last byte, and the "
     "result must be negative. Otherwise the result must be the length of the text.",
     [](const ConformanceOptions&) {
         const wchar_t notInTheLocale[] = {0x20ac, 0};
         Format(64, 63, "text%").RequireEmptyIfRejected();
         Format(64, 63, "text%99999999999d", 1).RequireEmptyIfRejected();
         Format(64, 63, "%s%ls", "text", notInTheLocale).RequireEmptyIfRejected();
     }},
    {"vsnprintf_s.any_thread", "Any number of threads may format at the same time.",
     [](const ConformanceOptions&) {
         OnFourThreads([](int thread) {
             const std::string text(100, static_cast<char>('a' + thread));
             for (int times = 0; times < 250; ++times) {
                 Format(512, 511, "%s", text.c_str()).RequireWhole(text);
                 Format(64, 63, "%s", text.c_str()).RequireCut(text.substr(0, 63));
             }
         });
     }},
};

} // namespace

std::span<const Rule> FormatterRules()
{
    return RULES;
}
