#ifndef EMSSTANDIN_SETUP_H
#define EMSSTANDIN_SETUP_H

/// How a host or a test sets this platform up. The library uses nothing of it.
///
/// Thread safety: all but SetProcessName() may be called at any time, and hold for what follows;
/// that one is called before threads start.
/// Ownership: texts and callbacks are copied; a stream stays the caller's.
/// Errors: only SetDebugFile() can fail, and says so.

#include <cstdio>
#include <functional>
#include <string>

namespace emsstandin {

/// The operation of the debug interface that a text was given to.
enum class DebugOperation {
    DebugPrint, ///< a line of a level
    AssertPrint ///< a line that is shown at every level
};

/// Gets each text as formatted, without a newline added; `level` is 0 for AssertPrint. It runs on
/// the thread that prints, with no lock of the platform held: it may print itself, and several
/// threads may be in it at once. (Check lines of transaction logs come under locks of libemsutil.)
/// What it throws leaves the print.
using DebugCallback =
    std::function<void(DebugOperation operation, int level, const std::string& text)>;

/// Where debug lines go: standard error at first. A stream or a file gets each text as one whole
/// line, with a newline added to a text that has none at its end. A null one drops the lines.
void SetDebugStream(std::FILE* stream);
/// Has the lines go to a callback. A null one drops them.
void SetDebugCallback(DebugCallback callback);

/// Appends debug lines to a file. Returns false, and changes nothing, when it cannot be opened;
/// errno then says why.
bool SetDebugFile(const std::string& path);

/// The lowest level that DebugPrint shows: 0 at first. libemsutil prints at level 1.
void SetLowestDebugLevel(int level);

/// The install path: at first the current directory at the first question.
void SetInstallPath(const std::string& path);
/// The process's name: at first the program's.
void SetProcessName(const std::string& name);
/// The configuration file: at first "ems.cfg" in the install path.
void SetConfigFile(const std::string& path);

} // namespace emsstandin

#endif
