#ifndef UTIL_TRANSLOG_H
#define UTIL_TRANSLOG_H

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "emsutil/transaction_log.h"

namespace NSQN_util {

/// The count that means no reference.
constexpr int TRANSLOG_REFCOUNT_NULL = 0;

/// A log. Its members are public for the handles and for tests.
///
/// Lock order: g_TransLogMapLock before m_RefCountLock or m_TransBufLock.
class QNTransactionLogImpl
{
public:
    using TransBufKey = std::pair<std::string, unsigned long>;

    /// Orders by name, byte by byte, then by number. A look-up may use a key that only refers to
    /// its name, so that the name is not copied.
    struct TransBufKeyLess
    {
        using is_transparent = void;

        template <class Left, class Right>
        bool operator()(const Left& left, const Right& right) const
        {
            const int order = std::string_view(left.first).compare(right.first);
            return order != 0 ? order < 0 : left.second < right.second;
        }
    };

    /// Destroys `log`, which may be null, with its buffers, and writes check lines for references
    /// that remain. Does not throw.
    ///
    /// REQUIRES: g_TransLogMapLock is held for writing, so that no thread attaches meanwhile.
    static void Destroy(QNTransactionLogImpl* log);

    QNTransactionLogImpl() = default;
    ~QNTransactionLogImpl() = default;
    QNTransactionLogImpl(const QNTransactionLogImpl&) = delete;
    QNTransactionLogImpl& operator=(const QNTransactionLogImpl&) = delete;

    /// Counts one more handle object. Returns false when it cannot be counted.
    bool AttachHandle();
    /// Counts one handle object less. Returns whether the log must be destroyed. Does not throw.
    bool DetachHandle();

    int AddRef(int n);
    /// REQUIRES: g_TransLogMapLock is held for writing.
    int Release();

    void AddBuffer(const std::string& name, unsigned long num, QNTransactionBuffer* pBuffer);
    QNTransactionBuffer* GetBuffer(const std::string& name, unsigned long num);
    QNTransactionBuffer* RemoveBuffer(const std::string& name, unsigned long num);

    // Guarded by m_TransBufLock.
    std::map<TransBufKey, QNTransactionBuffer*, TransBufKeyLess> m_TransBufMap;
    ACE_RW_Thread_Mutex m_TransBufLock;
    // Changed under m_RefCountLock. AddRef() writes the extra references last, and Release() writes
    // them first, so at no time are there more of them than of all references. The check that
    // compares the two reads them without m_RefCountLock, the extra references first. Only AddRef()
    // may write meanwhile, because the check runs with g_TransLogMapLock held for writing.
    std::atomic<int> m_nRefCount = 1;   // all references: attached handles and extra ones
    std::atomic<int> m_nRefCountEx = 0; // the extra ones
    ACE_Thread_Mutex m_RefCountLock;
    unsigned long m_nHandle = 0; // constant once the log is registered

private:
    void DeleteBuffers();
};

// The registry of logs. It does not own the logs. At unload its entries are freed, and from then on
// the operations that need the registry do nothing. The map and the lock stay usable, because other
// threads may still run then.
extern std::map<unsigned long, QNTransactionLogImpl*>&
    g_TransLogMap; // guarded by g_TransLogMapLock
extern ACE_RW_Thread_Mutex& g_TransLogMapLock;
extern unsigned long g_nNextTransLogHandle; // guarded by g_TransLogMapLock

} // namespace NSQN_util

#endif
