#ifndef EMSPLATFORM_PLATFORM_H
#define EMSPLATFORM_PLATFORM_H

/// The functions and variables of the platform that libemsutil uses, except the debug interface and
/// the tasks. Any thread may call the functions.

#include <cstdarg>
#include <cstddef>
#include <string>

namespace NSQN_util {

/// Returns the directory in which the platform is installed.
std::string GetEKORPath();

/// Returns the directory above `path`, with a closing "/".
std::string GetParentPath(const std::string& path);

/// Sets `path` to the path of the element-management configuration file.
void GetEmsCfgFile(std::string& path);

/// The process's name. It must not change after threads have started.
extern std::string g_ProcName;

/// Whether the lock error manager is on. The library reads the variable with std::atomic_ref. A
/// host that sets it while threads run must write it with std::atomic_ref too.
extern bool g_bEnableMitLockErrMgr;

} // namespace NSQN_util

/// Reads the integer `key` from the configuration file `file`. If the file has the key with an
/// integer that fits an int, sets `value` and returns 1. Otherwise returns another number.
int eKorGetRegInt(const char* key, int& value, const char* file);

/// Formats as std::vsnprintf does. Writes at most `count` characters and a NUL into `dest`, which
/// has room for `destMax` bytes, and never more than `destMax` bytes. Returns the number of
/// characters, without the NUL.
///
/// Returns a negative number in two cases:
/// - The text is longer than `count` or `destMax` - 1 characters. `dest` then holds as many of the
///   text's first characters as fit, and a NUL.
/// - The format is rejected. `dest` then holds the empty text. If the text before the malformed
///   part of the format is too short to reach the last byte of `dest`, that byte has not been
///   written.
int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args) __attribute__((format(printf, 4, 0)));

#endif
