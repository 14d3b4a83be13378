#include "emsplatform/platform.h"

#include <algorithm>
#include <cstdio>

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args)
{
    if (dest == nullptr || destMax == 0) {
        return -1;
    }
    const std::size_t room = std::min(count, destMax - 1);
    const int length = format != nullptr ? std::vsnprintf(dest, room + 1, format, args) : -1;
    if (length < 0) {
        dest[0] = '\0'; // the C library leaves what it had formatted when it gave up
        return -1;
    }
    return static_cast<std::size_t>(length) <= room ? length : -1;
}
