#pragma once

#include <cstdarg>
#include <cstddef>

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                va_list args);
