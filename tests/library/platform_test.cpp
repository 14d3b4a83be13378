#include <climits>
#include <fstream>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>
#include <emsstandin/setup.h>

#include "tests/support/threads.h"

namespace {

using emsstandin::DebugOperation;

std::string TempFile(const std::string& name)
{
    return testing::TempDir() + std::to_string(getpid()) + "." + name;
}

} // namespace

TEST(Platform, ParentPathsHaveAClosingSeparator)
{
    const std::pair<const char*, const char*> cases[] = {
        {"/opt/ems/bin", "/opt/ems/"},
        {"/opt/ems/bin//", "/opt/ems/"},
        {"/opt", "/"},
        {"/", "/"},
        {"a//b", "a/"},
        {"a", "./"},
        {"", "./"},
    };
    for (const auto& [path, parent] : cases) {
        EXPECT_EQ(NSQN_util::GetParentPath(path), parent) << path;
    }
}

TEST(Platform, ReadsIntegersFromTheConfigurationFile)
{
    const std::string path = TempFile("platform_test.cfg");
    std::ofstream(path) << "# a comment\n  plain =  5  # five\nminus=-2147483648\r\n"
                           "plus = +7\nlarge = 2147483648\nword = 5x\nempty =\nplusminus = +-5\n"
                           "twice = 1\ntwice = 2\nspoiled = 1\nspoiled = x\n= 4\nno equals\n"
                           "#hidden = 6\nlast = 9";
    const std::tuple<const char*, int, int> cases[] = {
        {"plain", 1, 5},   {"minus", 1, INT_MIN}, {"plus", 1, 7},     {"large", 0, 42},
        {"word", 0, 42},   {"empty", 0, 42},      {"twice", 1, 2},    {"spoiled", 0, 42},
        {"hidden", 0, 42}, {"Plain", 0, 42},      {"missing", 0, 42}, {"last", 1, 9},
        {nullptr, 0, 42},  {"plusminus", 0, 42},
    };
    for (const auto& [key, result, read] : cases) {
        int value = 42;
        EXPECT_EQ(eKorGetRegInt(key, value, path.c_str()), result);
        EXPECT_EQ(value, read);
    }
    int value = 42;
    for (const char* file : {"/nowhere/ems.cfg", "/", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(eKorGetRegInt("plain", value, file), 0);
    }
    EXPECT_EQ(value, 42);
    std::remove(path.c_str());
}

TEST(Platform, PathsFollowWhatTheHostSets)
{
    std::string config;
    NSQN_util::GetEmsCfgFile(config);
    EXPECT_EQ(config, NSQN_util::GetEKORPath() + "/ems.cfg");
    emsstandin::SetInstallPath("/opt/ems");
    emsstandin::SetProcessName("agent");
    EXPECT_EQ(NSQN_util::GetEKORPath(), "/opt/ems");
    EXPECT_EQ(NSQN_util::g_ProcName, "agent");
    NSQN_util::GetEmsCfgFile(config);
    EXPECT_EQ(config, "/opt/ems/ems.cfg");
    emsstandin::SetConfigFile("/etc/ems.cfg");
    NSQN_util::GetEmsCfgFile(config);
    EXPECT_EQ(config, "/etc/ems.cfg");
    EXPECT_FALSE(NSQN_util::g_bEnableMitLockErrMgr);
}

TEST(Platform, ACallbackGetsTheTextAsItIsAndMayPrintItself)
{
    std::vector<std::string> lines;
    NSQN_util::DebugInterface* debug = NSQN_util::GetDefaultDebugInterface();
    emsstandin::SetDebugCallback([&](DebugOperation operation, int level, const std::string& text) {
        lines.push_back((operation == DebugOperation::AssertPrint ? "A" : std::to_string(level)) +
                        text);
        if (text == "outer") {
            debug->DebugPrint(2, "inner");
        }
    });
    emsstandin::SetLowestDebugLevel(1);
    const std::string longText(511, 'x'); // with its newline it fills 512 bytes
    debug->DebugPrint(0, "not shown");
    debug->DebugPrint(1, "outer");
    debug->AssertPrint("%s\n", longText.c_str());
    EXPECT_EQ(lines, (std::vector<std::string>{"1outer", "2inner", "A" + longText + "\n"}));
    EXPECT_FALSE(debug->IsLevelShown(0));

    emsstandin::SetDebugCallback([](auto, auto, auto&) { throw 1; });
    EXPECT_THROW(debug->DebugPrint(1, "thrown"), int);
    emsstandin::SetDebugCallback(nullptr);
    debug->DebugPrint(1, "nobody listens");
    emsstandin::SetDebugStream(nullptr);
    debug->DebugPrint(1, "nobody listens");
    debug->Flush();
}

TEST(Platform, AFileGetsWholeLinesFromAllThreads)
{
    const std::string path = TempFile("platform_test.log");
    std::remove(path.c_str());
    EXPECT_FALSE(emsstandin::SetDebugFile("/nowhere/debug.log"));
    ASSERT_TRUE(emsstandin::SetDebugFile(path));
    constexpr int threads = 4;
    constexpr int each = 1000;
    const std::string word(300, 'w');
    RunOnThreads(threads, [&word](int) {
        for (int i = 0; i < each; ++i) {
            NSQN_util::GetDefaultDebugInterface()->DebugPrint(1, "%s", word.c_str());
        }
    });
    emsstandin::SetDebugStream(stderr); // closes the file
    std::string expected;
    for (int i = 0; i < threads * each; ++i) {
        expected += word + '\n';
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), expected);
    std::remove(path.c_str());
}
