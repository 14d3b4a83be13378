#ifndef EMSUTIL_CONFORMANCE_H
#define EMSUTIL_CONFORMANCE_H

/// The description of a platform for the conformance kit. The project that provides the platform
/// must have one source that defines ConformanceSetup(), and must name this source in the CMake
/// call:
///
///     emsutil_add_conformance_test(my_platform conformance_setup.cpp)

#include <functional>
#include <string>

/// What ConformanceSetup() returns.
struct ConformanceOptions
{
    /// The id of a task manager that is running and delivers events by itself, from 0 to 255. It
    /// must be negative if the platform has no task managers. The kit then leaves out the rules on
    /// tasks.
    int m_nTaskMgrId = -1;

    /// The text of a configuration file of this platform. In this file the key "MsgHandleMode" must
    /// have the integer 0, the key "Word" must have the text "x", and there must be no key
    /// "Missing".
    std::string m_ConfigText;

    /// Returns what has been written through the debug interface since the process started. If no
    /// function is set, the kit calls the debug interface but cannot check the text.
    std::function<std::string()> m_DebugText;

    /// The number of seconds that a rule may take, or 0 for any number. The kit kills the process
    /// of a rule that takes longer, and reports that the rule does not hold. A rule waits for up to
    /// four units of time of the task manager. A rule that is run alone has no limit.
    unsigned int m_nSecondsPerRule = 10;
};

/// The project that provides the platform must define this function. Each rule runs in a process of
/// its own. The process calls this function once, on its main thread, before anything else of the
/// platform. The function must return within 10 seconds.
ConformanceOptions ConformanceSetup();

#endif
