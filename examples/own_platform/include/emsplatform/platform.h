#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace NSQN_util {

std::string GetEKORPath();
std::string GetParentPath(const std::string& path);
void GetEmsCfgFile(std::string& path);
extern std::string g_ProcName;
extern bool g_bEnableMitLockErrMgr;

} // namespace NSQN_util

int eKorGetRegInt(const char* key, int& value, const char* file);

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args) __attribute__((format(printf, 4, 0)));
