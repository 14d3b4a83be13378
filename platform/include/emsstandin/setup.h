#ifndef EMSSTANDIN_SETUP_H
#define EMSSTANDIN_SETUP_H

/// The controls with which a host or a test sets up this platform. libemsutil does not use them.
/// The lock error manager is off until the host sets NSQN_util::g_bEnableMitLockErrMgr.
///
/// Thread safety: any thread may call these functions at any time, except SetProcessName(), which
/// must be called before threads start.
/// Ownership: texts and callbacks are copied. A stream still belongs to the caller, and must stay
/// open until another destination is set.
/// Errors: only SetDebugFile() can fail. It then returns false.

#include <cstdio>
#include <functional>
#include <string>

namespace emsstandin {

/// The operation of the debug interface that received a debug line.
enum class DebugOperation {
    DebugPrint, ///< the line has a level
    AssertPrint ///< the line is shown at every level
};

/// A callback receives each formatted text, to which no newline has been added. `level` is 0 for
/// AssertPrint.
///
/// The callback runs on each thread that writes a debug line, and therefore on several threads at
/// the same time. The callback may write debug lines itself, because the platform holds no lock
/// then. The callback must not call an operation of a transaction log, because libemsutil writes
/// check lines of transaction logs under its own locks. An exception of the callback passes to the
/// caller of DebugPrint() or AssertPrint().
using DebugCallback =
    std::function<void(DebugOperation operation, int level, const std::string& text)>;

/// Writes debug lines to a stream. Until a destination is set, debug lines are written to standard
/// error. A newline is added to a text that does not end with one, so that each text is one whole
/// line. If the stream is null, the lines are dropped.
void SetDebugStream(std::FILE* stream);
/// Passes debug lines to a callback. If the callback is null, the lines are dropped.
void SetDebugCallback(DebugCallback callback);

/// Appends debug lines to a file. If the file cannot be opened, returns false with the reason in
/// errno and changes nothing.
bool SetDebugFile(const std::string& path);

/// Sets the lowest level that DebugPrint() shows. Until the level is set, it is 0. libemsutil
/// writes its lines at level 1.
void SetLowestDebugLevel(int level);

/// Sets the install path. Until the path is set, it is the directory that was current when the path
/// was first used.
void SetInstallPath(const std::string& path);
/// Sets the process's name. Until the name is set, it is the name of the program.
void SetProcessName(const std::string& name);
/// Sets the path of the configuration file. Until the path is set, it is "ems.cfg" in the install
/// path.
void SetConfigFile(const std::string& path);

} // namespace emsstandin

#endif
