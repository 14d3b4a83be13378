#ifndef EMSUTIL_TRANSACTION_LOG_H
#define EMSUTIL_TRANSACTION_LOG_H

/// Transaction logs: containers of buffers that any thread reaches by a number.
///
///     using namespace NSQN_util;
///
///     struct Text : QNTransactionBuffer { std::string text; };
///
///     unsigned long Begin(Text* request) // one thread
///     {
///         QNTransactionLog log;
///         log.AddBuffer("request", 1, request); // the log owns it from here on
///         log.AddRef(1);                        // keeps the log when this handle is gone
///         return log.GetHandle();
///     }
///
///     void End(unsigned long handle) // another thread
///     {
///         QNTransactionLog log(handle);
///         if (auto* request = static_cast<Text*>(log.GetBuffer("request", 1)))
///             std::puts(request->text.c_str());
///         log.Release();
///     } // the last reference: the log and its buffers are gone
///
/// A log lives while a handle object is attached to it or extra references remain. It is destroyed
/// when a handle's destruction leaves no reference, or by ClearAllLog().
///
/// Thread safety: any thread may call any operation at any time; a handle object is used by one
/// thread at a time, so each thread that works on a log makes a handle of its own. Operations may
/// block for others, but GetHandle() and IsValid(). A buffer's content is the callers' to guard.
/// Threads that work on logs end before main() does: the registry of logs goes when the library is
/// unloaded.
/// Ownership: a buffer is the log's from AddBuffer() until RemoveBuffer() or the end of the log,
/// which deletes it. What GetBuffer() gives is borrowed: it is valid while the log lives and the
/// buffer is in it.
/// Errors: an operation that cannot take its lock does nothing and gives its negative result, and
/// misuse writes a line through the debug interface, "file:translog:<number>,<what did not hold>".
/// std::bad_alloc and what the debug interface throws pass to the caller, with no lock held and
/// nothing left half done, but never leave a handle's destructor or ClearAllLog(), where a thread
/// cannot be cancelled either. A handle whose destructor cannot take its locks keeps its reference,
/// and so the log until ClearAllLog().
///
/// Most check lines are written while the library holds locks of the log, or that of all logs: a
/// debug interface must not call an operation of a transaction log, nor take long.

#include <string>

#include "emsutil/export.h"

namespace NSQN_util {

class QNTransactionLogImpl;

/// The base of what a log keeps.
///
/// The destructor of a buffer that a log deletes runs under locks of the library: it calls no
/// operation of a transaction log.
class EMSUTIL_API QNTransactionBuffer
{
public:
    virtual ~QNTransactionBuffer();
};

/// A handle on a log; it holds one reference while it is attached to one.
class EMSUTIL_API QNTransactionLog
{
public:
    /// Makes a log under a handle value of its own: 1 for the first of a process, then 2, and so
    /// on; 0 is never one. Unattached when a lock fails.
    QNTransactionLog();

    /// Attaches to the log of this handle value; stays unattached when there is none, when a lock
    /// fails, and when the log has INT_MAX references.
    explicit QNTransactionLog(unsigned long handle);

    /// Drops the handle's reference and, when it was the last, deletes the log with its buffers, in
    /// the order of their keys.
    ~QNTransactionLog();

    QNTransactionLog(const QNTransactionLog&) = delete;
    QNTransactionLog& operator=(const QNTransactionLog&) = delete;

    /// The log's handle value, to be passed on; 0, with a check line, when unattached.
    unsigned long GetHandle();

    /// Whether it is attached to a log.
    bool IsValid() const;

    /// Adds `n` extra references, which keep the log without a handle. Returns how many extra ones
    /// there are then; 0 when unattached.
    ///
    /// REQUIRES: n > 0. Less writes a check line and changes nothing; so does, without a line, a
    /// number of references beyond INT_MAX.
    int AddRef(int n);

    /// Drops one extra reference. Returns how many remain; 0 when unattached. Never deletes the
    /// log: the last handle does.
    ///
    /// REQUIRES: an extra reference to drop. Without one it writes a check line and changes
    /// nothing.
    int Release();

    /// Deletes every log of the process, in the order of handle values, whatever its references;
    /// each that has some writes check lines. Handle values go on counting.
    ///
    /// REQUIRES: no attached handle object in the process: one would point to a log that is gone.
    static void ClearAllLog();

    // A buffer is filed under a name, any bytes, the empty name included, and a number. Keys are
    // ordered by name, byte by byte, then by number. On an unattached handle AddBuffer() does
    // nothing and the others return null.

    /// Files a buffer. A null one, or one under a key that is taken, writes a check line, and stays
    /// the caller's. Blocks for other operations on the log's buffers.
    void AddBuffer(const std::string& name, unsigned long num, QNTransactionBuffer* pBuffer);

    /// The buffer under this key, or null; look-ups on one log run side by side.
    QNTransactionBuffer* GetBuffer(const std::string& name, unsigned long num);

    /// Takes the buffer under this key out, for the caller to own, or returns null. Blocks for
    /// other operations on the log's buffers.
    QNTransactionBuffer* RemoveBuffer(const std::string& name, unsigned long num);

private:
    QNTransactionLogImpl* m_pImpl;
};

} // namespace NSQN_util

#endif
