#include "util/translog.h"

#include <climits>
#include <memory>

#include <ace/Guard_T.h>

#include "base/cancellation_off.h"
#include "base/qn_check.h"

namespace NSQN_util {

using NSQN_EMSUTIL_AGENT::CancellationOff;

namespace {

/// A key of a buffer that borrows its name.
using TransBufView = std::pair<std::string_view, unsigned long>;

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;
using CountGuard = ACE_Guard<ACE_Thread_Mutex>;

/// Of a count that only the holder of its lock changes: cheaper than an atomic addition.
void Change(std::atomic<int>& count, int by)
{
    count.store(count.load(std::memory_order_relaxed) + by, std::memory_order_release);
}

// The checks of counts that have been read. Their text is what is printed, hence the names.

void CheckReleasable(int m_nRefCount, int m_nRefCountEx)
{
    QN_CHECK_AT("translog", 439)
    QN_LOG_IF_NOT_TRUE(m_nRefCountEx > TRANSLOG_REFCOUNT_NULL);
    QN_CHECK_AT("translog", 440)
    QN_LOG_IF_NOT_TRUE(m_nRefCount > m_nRefCountEx);
}

// Those on the way of a handle's destructor: a debug interface that fails keeps neither the
// reference nor the log, and a thread is not cancelled in it.

void CheckReferenced(int m_nRefCount)
{
    if (m_nRefCount > TRANSLOG_REFCOUNT_NULL) {
        return; // as always: this costs no call
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
        return; // likewise
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

/// A handle value that no log has. REQUIRES: g_TransLogMapLock is held for writing.
unsigned long DrawHandle()
{
    unsigned long handle = 0;
    do {
        handle = g_nNextTransLogHandle++;
    } while (handle == 0 || g_TransLogMap.contains(handle)); // 0 comes when the counter wraps
    return handle;
}

} // namespace

// Before all objects of default priority, and destroyed after them: a host that links the library
// statically may have logs at namespace scope.
[[gnu::init_priority(101)]] std::map<unsigned long, QNTransactionLogImpl*> g_TransLogMap;
[[gnu::init_priority(101)]] ACE_RW_Thread_Mutex g_TransLogMapLock;
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
    // Not tested: the log goes either way, and its buffers with it.
    const WriteGuard guard(m_TransBufLock);
    if (m_TransBufMap.empty()) {
        return; // as above: this costs no call
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
    if (!guard.locked() || m_nRefCount == INT_MAX) {
        return false;
    }
    Change(m_nRefCount, 1);
    return true;
}

bool QNTransactionLogImpl::DetachHandle()
{
    CheckReferenced(m_nRefCount);
    const CountGuard guard(m_RefCountLock);
    if (!guard.locked()) {
        return false;
    }
    Change(m_nRefCount, -1);
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
    // Less than 1 would take references that attached handles hold.
    if (n > 0 && n <= INT_MAX - m_nRefCount) {
        Change(m_nRefCount, n);
        Change(m_nRefCountEx, n);
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
            Change(m_nRefCountEx, -1);
            Change(m_nRefCount, -1);
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
    if (!guard.locked()) {
        return;
    }
    impl->m_nHandle = DrawHandle();
    g_TransLogMap.emplace(impl->m_nHandle, impl.get());
    m_pImpl = impl.release();
}

QNTransactionLog::QNTransactionLog(unsigned long handle) : m_pImpl(nullptr)
{
    const ReadGuard guard(g_TransLogMapLock);
    if (!guard.locked()) {
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
    if (guard.locked() && m_pImpl->DetachHandle()) {
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
    return guard.locked() ? m_pImpl->Release() : 0;
}

void QNTransactionLog::ClearAllLog()
{
    const WriteGuard guard(g_TransLogMapLock);
    if (!guard.locked()) {
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
