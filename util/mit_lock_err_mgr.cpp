#include "emsutil/lock_error_manager.h"

#include <atomic>
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
    const std::atomic_ref published(m_pInstance);
    if (published.load(std::memory_order_acquire) == nullptr) {
        return;
    }
    ACE_Recursive_Thread_Mutex* const lock = ACE_Static_Object_Lock::instance();
    if (lock == nullptr) {
        return; // not covered: ACE has the lock until ACE itself is gone
    }
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*lock);
    if (guard.locked()) {
        delete published.exchange(nullptr, std::memory_order_acq_rel);
    }
}

QNMitLockErrMgr::QNMitLockErrMgr() = default;

QNMitLockErrMgr::~QNMitLockErrMgr()
{
    const RecordGuard guard(m_ThrIDInfoLock);
    m_ThrIDInfoMap.clear();
}

void QNMitLockErrMgr::InsertThrIDandInfo(int threadId, const char* info)
{
    if (!IsEnabled()) {
        return;
    }
    std::string text(info); // before the lock, and std::logic_error when it is null
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
