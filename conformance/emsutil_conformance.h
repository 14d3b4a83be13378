#ifndef EMSUTIL_CONFORMANCE_H
#define EMSUTIL_CONFORMANCE_H

/// What a provider tells the conformance kit about a platform. The provider compiles one source
/// that defines ConformanceSetup(), and names it in the CMake call:
///
///     emsutil_add_conformance_test(my_platform conformance_setup.cpp)

#include <functional>
#include <string>

struct ConformanceOptions
{
    /// The id of a task manager that is running and delivers events by itself. A negative number
    /// when the platform has no task managers: the rules on tasks are then left out.
    int m_nTaskMgrId = -1;

    /// The text of a configuration file of this platform, in which the key "MsgHandleMode" is the
    /// integer 0, the key "Word" is the word x, and there is no key "Missing".
    std::string m_ConfigText;

    /// Returns what has been written through the debug interface since the process started. When
    /// it is empty the kit calls the debug interface, but cannot see what arrives.
    std::function<std::string()> m_DebugText;

    /// The kit ends a rule that takes longer, and reports that it hangs.
    unsigned int m_nSecondsPerRule = 10;
};

/// Defined by the provider. Each rule runs in a process of its own, which calls this function once,
/// on its main thread, before anything else of the platform.
ConformanceOptions ConformanceSetup();

#endif
