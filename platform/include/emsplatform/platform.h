#ifndef EMSPLATFORM_PLATFORM_H
#define EMSPLATFORM_PLATFORM_H

/// What libemsutil calls of its platform besides the debug interface. Any thread may call these.

#include <cstdarg>
#include <cstddef>
#include <string>

namespace NSQN_util {

/// The directory that the platform is installed in.
std::string GetEKORPath();

/// The directory above `path`, with a closing "/". The text alone decides; no file is looked at.
std::string GetParentPath(const std::string& path);

/// Sets `path` to that of the element-management configuration file.
void GetEmsCfgFile(std::string& path);

/// The process's name. Set before threads start; read only from then on.
extern std::string g_ProcName;

/// Turns the lock error manager on. False unless the host sets it. The library reads it with
/// std::atomic_ref; a host that changes it while threads run writes it so.
extern bool g_bEnableMitLockErrMgr;

} // namespace NSQN_util

/// Reads the integer `key` from the configuration file `file`. Returns 1 and sets `value` when the
/// key is there with an integer that fits an int; otherwise returns 0 and leaves `value` alone.
int eKorGetRegInt(const char* key, int& value, const char* file);

/// Formats at most `count` characters and a NUL into `dest`, which has room for `destMax` bytes;
/// nothing is ever written past them. Returns the number of characters.
///
/// A text that does not fit leaves its first `count` characters and a NUL, and gives a negative
/// result. A format that cannot be carried out (null, incomplete, a width or a whole text beyond
/// int) leaves the empty text, and gives a negative result.
int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args) __attribute__((format(printf, 4, 0)));

#endif
