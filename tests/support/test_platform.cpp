#include "tests/support/test_platform.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "tests/support/faults.h"

namespace {

class Recorder final : public NSQN_util::DebugInterface
{
public:
    bool IsLevelShown(int) override { return true; }
    void Flush() override {}

    void DebugPrint(int level, const char* format, ...) override
        __attribute__((format(printf, 3, 4)))
    {
        va_list args;
        va_start(args, format);
        Record(std::to_string(level) + "|", format, args);
        va_end(args);
    }

    void AssertPrint(const char* format, ...) override __attribute__((format(printf, 2, 3)))
    {
        va_list args;
        va_start(args, format);
        Record("A|", format, args);
        va_end(args);
    }

    std::vector<std::string> Take()
    {
        const std::lock_guard guard(m_Lock);
        return std::move(m_Lines);
    }

private:
    __attribute__((format(printf, 3, 0))) void Record(std::string line, const char* format,
                                                      va_list args)
    {
        faults::Collaborate();
        const faults::FailNth none(faults::ALLOCATION, 0);
        char text[2048];
        std::vsnprintf(text, sizeof text, format, args);
        line += text;
        if (ThePlatform().onLine) {
            ThePlatform().onLine(line);
        }
        const std::lock_guard guard(m_Lock);
        m_Lines.push_back(std::move(line));
    }

    std::mutex m_Lock;
    std::vector<std::string> m_Lines;
};

// Neither this nor the platform is destroyed: the library uses both until the process ends.
Recorder& TheRecorder()
{
    static Recorder& recorder = *new Recorder;
    return recorder;
}

} // namespace

TestPlatform& ThePlatform()
{
    static TestPlatform& platform = *new TestPlatform;
    return platform;
}

ReportDirectory::ReportDirectory()
    : m_Root(std::filesystem::temp_directory_path() / ("emsutil." + std::to_string(getpid())) / "")
{
    ThePlatform().parentPath = m_Root + "bin/";
    std::filesystem::create_directories(m_Root + "bin");
    std::filesystem::create_directories(m_Root + "var/dump");
}

ReportDirectory::~ReportDirectory()
{
    std::filesystem::remove_all(m_Root);
}

std::string ReportDirectory::Take()
{
    const std::string path = ThePlatform().parentPath + "../var/dump/test.rpt";
    std::ifstream file(path);
    std::string text(std::istreambuf_iterator<char>(file), {});
    std::filesystem::remove(path);
    return text;
}

std::vector<std::string> TakeLines()
{
    return TheRecorder().Take();
}

NSQN_util::DebugInterface* TheDebugInterface()
{
    return &TheRecorder();
}

namespace NSQN_util {

std::string g_ProcName = "test";
bool g_bEnableMitLockErrMgr = false;

DebugInterface* GetDefaultDebugInterface()
{
    faults::Collaborate();
    ++ThePlatform().fetches;
    if (ThePlatform().onFetch) {
        ThePlatform().onFetch();
    }
    return ThePlatform().hasDebugInterface ? &TheRecorder() : nullptr;
}

std::string GetEKORPath()
{
    return "install";
}

std::string GetParentPath(const std::string& path)
{
    return path == "install" ? ThePlatform().parentPath : "";
}

void GetEmsCfgFile(std::string& path)
{
    path = "test.cfg";
}

} // namespace NSQN_util

int eKorGetRegInt(const char* key, int& value, const char* file)
{
    faults::Collaborate();
    ++ThePlatform().modeReads;
    return key == std::string("MsgHandleMode") && file == std::string("test.cfg")
               ? ThePlatform().readMode(value)
               : 0;
}
