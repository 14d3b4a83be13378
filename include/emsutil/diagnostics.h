#ifndef EMSUTIL_DIAGNOSTICS_H
#define EMSUTIL_DIAGNOSTICS_H

/// Diagnostics: the process's debug interface, printf-style text, the report file, and how long a
/// block took.
///
///     #include <emsplatform/debug_interface.h>
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     std::string who = string_format("%s on port %d", name.c_str(), port);
///     if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface())
///         debug->DebugPrint(1, "connected: %s\n", who.c_str());
///
///     EmsUtilReport(" connected: %s\n", who.c_str()); // Sun Nov 22 20:38:00 2026 connected: ...
///
///     {
///         AgentTimeGuard guard("loading %s", who.c_str());
///         Load();
///     } // "loading ...\n", "used time(ms): 20\n"
///
/// Thread safety: every function here may be called from any thread at any time.
/// Ownership: the debug interface belongs to the platform and lives as long as the process; texts
/// are returned by value.
/// Errors: no result tells of one; std::bad_alloc and std::length_error pass to the caller.

#include <string>

#include "emsutil/export.h"

namespace NSQN_util {
/// The platform's debug interface; its header comes with the platform.
class DebugInterface;
} // namespace NSQN_util

namespace NSQN_EMSUTIL_AGENT {

/// The process's debug interface, as the platform's GetDefaultDebugInterface() hands it out.
///
/// The first call that gets one keeps it; from then on a call is one read, without a lock and
/// without asking the platform. Returns null while the platform has none, and asks again at the
/// next call. May be called from a handler, a timer callback or a buffer's destructor; only first
/// calls may block, for as long as the platform takes to answer.
EMSUTIL_API NSQN_util::DebugInterface* GetEmsUtilAgentDebugInterface();

/// The printf-formatted text, whole, up to 2^30 - 1 characters. A text of up to 511 characters
/// takes one formatting pass; a longer one a pass for each doubling of a 512-byte buffer until it
/// fits.
///
/// A longer text, and a format that the platform's formatter rejects (a null pointer, a lone "%" at
/// the end, a width beyond int), give the empty string. Does not block; may be called from
/// anywhere.
EMSUTIL_API std::string string_format(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

/// Appends a message of 1 to 511 characters to the process's report file, and nothing else: callers
/// end lines with "\n" themselves. The entries of one process never mix; two processes of one name
/// share a file, and between the time stamp and the message of one an entry of the other may stand.
///
/// The file is "../var/dump/", the process's name and ".rpt" behind the parent of the platform's
/// install path, as these are at the first entry. It is opened, made if need be (mode 0644), and
/// closed for each entry; its folder is not made.
///
/// Nothing is written when the format is null or malformed, the message empty or longer, or the
/// file cannot be opened or locked against other entries. A full disk may cut an entry short.
/// Blocks for the file system and for other entries; may be called from anywhere. A thread cannot
/// be cancelled while it writes.
EMSUTIL_API void EmsUtilTraced(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The same with the local time in front, 24 characters as "Sun Nov 22 20:38:00 2026", and nothing
/// between it and the message. Without the stamp when the time cannot be told.
EMSUTIL_API void EmsUtilReport(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes, where its block ends, a description and how long the block took: "%s\n" and
/// "used time(ms): %d\n", two lines at level 1 of the debug interface.
///
/// The time is whole milliseconds of the wall clock, truncated: 0 when it was set back meanwhile,
/// 2147483647 at most, and a clock that fails reads 0. One thread makes and destroys a guard.
class EMSUTIL_API AgentTimeGuard
{
public:
    /// Takes the time, then the description: up to 511 characters, none when `format` is null. A
    /// longer one is cut, a malformed one empty; both write a check line,
    /// "file:emsutil_util:103,QN_LOG_IF_TRUE: irlen < 0".
    EMSUTIL_SCOPE_OBJECT explicit AgentTimeGuard(const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    /// Takes the time, then writes. Does not throw: lines that the debug interface fails to take
    /// are lost. A thread cannot be cancelled in it.
    ~AgentTimeGuard();

    AgentTimeGuard(const AgentTimeGuard&) = delete;
    AgentTimeGuard& operator=(const AgentTimeGuard&) = delete;

private:
    std::string m_strInfo;
    double m_dEndTime; // milliseconds since the epoch, as is the other
    double m_dBeginTime;
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
