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
/// The platform's debug interface, which writes the diagnostic lines of the process. The platform's
/// header emsplatform/debug_interface.h declares its operations.
class DebugInterface;
} // namespace NSQN_util

namespace NSQN_EMSUTIL_AGENT {

/// Returns the process's debug interface. Returns null if the platform has none. The caller must
/// not delete the debug interface.
///
/// Until the platform has returned a debug interface, each call calls the platform's
/// GetDefaultDebugInterface(), and returns when that function returns. It does not wait until there
/// is a debug interface. From then on a call only reads a pointer, without a lock. May be called
/// from a command handler, a timer callback or a buffer's destructor.
EMSUTIL_API NSQN_util::DebugInterface* GetEmsUtilAgentDebugInterface();

/// Returns the whole printf-formatted text, up to 2^30 - 1 characters.
///
/// Returns the empty string if the text is longer, or if the format is null. Also returns the empty
/// string if the platform's formatter rejects the format. The formatter rejects a lone "%" at the
/// end, a width beyond int, and a wide character that the locale cannot show. The compiler checks
/// the format against the arguments.
///
/// The text is formatted into a buffer of 512 bytes. If it does not fit, it is formatted again into
/// a buffer of twice the size, and so on. A text of up to 511 characters is therefore formatted
/// once. With a width near 2^31 in the format, the call takes minutes and then returns the empty
/// string. The call does not wait for another thread. May be called from a command handler, a timer
/// callback or the destructor of a transaction log's buffer.
EMSUTIL_API std::string string_format(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

/// Appends a message of 1 to 511 characters to the process's report file. The message is the
/// formatted text, and nothing is added to it: the caller must end each line with "\n".
///
/// The path of the file is the parent of the platform's install path, followed by "../var/dump/",
/// the process's name (the platform's g_ProcName) and ".rpt". If the install path is /opt/ems/bin
/// and the name is "host", the file is /opt/ems/../var/dump/host.rpt. The first call of
/// EmsUtilTraced() or EmsUtilReport() whose format is not null fixes the path, even if that call
/// writes nothing.
///
/// Each call that writes appends one entry. The file is opened and closed for each entry. If the
/// file does not exist, it is created with the mode 0644, less the umask. The directory of the file
/// is not created.
///
/// Writes nothing if the format is null or malformed, or if the message is empty or longer than 511
/// characters. Writes nothing either if the file cannot be opened, or if a lock of the library
/// cannot be taken. The file itself is not locked. A full disk may cut an entry short.
///
/// The entries of one process never mix. Two processes with the same name share a file: see
/// EmsUtilReport().
///
/// Waits for the file system and for entries of other threads. Returns when the entry has been
/// written. A thread cannot be cancelled while it writes. May be called from a command handler, a
/// timer callback or the destructor of a transaction log's buffer.
EMSUTIL_API void EmsUtilTraced(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Appends an entry as EmsUtilTraced() does, with a time stamp directly before the message. The
/// time stamp is the local time in 24 characters: "Sun Nov 22 20:38:00 2026". It is left out if the
/// time cannot be converted. If two processes share a file, an entry of one may stand between the
/// time stamp and the message of the other.
EMSUTIL_API void EmsUtilReport(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Measures how long a block takes. Where the block ends, the guard writes two lines at level 1 of
/// the debug interface: the description with the format "%s\n", and the time with the format
/// "used time(ms): %d\n". If the description is empty, the guard writes only the second line.
///
/// The guard reads the wall clock twice and truncates each reading to whole milliseconds. The time
/// is the difference of the two, and at most 2147483647. It is 0 if the clock was set back so that
/// the second reading is the earlier one. If the clock cannot be read, the reading is taken as 0.
///
/// Thread safety: the thread that creates a guard must destroy it.
/// Ownership: the description is copied.
/// Errors: lines that the debug interface fails to write are lost.
class EMSUTIL_API AgentTimeGuard
{
public:
    /// Reads the clock and then formats the description, which has up to 511 characters. If
    /// `format` is null, the description is empty.
    ///
    /// A longer description is cut. If the format is malformed, the description is empty. In both
    /// cases the constructor writes a check line, which is a debug line about misuse:
    /// "file:emsutil_util:103,QN_LOG_IF_TRUE: irlen < 0" at level 1 of the debug interface.
    EMSUTIL_SCOPE_OBJECT explicit AgentTimeGuard(const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    /// Reads the clock and then writes the lines. Does not throw. The thread cannot be cancelled
    /// while the destructor runs.
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
