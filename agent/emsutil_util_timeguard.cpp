#include "emsutil/diagnostics.h"

#include <climits>
#include <cstdarg>
#include <cstdint>

#include <sys/time.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>

#include "base/cancellation_off.h"
#include "base/qn_check.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constexpr std::size_t LONGEST_DESCRIPTION = 511;

/// Returns whole milliseconds since the epoch, or 0 when the clock fails.
double GetCurrentTimeMs()
{
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        return 0;
    }
    const std::int64_t milliseconds = std::int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
    return static_cast<double>(milliseconds);
}

int ElapsedMs(double begin, double end)
{
    if (end < begin) {
        return 0;
    }
    const double elapsed = end - begin;
    return elapsed < INT_MAX ? static_cast<int>(elapsed) : INT_MAX;
}

} // namespace

AgentTimeGuard::AgentTimeGuard(const char* format, ...)
    : m_dEndTime(0), m_dBeginTime(GetCurrentTimeMs())
{
    if (format == nullptr) {
        return;
    }
    char info[LONGEST_DESCRIPTION + 1] = {};
    va_list arguments;
    va_start(arguments, format);
    const int irlen = vsnprintf_s(info, sizeof info, LONGEST_DESCRIPTION, format, arguments);
    va_end(arguments);
    QN_CHECK_AT("emsutil_util", 103)
    QN_LOG_IF_TRUE(irlen < 0);
    m_strInfo = info;
}

AgentTimeGuard::~AgentTimeGuard()
{
    const CancellationOff uncancelled;
    m_dEndTime = GetCurrentTimeMs();
    try {
        NSQN_util::DebugInterface* debug = nullptr;
        if (!m_strInfo.empty() && (debug = GetEmsUtilAgentDebugInterface()) != nullptr) {
            debug->DebugPrint(1, "%s\n", m_strInfo.c_str());
        }
        if ((debug = GetEmsUtilAgentDebugInterface()) != nullptr) {
            debug->DebugPrint(1, "used time(ms): %d\n", ElapsedMs(m_dBeginTime, m_dEndTime));
        }
    } catch (...) {
        // A destructor must not throw.
    }
}

} // namespace NSQN_EMSUTIL_AGENT
