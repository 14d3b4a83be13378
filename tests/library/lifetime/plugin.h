#ifndef TESTS_LIBRARY_LIFETIME_PLUGIN_H
#define TESTS_LIBRARY_LIFETIME_PLUGIN_H

#include "emsutil/timer.h"

/// The functions of plugin.cpp, for a program that is not linked to the library.
struct Plugin
{
    void (*scheduleTimer)(NSQN_EMSUTIL_AGENT::EmsUtilTimerInterface& timer, void* param);
    /// Creates and destroys a log. Returns the handle value that it had.
    unsigned long (*takeHandleValue)();
    /// Enters and leaves monitored work. Returns how many events the thread's record counts.
    long long (*countEvents)();

    void (*createLog)();
    /// Returns whether no operation of a transaction log does anything.
    bool (*findsNoLogs)();
};

#endif
