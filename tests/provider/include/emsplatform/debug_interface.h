#pragma once

namespace NSQN_util {

struct DebugInterface
{
    virtual void First() {}
    virtual void Second() {}
    virtual void DebugPrint(int level, const char* format, ...);
    virtual void AssertPrint(const char*, ...) {}
};

DebugInterface* GetDefaultDebugInterface();

} // namespace NSQN_util
