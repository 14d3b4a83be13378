#ifndef HOST_SOAK_DEBUG_LINES_H
#define HOST_SOAK_DEBUG_LINES_H

#include <string>

#include "host/soak/load.h"

namespace emshost {

/// What the loads have the library write to the debug interface. Never destroyed, as a line may
/// come until the process is gone.
struct DebugLines
{
    Count m_nGuard = 0;
    Count m_nStatistics = 0;
    Count m_nOther = 0;

    static DebugLines& Instance();

    /// Has the debug interface count its lines here; one that no load expects is a message too.
    void Collect();

private:
    void CountLine(const std::string& text);
};

} // namespace emshost

#endif
