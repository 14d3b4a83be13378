#pragma once

#include <cstdio>

namespace NSQN_util {

class DebugInterface
{
public:
    // The library calls the third and the fourth operation, by their places.
    virtual bool IsShown(int level) = 0;
    virtual void Flush() = 0;
    virtual void DebugPrint(int level, const char* format, ...)
        __attribute__((format(printf, 3, 4))) = 0;
    virtual void AssertPrint(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;

protected:
    ~DebugInterface() = default; // not virtual: a destructor would take the first two places
};

DebugInterface* GetDefaultDebugInterface();

} // namespace NSQN_util

/// Where the lines go. A host may change it before threads start. The library does not know of it.
extern std::FILE* g_pDebugFile;
