// Rules on the debug interface, the paths, the process's name and the configuration.

#include <cstdlib>
#include <fstream>

#include <unistd.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include "rules.h"

namespace {

using NSQN_util::DebugInterface;

DebugInterface& TheDebugInterface()
{
    DebugInterface* const debug = NSQN_util::GetDefaultDebugInterface();
    if (debug == nullptr) {
        Skip("the platform has no debug interface, and every line is lost");
    }
    return *debug;
}

void RequireDebugText(const ConformanceOptions& options, const std::string& text)
{
    if (options.m_DebugText) {
        const std::string found = options.m_DebugText();
        Require(found.find(text) != std::string::npos,
                "m_DebugText returns \"" + found + "\", without \"" + text + '"');
    }
}

/// Prints when it is destroyed: after the objects of the platform that have the default priority.
struct PrintsAtExit
{
    DebugInterface* m_pDebug = nullptr;

    ~PrintsAtExit()
    {
        if (m_pDebug != nullptr) {
            m_pDebug->DebugPrint(1, "conformance: %s\n", "exit");
        }
    }
};

[[gnu::init_priority(101)]] PrintsAtExit g_PrintsAtExit;

/// Whether the key is found in a file of this text; `value` is then set.
bool IsFound(const std::string& text, const char* key, int& value)
{
    char path[] = "/tmp/emsutil_conformance.XXXXXX";
    const int file = mkstemp(path);
    Require(file != -1, "no temporary file for the configuration");
    close(file);
    std::ofstream(path) << text;
    const int result = eKorGetRegInt(key, value, path);
    unlink(path);
    return result == 1;
}

constexpr Rule RULES[] = {
    {"GetDefaultDebugInterface.one_object",
     "Every call, on every thread, must return the same object.",
     [](const ConformanceOptions&) {
         const DebugInterface* const first = &TheDebugInterface();
         OnFourThreads([first](int) {
             Require(&TheDebugInterface() == first, "another object on another thread");
         });
     }},
    {"GetDefaultDebugInterface.at_exit",
     "The debug interface must work until the process has ended, destructors at exit included.",
     [](const ConformanceOptions&) { g_PrintsAtExit.m_pDebug = &TheDebugInterface(); }},
    {"DebugPrint.place", "DebugPrint must be the third virtual operation.",
     [](const ConformanceOptions&) {
         RequirePlace("DebugPrint", VirtualPlace(&DebugInterface::DebugPrint), 3);
     }},
    {"AssertPrint.place", "AssertPrint must be the fourth virtual operation.",
     [](const ConformanceOptions&) {
         RequirePlace("AssertPrint", VirtualPlace(&DebugInterface::AssertPrint), 4);
     }},
    {"DebugPrint.arrives",
     "A line of level 1 must be formatted as printf does, and m_DebugText must return it.",
     [](const ConformanceOptions& options) {
         TheDebugInterface().DebugPrint(1, "conformance: %s %d\n", "line", 17);
         RequireDebugText(options, "conformance: line 17");
     }},
    {"AssertPrint.arrives",
     "A text must be formatted as printf does, and m_DebugText must return it.",
     [](const ConformanceOptions& options) {
         TheDebugInterface().AssertPrint("conformance: %s %d\n", "assertion", 18);
         RequireDebugText(options, "conformance: assertion 18");
     }},
    {"DebugPrint.any_thread", "Any number of threads may print at the same time.",
     [](const ConformanceOptions&) {
         OnFourThreads([](int thread) {
             for (int times = 0; times < 25; ++times) {
                 TheDebugInterface().DebugPrint(1, "conformance: thread %d\n", thread);
             }
         });
     }},
    {"GetParentPath.closing_separator", "The parent of the install path must end with \"/\".",
     [](const ConformanceOptions&) {
         const std::string parent = NSQN_util::GetParentPath(NSQN_util::GetEKORPath());
         Require(parent.ends_with('/'), "\"" + parent + "\"");
     }},
    {"g_ProcName.is_a_name", "The process's name must be set, and must have no \"/\" in it.",
     [](const ConformanceOptions&) {
         const std::string& name = NSQN_util::g_ProcName;
         Require(!name.empty() && name.find('/') == std::string::npos, "\"" + name + "\"");
     }},
    {"eKorGetRegInt.integer", "The result must be 1 for a key that has an integer.",
     [](const ConformanceOptions& options) {
         int value = -1;
         Require(IsFound(options.m_ConfigText, "MsgHandleMode", value),
                 "a result other than 1 for the key MsgHandleMode of m_ConfigText");
         Require(value == 0, "the value " + std::to_string(value) + ", not 0");
     }},
    {"eKorGetRegInt.no_integer",
     "The result must not be 1 when the file, the key or the integer is missing.",
     [](const ConformanceOptions& options) {
         int value = 0;
         Require(eKorGetRegInt("MsgHandleMode", value, "") != 1, "the result 1 for the path \"\"");
         Require(!IsFound(options.m_ConfigText, "Missing", value),
                 "the result 1 for the key Missing");
         Require(!IsFound(options.m_ConfigText, "Word", value), "the result 1 for the key Word");
     }},
    {"GetEmsCfgFile.is_read",
     "eKorGetRegInt must accept the path that GetEmsCfgFile sets, whether the file exists or not.",
     [](const ConformanceOptions&) {
         std::string path;
         NSQN_util::GetEmsCfgFile(path);
         int value = 0;
         eKorGetRegInt("MsgHandleMode", value, path.c_str());
     }},
};

} // namespace

std::span<const Rule> PlatformRules()
{
    return RULES;
}
