#include "util/translog.h"

#include <climits>
#include <cstdint>
#include <memory>

#include <ace/Guard_T.h>

#include "base/cancellation_off.h"
#include "base/never_destroyed.h"
#include "base/qn_check.h"

namespace NSQN_util {

using NSQN_EMSUTIL_AGENT::CancellationOff;
using NSQN_EMSUTIL_AGENT::NeverDestroyed;

namespace {

/// The key of a buffer, with a name that it does not own.
using TransBufView = std::pair<std::string_view, unsigned long>;

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;
using CountGuard = ACE_Guard<ACE_Thread_Mutex>;

constinit std::atomic<bool> g_bTransLogMapTornDown = false;

/// Frees the registry's entries at unload. Does not wait: a thread that holds the lock may hang.
class RegistryTeardown
{
public:
    RegistryTeardown() = default;
    ~RegistryTeardown()
    {
        g_bTransLogMapTornDown = true;
        const WriteGuard guard(g_TransLogMapLock, 0);
        if (guard.locked()) {
            g_TransLogMap.clear();
        }
    }
    RegistryTeardown(const RegistryTeardown&) = delete;
    RegistryTeardown& operator=(const RegistryTeardown&) = delete;
};

/// Returns whether the registry may be used: `guard` holds g_TransLogMapLock, and the registry has
/// not been torn down.
template <class Guard>
bool IsOpen(const Guard& guard)
{
    return guard.locked() && !g_bTransLogMapTornDown.load(std::memory_order_relaxed);
}

/// Returns whether `n` more references can be counted. A count is negative after misuse.
bool HasRoom(int count, int n)
{
    return std::int64_t{count} + n <= INT_MAX;
}

/// Adds to a count. Only the holder of its lock changes it, so this need not be an atomic addition,
/// which takes longer.
void AddTo(std::atomic<int>& count, int n)
{
    count.store(count.load(std::memory_order_relaxed) + n, std::memory_order_release);
}

// The checks of counts. The parameters have the names that the check lines show.

void CheckReleasable(int m_nRefCount, int m_nRefCountEx)
{
    QN_CHECK_AT("translog", 439)
    QN_LOG_IF_NOT_TRUE(m_nRefCountEx > TRANSLOG_REFCOUNT_NULL);
    QN_CHECK_AT("translog", 440)
    QN_LOG_IF_NOT_TRUE(m_nRefCount > m_nRefCountEx);
}

// The checks in the destruction of a handle or a log. An exception of the debug interface must not
// prevent the destruction, and the thread must not be cancelled there.

void CheckReferenced(int m_nRefCount)
{
    if (m_nRefCount > TRANSLOG_REFCOUNT_NULL) {
        return; // the common case costs no call
    }
    const CancellationOff uncancelled;
    try {
        QN_CHECK_AT("translog", 402)
        QN_LOG_IF_NOT_TRUE(m_nRefCount > TRANSLOG_REFCOUNT_NULL);
    } catch (...) {
    }
}

void CheckUnreferenced(int m_nRefCount, int m_nRefCountEx)
{
    if (m_nRefCount <= TRANSLOG_REFCOUNT_NULL && m_nRefCountEx <= TRANSLOG_REFCOUNT_NULL) {
        return; // the common case costs no call
    }
    const CancellationOff uncancelled;
    try {
        QN_CHECK_AT("translog", 353)
        QN_LOG_IF_NOT_TRUE(m_nRefCount <= TRANSLOG_REFCOUNT_NULL);
    } catch (...) {
    }
    try {
        QN_CHECK_AT("translog", 354)
        QN_LOG_IF_NOT_TRUE(m_nRefCountEx <= TRANSLOG_REFCOUNT_NULL);
    } catch (...) {
    }
}

/// Returns a handle value that no log has.
///
/// REQUIRES: g_TransLogMapLock is held for writing.
unsigned long NewHandleValue()
{
    unsigned long handle = 0;
    do {
        handle = g_nNextTransLogHandle++;
    } while (handle == 0 || g_TransLogMap.contains(handle)); // the counter may wrap to 0
    return handle;
}

} // namespace

// Created before and torn down after all objects of default priority: a host that links the library
// statically may have logs at namespace scope.
[[gnu::init_priority(101)]] static NeverDestroyed<std::map<unsigned long, QNTransactionLogImpl*>>
    g_TransLogMapStorage;
[[gnu::init_priority(101)]] static NeverDestroyed<ACE_RW_Thread_Mutex> g_TransLogMapLockStorage;
[[gnu::init_priority(101)]] static RegistryTeardown g_RegistryTeardown;

constinit std::map<unsigned long, QNTransactionLogImpl*>& g_TransLogMap =
    g_TransLogMapStorage.m_Object;
constinit ACE_RW_Thread_Mutex& g_TransLogMapLock = g_TransLogMapLockStorage.m_Object;
constinit unsigned long g_nNextTransLogHandle = 1;

QNTransactionBuffer::~QNTransactionBuffer() = default;

void QNTransactionLogImpl::Destroy(QNTransactionLogImpl* log)
{
    if (log == nullptr) {
        return;
    }
    CheckUnreferenced(log->m_nRefCount, log->m_nRefCountEx);
    log->DeleteBuffers();
    delete log;
}

void QNTransactionLogImpl::DeleteBuffers()
{
    // locked() is not checked: the log is destroyed even without the lock.
    const WriteGuard guard(m_TransBufLock);
    if (m_TransBufMap.empty()) {
        return; // the common case costs no call
    }
    const CancellationOff uncancelled; // in the buffers' destructors
    for (auto& [key, buffer] : m_TransBufMap) {
        delete buffer;
        buffer = nullptr;
    }
    m_TransBufMap.clear();
}

bool QNTransactionLogImpl::AttachHandle()
{
    const CountGuard guard(m_RefCountLock);
    if (!guard.locked() || !HasRoom(m_nRefCount, 1)) {
        return false;
    }
    AddTo(m_nRefCount, 1);
    return true;
}

bool QNTransactionLogImpl::DetachHandle()
{
    CheckReferenced(m_nRefCount);
    const CountGuard guard(m_RefCountLock);
    if (!guard.locked()) {
        return false;
    }
    AddTo(m_nRefCount, -1);
    return m_nRefCount <= TRANSLOG_REFCOUNT_NULL;
}

int QNTransactionLogImpl::AddRef(int n)
{
    QN_CHECK_AT("translog", 419)
    QN_LOG_IF_NOT_TRUE(n > TRANSLOG_REFCOUNT_NULL);
    const CountGuard guard(m_RefCountLock);
    if (!guard.locked()) {
        return 0;
    }
    // A negative n would remove references that attached handles hold.
    if (n > 0 && HasRoom(m_nRefCount, n) && HasRoom(m_nRefCountEx, n)) {
        AddTo(m_nRefCount, n);
        AddTo(m_nRefCountEx, n);
    }
    return m_nRefCountEx;
}

int QNTransactionLogImpl::Release()
{
    const int extra = m_nRefCountEx.load(std::memory_order_acquire);
    CheckReleasable(m_nRefCount, extra);
    int ret = 0;
    {
        const CountGuard guard(m_RefCountLock);
        if (!guard.locked()) {
            return 0;
        }
        if (m_nRefCountEx > TRANSLOG_REFCOUNT_NULL) {
            AddTo(m_nRefCountEx, -1);
            AddTo(m_nRefCount, -1);
        }
        ret = m_nRefCountEx;
    }
    QN_CHECK_AT("translog", 224)
    QN_LOG_IF_NOT_TRUE(ret >= TRANSLOG_REFCOUNT_NULL);
    return ret;
}

void QNTransactionLogImpl::AddBuffer(const std::string& name, unsigned long num,
                                     QNTransactionBuffer* pBuffer)
{
    const WriteGuard guard(m_TransBufLock);
    if (!guard.locked()) {
        return;
    }
    QN_CHECK_AT("translog", 467)
    QN_RETURN_IF_NOT_TRUE(NULL != pBuffer);
    const TransBufView key(name, num);
    QN_CHECK_AT("translog", 471)
    QN_RETURN_IF_NOT_TRUE(m_TransBufMap.find(key) == m_TransBufMap.end());
    m_TransBufMap.emplace(TransBufKey(name, num), pBuffer);
}

QNTransactionBuffer* QNTransactionLogImpl::GetBuffer(const std::string& name, unsigned long num)
{
    const ReadGuard guard(m_TransBufLock);
    if (!guard.locked()) {
        return nullptr;
    }
    const auto found = m_TransBufMap.find(TransBufView(name, num));
    return found != m_TransBufMap.end() ? found->second : nullptr;
}

QNTransactionBuffer* QNTransactionLogImpl::RemoveBuffer(const std::string& name, unsigned long num)
{
    const WriteGuard guard(m_TransBufLock);
    if (!guard.locked()) {
        return nullptr;
    }
    const auto found = m_TransBufMap.find(TransBufView(name, num));
    if (found == m_TransBufMap.end()) {
        return nullptr;
    }
    QNTransactionBuffer* const buffer = found->second;
    m_TransBufMap.erase(found);
    return buffer;
}

QNTransactionLog::QNTransactionLog() : m_pImpl(nullptr)
{
    auto impl = std::make_unique<QNTransactionLogImpl>();
    const WriteGuard guard(g_TransLogMapLock);
    if (!IsOpen(guard)) {
        return;
    }
    impl->m_nHandle = NewHandleValue();
    g_TransLogMap.emplace(impl->m_nHandle, impl.get());
    m_pImpl = impl.release();
}

QNTransactionLog::QNTransactionLog(unsigned long handle) : m_pImpl(nullptr)
{
    const ReadGuard guard(g_TransLogMapLock);
    if (!IsOpen(guard)) {
        return;
    }
    const auto found = g_TransLogMap.find(handle);
    if (found != g_TransLogMap.end() && found->second->AttachHandle()) {
        m_pImpl = found->second;
    }
}

QNTransactionLog::~QNTransactionLog()
{
    if (m_pImpl == nullptr) {
        return;
    }
    const WriteGuard guard(g_TransLogMapLock);
    if (IsOpen(guard) && m_pImpl->DetachHandle()) {
        g_TransLogMap.erase(m_pImpl->m_nHandle);
        QNTransactionLogImpl::Destroy(m_pImpl);
        m_pImpl = nullptr;
    }
}

unsigned long QNTransactionLog::GetHandle()
{
    QN_CHECK_AT("translog", 262)
    QN_RETURN_ERRORCODE_IF_NOT_TRUE(NULL != m_pImpl, 0);
    return m_pImpl->m_nHandle;
}

bool QNTransactionLog::IsValid() const
{
    return m_pImpl != nullptr;
}

int QNTransactionLog::AddRef(int n)
{
    return m_pImpl != nullptr ? m_pImpl->AddRef(n) : 0;
}

int QNTransactionLog::Release()
{
    if (m_pImpl == nullptr) {
        return 0;
    }
    const WriteGuard guard(g_TransLogMapLock);
    return IsOpen(guard) ? m_pImpl->Release() : 0;
}

void QNTransactionLog::ClearAllLog()
{
    const WriteGuard guard(g_TransLogMapLock);
    if (!IsOpen(guard)) {
        return;
    }
    for (const auto& [handle, impl] : g_TransLogMap) {
        QNTransactionLogImpl::Destroy(impl);
    }
    g_TransLogMap.clear();
}

void QNTransactionLog::AddBuffer(const std::string& name, unsigned long num,
                                 QNTransactionBuffer* pBuffer)
{
    if (m_pImpl != nullptr) {
        m_pImpl->AddBuffer(name, num, pBuffer);
    }
}

QNTransactionBuffer* QNTransactionLog::GetBuffer(const std::string& name, unsigned long num)
{
    return m_pImpl != nullptr ? m_pImpl->GetBuffer(name, num) : nullptr;
}

QNTransactionBuffer* QNTransactionLog::RemoveBuffer(const std::string& name, unsigned long num)
{
    return m_pImpl != nullptr ? m_pImpl->RemoveBuffer(name, num) : nullptr;
}

} // namespace NSQN_util
