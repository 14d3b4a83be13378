#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include <algorithm>
#include <cstdio>

int g_nLines = 0;

void NSQN_util::DebugInterface::DebugPrint(int level, const char* format, ...)
{
    ++g_nLines;
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

std::string NSQN_util::g_ProcName = "provider";
bool NSQN_util::g_bEnableMitLockErrMgr = false;

std::string NSQN_util::GetEKORPath()
{
    return "/opt/provider";
}

std::string NSQN_util::GetParentPath(const std::string&)
{
    return "/opt/";
}

void NSQN_util::GetEmsCfgFile(std::string&) {}

int eKorGetRegInt(const char*, int&, const char*)
{
    return 0;
}

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args)
{
    const std::size_t room = std::min(count, destMax - 1);
    const int length = std::vsnprintf(dest, room + 1, format, args);
    if (length < 0) {
        dest[0] = '\0';
    }
    return length > static_cast<int>(room) ? -1 : length;
}
