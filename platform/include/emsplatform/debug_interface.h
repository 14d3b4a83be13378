#ifndef EMSPLATFORM_DEBUG_INTERFACE_H
#define EMSPLATFORM_DEBUG_INTERFACE_H

namespace NSQN_util {

/// Where a process writes its diagnostic lines. The platform owns the one object that there is; it
/// lives as long as the process.
///
/// libemsutil is compiled against the order of these operations and calls the last two only.
class DebugInterface
{
public:
    /// Whether DebugPrint() shows lines of this level.
    virtual bool IsLevelShown(int level) = 0;

    /// Hands everything written so far to the operating system.
    virtual void Flush() = 0;

    /// Writes one formatted text at a level.
    virtual void DebugPrint(int level, const char* format, ...)
        __attribute__((format(printf, 3, 4))) = 0;

    /// Writes one formatted text that is shown at every level.
    virtual void AssertPrint(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;

protected:
    // Not virtual: a destructor would take a place in the table, and nobody deletes through it.
    ~DebugInterface() = default;
};

/// The process's debug interface; null when it has none. Any thread may call it.
DebugInterface* GetDefaultDebugInterface();

} // namespace NSQN_util

#endif
