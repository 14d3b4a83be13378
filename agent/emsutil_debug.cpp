#include "emsutil/diagnostics.h"

#include <atomic>

#include <ace/Guard_T.h>
#include <ace/RW_Mutex.h>

#include <emsplatform/debug_interface.h>

#include "base/never_destroyed.h"

namespace NSQN_EMSUTIL_AGENT {

namespace {

constinit std::atomic<NSQN_util::DebugInterface*> g_pDebugInterface = nullptr;

} // namespace

NSQN_util::DebugInterface* GetEmsUtilAgentDebugInterface()
{
    if (NSQN_util::DebugInterface* cached = g_pDebugInterface.load(std::memory_order_acquire)) {
        return cached;
    }
    static NeverDestroyed<ACE_RW_Mutex> lock;
    // Shared, and locked() is not checked: several first callers may fetch at once, because all get
    // the same object, and a caller without the lock must get it too.
    const ACE_Read_Guard<ACE_RW_Mutex> guard(lock.m_Object);
    NSQN_util::DebugInterface* const fetched = NSQN_util::GetDefaultDebugInterface();
    if (fetched != nullptr) {
        g_pDebugInterface.store(fetched, std::memory_order_release);
    }
    return fetched;
}

} // namespace NSQN_EMSUTIL_AGENT
