#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <mutex>

std::FILE* g_pDebugFile = stdout;

namespace {

class FileDebugInterface final : public NSQN_util::DebugInterface
{
public:
    bool IsShown(int) override { return true; }
    void Flush() override { std::fflush(g_pDebugFile); }

    void DebugPrint(int level, const char* format, ...) override
        __attribute__((format(printf, 3, 4)))
    {
        const std::lock_guard guard(m_Lock);
        std::fprintf(g_pDebugFile, "%d ", level);
        va_list args;
        va_start(args, format);
        std::vfprintf(g_pDebugFile, format, args);
        va_end(args);
    }

    void AssertPrint(const char* format, ...) override __attribute__((format(printf, 2, 3)))
    {
        const std::lock_guard guard(m_Lock);
        va_list args;
        va_start(args, format);
        std::vfprintf(g_pDebugFile, format, args);
        va_end(args);
    }

private:
    std::mutex m_Lock; // held for each text, so that none falls into another
};

} // namespace

namespace NSQN_util {

DebugInterface* GetDefaultDebugInterface()
{
    static FileDebugInterface& debug = *new FileDebugInterface; // never destroyed
    return &debug;
}

std::string g_ProcName = "provider";
bool g_bEnableMitLockErrMgr = false;

std::string GetEKORPath()
{
    return "/opt/provider/bin";
}

std::string GetParentPath(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1); // with its closing "/"
}

void GetEmsCfgFile(std::string& path)
{
    path = "/opt/provider/etc/ems.cfg";
}

} // namespace NSQN_util

int eKorGetRegInt(const char* key, int& value, const char* file)
{
    std::ifstream config(file);
    for (std::string line; std::getline(config, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && line.substr(0, equals) == key) {
            const char* const end = line.data() + line.size();
            const auto parsed = std::from_chars(line.data() + equals + 1, end, value);
            return parsed.ec == std::errc() && parsed.ptr == end ? 1 : 0;
        }
    }
    return 0;
}

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args)
{
    const std::size_t room = std::min(count, destMax - 1); // without the NUL
    const int length = std::vsnprintf(dest, room + 1, format, args);
    if (length < 0) {
        dest[0] = '\0'; // a malformed format leaves the empty text
    }
    return length > static_cast<int>(room) ? -1 : length;
}
