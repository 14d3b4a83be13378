#include "host/soak/debug_lines.h"

#include <emsstandin/setup.h>

#include "host/console.h"

namespace emshost {

DebugLines& DebugLines::Instance()
{
    static auto* const lines = new DebugLines;
    return *lines;
}

void DebugLines::Collect()
{
    emsstandin::SetDebugCallback(
        [this](emsstandin::DebugOperation, int, const std::string& text) { CountLine(text); });
}

void DebugLines::CountLine(const std::string& text)
{
    if (text.starts_with("soak guard ") || text.starts_with("used time(ms): ")) {
        ++m_nGuard;
    } else if (text.starts_with("Ems Thread Information\n")) {
        ++m_nStatistics;
    } else {
        ++m_nOther;
        Console::Instance().Message(text);
    }
}

} // namespace emshost
