#ifndef EMSUTIL_DIAGNOSTICS_H
#define EMSUTIL_DIAGNOSTICS_H

/// Diagnostics: the process's debug interface, printf-style text, the report file, and a guard that
/// measures how long a block takes.
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
/// Thread safety: any thread may call any function here at any time.
/// Ownership: the debug interface belongs to the platform and exists until the process ends. Texts
/// are returned by value.
/// Errors: no function reports an error. std::bad_alloc and std::length_error pass to the caller.

#include <string>

#include "emsutil/export.h"

namespace NSQN_util {
/// The platform's debug interface. The platform provides its header.
class DebugInterface;
} // namespace NSQN_util

namespace NSQN_EMSUTIL_AGENT {

/// Returns the process's debug interface. The first call gets it from the platform's
/// GetDefaultDebugInterface(). Returns null if the platform has none; the next call then asks the
/// platform again. The caller must not delete it.
///
/// Once the library has the debug interface, a call is one read, without a lock. Until then a call
/// may wait for the platform to return. May be called from a handler, a timer callback or a
/// buffer's destructor.
EMSUTIL_API NSQN_util::DebugInterface* GetEmsUtilAgentDebugInterface();

/// Returns the whole printf-formatted text, up to 2^30 - 1 characters.
///
/// Returns the empty string for a longer text and for a format that the platform's formatter
/// rejects (a null format, a lone "%" at the end, a width beyond int, a wide character that the
/// locale cannot show). The compiler checks the format against the arguments.
///
/// A text of up to 511 characters is formatted once. A longer text is formatted again each time
/// that its buffer of 512 bytes has been doubled, until it fits. A format with a width near 2^31
/// therefore takes minutes, and then returns the empty string. Does not wait. May be called from
/// anywhere.
EMSUTIL_API std::string string_format(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

/// Appends a message of 1 to 511 characters to the process's report file. The message is written as
/// it is: callers must end lines with "\n" themselves.
///
/// The path of the file is the parent of the platform's install path, followed by "../var/dump/",
/// the process's name and ".rpt". The first call whose format is not null fixes the path, even if
/// it writes nothing. The file is opened and closed for each entry, and created if it does not
/// exist (mode 0644). Its directory is not created.
///
/// Writes nothing when the format is null or malformed, when the message is empty or longer than
/// 511 characters, or when the file cannot be opened or locked against other entries. A full disk
/// may cut an entry short.
///
/// The entries of one process never mix. Two processes with the same name share a file, and an
/// entry of one may stand between the time stamp and the message of the other.
///
/// Waits for the file system and for entries of other threads, and returns when the entry is
/// written. A thread cannot be cancelled while it writes. May be called from anywhere.
EMSUTIL_API void EmsUtilTraced(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Appends a message as EmsUtilTraced() does, directly after the local time in 24 characters:
/// "Sun Nov 22 20:38:00 2026". The stamp is left out when the time cannot be converted.
EMSUTIL_API void EmsUtilReport(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Measures how long a block takes. Where the block ends, writes the description and the time as
/// two lines at level 1 of the debug interface: "%s\n" and "used time(ms): %d\n". If the
/// description is empty, writes only the second line.
///
/// The time is in whole milliseconds of the wall clock, truncated. It is 0 when the clock was set
/// back meanwhile, and at most 2147483647. A clock that fails reads 0.
///
/// Thread safety: the thread that creates a guard must destroy it.
/// Ownership: the description is copied.
/// Errors: lines that the debug interface fails to write are lost.
class EMSUTIL_API AgentTimeGuard
{
public:
    /// Reads the clock and then formats the description: up to 511 characters, or none if `format`
    /// is null. A longer description is cut, and a malformed one is empty. Both write a check line,
    /// "file:emsutil_util:103,QN_LOG_IF_TRUE: irlen < 0".
    EMSUTIL_SCOPE_OBJECT explicit AgentTimeGuard(const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    /// Reads the clock and then writes the lines. Does not throw. A thread cannot be cancelled in
    /// it.
    ~AgentTimeGuard();

    AgentTimeGuard(const AgentTimeGuard&) = delete;
    AgentTimeGuard& operator=(const AgentTimeGuard&) = delete;

private:
    std::string m_strInfo;
    double m_dEndTime;   // milliseconds since the epoch
    double m_dBeginTime; // milliseconds since the epoch
};

} // namespace NSQN_EMSUTIL_AGENT

#endif
