#include "emsutil/lock_error_manager.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include <ace/Guard_T.h>

#include <emsplatform/platform.h>

#include "base/process_wide.h"

namespace NSQN_util {

namespace {

using RecordGuard = ACE_Guard<ACE_Thread_Mutex>;

bool IsEnabled()
{
    return std::atomic_ref(g_bEnableMitLockErrMgr).load(std::memory_order_relaxed);
}

} // namespace

constinit QNMitLockErrMgr* QNMitLockErrMgr::m_pInstance = nullptr;

QNMitLockErrMgr* QNMitLockErrMgr::Instance()
{
    return NSQN_EMSUTIL_AGENT::CreateOnce(m_pInstance);
}

void QNMitLockErrMgr::Destroy()
{
    NSQN_EMSUTIL_AGENT::DestroyOnce(m_pInstance);
}

QNMitLockErrMgr::QNMitLockErrMgr() = default;

QNMitLockErrMgr::~QNMitLockErrMgr()
{
    // locked() is not checked: the records are destroyed even without the lock.
    const RecordGuard guard(m_ThrIDInfoLock);
    m_ThrIDInfoMap.clear();
}

void QNMitLockErrMgr::InsertThrIDandInfo(int threadId, const char* info)
{
    if (!IsEnabled()) {
        return;
    }
    if (info == nullptr) {
        throw std::logic_error("QNMitLockErrMgr: the text is null");
    }
    std::string text(info); // copied before the lock is taken
    const RecordGuard guard(m_ThrIDInfoLock);
    if (guard.locked()) {
        m_ThrIDInfoMap.try_emplace(threadId, std::move(text));
    }
}

void QNMitLockErrMgr::EraseThrIDandInfo(int threadId)
{
    if (!IsEnabled()) {
        return;
    }
    const RecordGuard guard(m_ThrIDInfoLock);
    if (guard.locked()) {
        m_ThrIDInfoMap.erase(threadId);
    }
}

} // namespace NSQN_util
