#ifndef EMSPLATFORM_DEBUG_INTERFACE_H
#define EMSPLATFORM_DEBUG_INTERFACE_H

namespace NSQN_util {

/// The object through which a process writes its diagnostic lines. The platform owns it and must
/// not destroy it before the process ends.
///
/// libemsutil is compiled against the order of these operations, so the order must not change. The
/// library calls only the last two.
class DebugInterface
{
public:
    /// Returns whether DebugPrint() shows lines of this level.
    virtual bool IsLevelShown(int level) = 0;

    /// Passes all lines written so far to the operating system.
    virtual void Flush() = 0;

    /// Writes one formatted text at a level.
    virtual void DebugPrint(int level, const char* format, ...)
        __attribute__((format(printf, 3, 4))) = 0;

    /// Writes one formatted text that is shown at every level.
    virtual void AssertPrint(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;

protected:
    // Not virtual: a virtual destructor would take places in the table of virtual functions, and no
    // code deletes an object through this class.
    ~DebugInterface() = default;
};

/// Returns the process's debug interface, or null if the process has none. Any thread may call this
/// function.
DebugInterface* GetDefaultDebugInterface();

} // namespace NSQN_util

#endif
