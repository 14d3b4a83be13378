#pragma once

namespace NSQN_util {

class DebugInterface
{
public:
    virtual void First() {}
    virtual void Second() {}
    virtual void DebugPrint(int level, const char* format, ...);
    virtual void AssertPrint(const char*, ...) {}
};

DebugInterface* GetDefaultDebugInterface();

} // namespace NSQN_util

/// Of this platform's own: how many lines there were.
extern int g_nLines;
