#include "emsutil/diagnostics.h"

#include <cstdarg>
#include <cstddef>

#include <emsplatform/platform.h>

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr std::size_t FIRST_TEXT_SIZE = 512;
constexpr std::size_t LAST_TEXT_SIZE = std::size_t{1} << 30; // bytes; longer is a mistake

// The last byte of the buffer before the call. A text that does not fit replaces it with its
// closing NUL.
constexpr char UNTOUCHED = '?';

} // namespace

std::string string_format(const char* format, ...)
{
    std::string text;
    if (format == nullptr) {
        return text;
    }
    for (std::size_t size = FIRST_TEXT_SIZE; size <= LAST_TEXT_SIZE;) {
        text.resize(size);
        text.back() = UNTOUCHED;
        va_list args;
        va_start(args, format);
        const int length = vsnprintf_s(text.data(), size, size - 1, format, args);
        va_end(args);
        if (length >= 0 && static_cast<std::size_t>(length) < size) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
        // A rejected format leaves the empty text. A text that begins with a NUL looks empty too,
        // but if it does not fit, its closing NUL is the last character.
        const bool isRejected = length < 0 && text.front() == '\0' && text.back() == UNTOUCHED;
        if (isRejected) {
            break;
        }
        size = length < 0 ? 2 * size : static_cast<std::size_t>(length) + 1;
    }
    return {};
}

} // namespace NSQN_EMSUTIL_AGENT
