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

/// A log. It is open to the handles, which work on it, and to tests.
///
/// Lock order: g_TransLogMapLock before m_RefCountLock or m_TransBufLock.
class QNTransactionLogImpl
{
public:
    using TransBufKey = std::pair<std::string, unsigned long>;

    /// By name, byte by byte, then by number; a key need not own its name to be looked up.
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

    /// The end of a log that was registered: writes lines for references that remain and deletes
    /// the buffers and `log`, which may be null. Does not throw. REQUIRES: g_TransLogMapLock is
    /// held for writing; so no thread attaches meanwhile.
    static void Destroy(QNTransactionLogImpl* log);

    QNTransactionLogImpl() = default;
    ~QNTransactionLogImpl() = default;
    QNTransactionLogImpl(const QNTransactionLogImpl&) = delete;
    QNTransactionLogImpl& operator=(const QNTransactionLogImpl&) = delete;

    /// Counts a handle object. False when it cannot be counted.
    bool AttachHandle();
    /// Takes one off and returns whether the log is to be destroyed. Does not throw.
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
    // Changed under m_RefCountLock; the checks read them without it. Of the two, the extra
    // references are written last and read first, so that a reader never finds them ahead of all.
    std::atomic<int> m_nRefCount = 1;   // all references: attached handles and extra ones
    std::atomic<int> m_nRefCountEx = 0; // the extra ones
    ACE_Thread_Mutex m_RefCountLock;
    unsigned long m_nHandle = 0; // set when registered, constant from then on

private:
    void DeleteBuffers();
};

/// The logs of the process by handle value; it does not own them.
extern std::map<unsigned long, QNTransactionLogImpl*> g_TransLogMap; // guarded by g_TransLogMapLock
extern ACE_RW_Thread_Mutex g_TransLogMapLock;
extern unsigned long g_nNextTransLogHandle; // guarded by g_TransLogMapLock

} // namespace NSQN_util

#endif
