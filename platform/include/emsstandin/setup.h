#ifndef EMSSTANDIN_SETUP_H
#define EMSSTANDIN_SETUP_H

/// The controls with which a host or a test sets up this platform. libemsutil does not use them.
///
/// Thread safety: any thread may call these functions at any time, except SetProcessName(), which
/// must be called before threads start.
/// Ownership: texts and callbacks are copied. A stream remains the caller's and must stay open
/// until another destination is set.
/// Errors: only SetDebugFile() can fail; it returns false then.

#include <cstdio>
#include <functional>
#include <string>

namespace emsstandin {

/// The operation of the debug interface that printed a text.
enum class DebugOperation {
    DebugPrint, ///< a line of a level
    AssertPrint ///< a line that is shown at every level
};

/// Called with each formatted text, to which no newline is added. `level` is 0 for AssertPrint. The
/// callback runs on the printing thread, on several threads at once, and may print itself, as no
/// lock of the platform is held. libemsutil holds its own locks when it prints check lines of
/// transaction logs. An exception of the callback passes through the print.
using DebugCallback =
    std::function<void(DebugOperation operation, int level, const std::string& text)>;

/// Writes debug lines to a stream, which is standard error at first. Each text becomes one whole
/// line: if it has no newline at its end, one is added. A null stream drops the lines.
void SetDebugStream(std::FILE* stream);
/// Passes debug lines to a callback. A null callback drops them.
void SetDebugCallback(DebugCallback callback);

/// Appends debug lines to a file. If the file cannot be opened, returns false with the reason in
/// errno and changes nothing.
bool SetDebugFile(const std::string& path);

/// Sets the lowest level that DebugPrint shows, 0 at first. libemsutil prints at level 1.
void SetLowestDebugLevel(int level);

/// Sets the install path. Until then it is the current directory of its first use.
void SetInstallPath(const std::string& path);
/// Sets the process's name, at first that of the program.
void SetProcessName(const std::string& name);
/// Sets the path of the configuration file, at first "ems.cfg" in the install path.
void SetConfigFile(const std::string& path);

} // namespace emsstandin

#endif
