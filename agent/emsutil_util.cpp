#include "emsutil/diagnostics.h"

#include <cstdarg>
#include <cstddef>

#include <emsplatform/platform.h>

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr std::size_t FIRST_TEXT_SIZE = 512;
constexpr std::size_t LAST_TEXT_SIZE = std::size_t{1} << 30; // bytes; longer is a mistake

bool IsMalformed(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

/// A formatter leaves the empty text for a format that it rejects. A text too long for its buffer
/// can look the same when it begins with a NUL, so a character goes in front: it comes back unless
/// the format is at fault.
bool IsMalformed(const char* format, va_list args)
{
    const std::string marked = std::string("x") + format;
    char probe[2];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf_s(probe, sizeof probe, 1, marked.c_str(), args);
#pragma GCC diagnostic pop
    return probe[0] == '\0';
}

} // namespace

std::string string_format(const char* format, ...)
{
    std::string text;
    if (format == nullptr) {
        return text;
    }
    va_list args;
    for (std::size_t size = FIRST_TEXT_SIZE; size <= LAST_TEXT_SIZE;) {
        text.resize(size);
        va_start(args, format);
        const int length = vsnprintf_s(text.data(), size, size - 1, format, args);
        va_end(args);
        if (length >= 0 && static_cast<std::size_t>(length) < size) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
        if (length < 0 && text.front() == '\0') {
            va_start(args, format);
            const bool malformed = IsMalformed(format, args);
            va_end(args);
            if (malformed) {
                break;
            }
        }
        size = length < 0 ? 2 * size : static_cast<std::size_t>(length) + 1;
    }
    return {};
}

} // namespace NSQN_EMSUTIL_AGENT
