#include "emsplatform/platform.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

// Rejects a format that is null or incomplete, a wide character without a multibyte form, and a
// width or a whole text above INT_MAX. With a `count` below 3,072 a rejection writes only the NUL.
//
// The cost is that of std::vsnprintf, which also counts the characters that do not fit: 2 to 3 ns
// for each, and about 5 s for the longest text. The memory does not depend on the length, except
// for a floating-point number of great precision. The function has no lock and no state. A handler
// that the program has registered with register_printf_specifier() may call it.
int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args)
{
    if (dest == nullptr || destMax == 0) {
        return -1;
    }
    // Text that does not fit costs glibc's vsnprintf far more than a copy, so most texts are
    // formatted here and then copied. A larger buffer would be too much for a thread with the
    // smallest stack (16 KiB) and 4 KiB of its own data.
    char room[3072];
    const std::size_t most = std::min(count, destMax - 1);
    const bool fitsRoom = most < sizeof room;
    char* const text = fitsRoom ? room : dest;
    const int length = format != nullptr
                           ? std::vsnprintf(text, fitsRoom ? sizeof room : most + 1, format, args)
                           : -1;
    if (length < 0) {
        dest[0] = '\0';
        return -1;
    }
    const std::size_t kept = std::min(static_cast<std::size_t>(length), most);
    if (fitsRoom) {
        std::memcpy(dest, room, kept);
        dest[kept] = '\0';
    }
    return kept == static_cast<std::size_t>(length) ? length : -1;
}
