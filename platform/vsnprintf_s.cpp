#include "emsplatform/platform.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <stdio_ext.h>

namespace {

constexpr std::size_t SCRATCH_SIZE = 8192;

class BoundedStream;

// Of this thread. A plain pointer: one look tells the usual case.
constinit thread_local BoundedStream* g_pStream = nullptr;
/// Set once it is closed: what ends after it may still format.
constinit thread_local bool g_bStreamClosed = false;

/// A stream into a buffer, which fails when the buffer is full. The C library's own formatting into
/// a buffer goes on counting what does not fit, at some 2 ns a character, seconds for a wide field;
/// into this stream it stops.
class BoundedStream
{
public:
    BoundedStream() : m_pStream(fopencookie(this, "w", {nullptr, Write, nullptr, nullptr}))
    {
        if (m_pStream != nullptr) {
            std::setvbuf(m_pStream, m_Scratch, _IOFBF, sizeof m_Scratch);
            g_pStream = this;
        }
    }
    ~BoundedStream()
    {
        g_pStream = nullptr;
        g_bStreamClosed = true;
        if (m_pStream != nullptr) {
            std::fclose(m_pStream);
        }
    }
    BoundedStream(const BoundedStream&) = delete;
    BoundedStream& operator=(const BoundedStream&) = delete;

    /// The text's length, or more than `room` when it does not fit; negative when it cannot be
    /// formatted. What fits is in `dest`, with a NUL.
    int Format(char* dest, std::size_t room, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));

private:
    static ssize_t Write(void* self, const char* text, std::size_t length)
    {
        return static_cast<BoundedStream*>(self)->Append({text, length});
    }

    /// Takes what fits; less than all of it ends the formatting.
    ssize_t Append(std::string_view text)
    {
        const std::size_t fits = std::min(text.size(), m_nRoom - m_nLength);
        std::memcpy(m_pDest + m_nLength, text.data(), fits);
        m_nLength += fits;
        m_bOverflown = fits < text.size();
        return m_bOverflown ? 0 : static_cast<ssize_t>(fits);
    }

    char m_Scratch[SCRATCH_SIZE] = {};
    std::FILE* m_pStream;
    char* m_pDest = nullptr;
    std::size_t m_nRoom = 0;
    std::size_t m_nLength = 0;
    bool m_bOverflown = false;
};

int BoundedStream::Format(char* dest, std::size_t room, const char* format, va_list args)
{
    m_pDest = dest;
    m_nRoom = room;
    m_nLength = 0;
    m_bOverflown = false;
    flockfile(m_pStream); // another thread may flush all streams
    int length = std::vfprintf(m_pStream, format, args);
    if (length >= 0 && m_nLength == 0 && static_cast<std::size_t>(length) <= sizeof m_Scratch) {
        Append({m_Scratch, static_cast<std::size_t>(length)}); // the usual text, not yet written
    } else if (length >= 0) {
        std::fflush(m_pStream);
    }
    __fpurge(m_pStream);
    if (m_bOverflown || length < 0) {
        clearerr(m_pStream);
    }
    funlockfile(m_pStream);
    dest[m_nLength] = '\0';
    return m_bOverflown ? INT_MAX : length;
}

int Format(char* dest, std::size_t room, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

int Format(char* dest, std::size_t room, const char* format, va_list args)
{
    if (g_pStream == nullptr && !g_bStreamClosed) {
        thread_local const BoundedStream stream;
    }
    return g_pStream != nullptr ? g_pStream->Format(dest, room, format, args)
                                : std::vsnprintf(dest, room + 1, format, args);
}

/// Whether every conversion of the format is complete and no number in one is beyond int.
/// Formatting does not tell when it stops before the fault.
bool IsWellFormed(const char* format)
{
    while ((format = std::strchr(format, '%')) != nullptr) {
        long long number = 0;
        for (++format; *format != '\0' && std::strchr("-+ #0123456789'I.*$hlqLjzZt", *format);
             ++format) {
            number = *format >= '0' && *format <= '9' ? 10 * number + (*format - '0') : 0;
            if (number > INT_MAX) {
                return false;
            }
        }
        if (*format == '\0') {
            return false;
        }
        ++format;
    }
    return true;
}

} // namespace

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args)
{
    if (dest == nullptr || destMax == 0) {
        return -1;
    }
    const std::size_t room = std::min(count, destMax - 1);
    const int length = format != nullptr ? Format(dest, room, format, args) : -1;
    if (length >= 0 && static_cast<std::size_t>(length) <= room) {
        return length;
    }
    if (length < 0 || !IsWellFormed(format)) {
        dest[0] = '\0';
    }
    return -1;
}
