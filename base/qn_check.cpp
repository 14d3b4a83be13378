#include "base/qn_check.h"

#include <emsplatform/debug_interface.h>

#include "emsutil/diagnostics.h"

namespace NSQN_EMSUTIL_AGENT {

void ReportCheck(const CheckSite& site, const char* text)
{
    if (NSQN_util::DebugInterface* debug = NSQN_util::GetDefaultDebugInterface()) {
        debug->DebugPrint(1, "file:%s:%d,%s", site.m_pFile, site.m_nLine, text);
    }
}

void ReportAssertion(const CheckSite& site, const char* expression)
{
    if (NSQN_util::DebugInterface* debug = GetEmsUtilAgentDebugInterface()) {
        debug->AssertPrint("ASSERT: file %s, line %d assertion failed for '%s'.\n", site.m_pFile,
                           site.m_nLine, expression);
    }
}

} // namespace NSQN_EMSUTIL_AGENT
