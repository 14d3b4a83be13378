#ifndef TESTS_SUPPORT_TEST_PLATFORM_H
#define TESTS_SUPPORT_TEST_PLATFORM_H

/// A provider of the platform that the tests control.

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

struct TestPlatform
{
    std::atomic<bool> hasDebugInterface = true;
    std::atomic<int> fetches = 0;                        // of the debug interface
    std::function<void()> onFetch;                       // called in each fetch
    std::function<void(const std::string& line)> onLine; // called before a line is recorded

    std::function<int(int& value)> readMode; // reads "MsgHandleMode" in "test.cfg"
    std::atomic<int> modeReads = 0;

    std::string parentPath; // of the install path
};

TestPlatform& ThePlatform();

/// Returns the lines that were written since the last call. Each begins with its level, "1|", or
/// with "A|" for an assertion line.
std::vector<std::string> TakeLines();

/// Creates the directories of the report file, and removes them.
struct ReportDirectory
{
    ReportDirectory();
    ~ReportDirectory();

    /// Returns the text of the report file of the process "test", and removes the file.
    static std::string Take();

    const std::string m_Root;
};

/// Returns the debug interface, also while hasDebugInterface is false.
NSQN_util::DebugInterface* TheDebugInterface();

#endif
