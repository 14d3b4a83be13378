#ifndef TESTS_SUPPORT_TEST_PLATFORM_H
#define TESTS_SUPPORT_TEST_PLATFORM_H

/// A second provider of the platform that the library runs on, which the tests steer.

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

    // The count of each vsnprintf_s of this thread.
    static inline thread_local std::vector<std::size_t> formatCounts;

    std::function<int(int& value)> readMode; // the answer to "MsgHandleMode" in "test.cfg"
    std::atomic<int> modeReads = 0;

    std::string parentPath; // of the install path
};

TestPlatform& ThePlatform();

/// The lines written since the last call, each with its level in front, "1|", or "A|" for an
/// assertion line.
std::vector<std::string> TakeLines();

/// The folders of the report file, while it lives.
struct ReportFolder
{
    ReportFolder();
    ~ReportFolder();

    /// What the file of the process "test" holds, which is then removed.
    static std::string Take();

    const std::string m_Root;
};

/// The default object, whatever hasDebugInterface says.
NSQN_util::DebugInterface* TheDebugInterface();

#endif
