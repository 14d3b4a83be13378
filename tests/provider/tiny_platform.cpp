#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include <cstdio>

void NSQN_util::DebugInterface::DebugPrint(int level, const char* format, ...)
{
    std::printf("%d ", level);
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
}

NSQN_util::DebugInterface* NSQN_util::GetDefaultDebugInterface()
{
    static DebugInterface debug;
    return &debug;
}

int vsnprintf_s(char* dest, std::size_t, std::size_t count, const char* format, va_list args)
{
    const int length = std::vsnprintf(dest, count + 1, format, args);
    return length > static_cast<int>(count) ? -1 : length;
}
