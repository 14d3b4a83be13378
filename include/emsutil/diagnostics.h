#ifndef EMSUTIL_DIAGNOSTICS_H
#define EMSUTIL_DIAGNOSTICS_H

/// Diagnostics: the process's debug interface and printf-style text.
///
///     #include <emsplatform/debug_interface.h>
///     #include <emsutil/diagnostics.h>
///
///     using namespace NSQN_EMSUTIL_AGENT;
///
///     std::string who = string_format("%s on port %d", name.c_str(), port);
///     if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface())
///         debug->DebugPrint(1, "connected: %s\n", who.c_str());
///
/// Thread safety: every function here may be called from any thread at any time.
/// Ownership: the debug interface belongs to the platform and lives as long as the process; texts
/// are returned by value.
/// Errors: nothing here reports one; std::bad_alloc and std::length_error pass to the caller.

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

/// The printf-formatted text, whole, up to 2^30 - 1 characters. A text of up to 511 characters takes
/// one formatting pass; a longer one a pass for each doubling of a 512-byte buffer until it fits.
///
/// A longer text, and a format that the platform's formatter rejects (a null pointer, a lone "%" at
/// the end, a width beyond int), give the empty string. Does not block; may be called from anywhere.
EMSUTIL_API std::string string_format(const char* format, ...)
    __attribute__((format(printf, 1, 2)));

} // namespace NSQN_EMSUTIL_AGENT

#endif
