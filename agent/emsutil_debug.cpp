#include "base/qn_check.h"
#include "emsutil/diagnostics.h"

#include <atomic>
#include <cstddef>
#include <new>

#include <ace/Guard_T.h>
#include <ace/RW_Mutex.h>

#include <emsplatform/debug_interface.h>

namespace NSQN_EMSUTIL_AGENT {

namespace {

constinit std::atomic<NSQN_util::DebugInterface*> g_pDebugInterface = nullptr;

} // namespace

NSQN_util::DebugInterface* GetEmsUtilAgentDebugInterface()
{
    if (NSQN_util::DebugInterface* cached = g_pDebugInterface.load(std::memory_order_acquire)) {
        return cached;
    }
    // Never destroyed: a call may come until the process is gone.
    alignas(ACE_RW_Mutex) static std::byte storage[sizeof(ACE_RW_Mutex)];
    static ACE_RW_Mutex& lock = *new (storage) ACE_RW_Mutex;
    // Shared, and not tested: first callers may fetch side by side, all get the same object, and a
    // caller without the lock still gets it.
    const ACE_Read_Guard<ACE_RW_Mutex> guard(lock);
    NSQN_util::DebugInterface* fetched = NSQN_util::GetDefaultDebugInterface();
    if (fetched != nullptr) {
        g_pDebugInterface.store(fetched, std::memory_order_release);
    }
    return fetched;
}

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
