#ifndef EMSUTIL_TRANSACTION_LOG_H
#define EMSUTIL_TRANSACTION_LOG_H

/// Transaction logs: containers of buffers. A log has a number, its handle value, by which any
/// thread can attach a handle (a QNTransactionLog object) to the log.
///
///     using namespace NSQN_util;
///
///     struct Text : QNTransactionBuffer { std::string text; };
///
///     unsigned long Begin(Text* request) // one thread
///     {
///         QNTransactionLog log;
///         log.AddBuffer("request", 1, request); // from here on the log owns it
///         log.AddRef(1);                        // keeps the log after this handle is destroyed
///         return log.GetHandle();
///     }
///
///     void End(unsigned long value) // another thread
///     {
///         QNTransactionLog log(value);
///         if (auto* request = static_cast<Text*>(log.GetBuffer("request", 1)))
///             std::puts(request->text.c_str());
///         log.Release();
///     } // the last reference: the log and its buffers are destroyed
///
/// A log exists while a handle is attached to it or extra references remain. AddRef() adds extra
/// references, and Release() drops them. A log is destroyed when a handle is destroyed and no
/// reference remains, or by ClearAllLog().
///
/// Thread safety: any thread may call any operation at any time, but two threads must not use the
/// same handle at the same time. Each thread that works on a log should therefore create a handle
/// of its own. Every operation except GetHandle() and IsValid() may wait. Callers must guard the
/// contents of a buffer themselves. Threads that use logs must end before main() returns. After the
/// host's static objects have been destroyed, a new handle stays unattached, Release() returns 0,
/// and the destructor of a handle and ClearAllLog() do nothing.
/// Ownership: a buffer belongs to the log from AddBuffer() until RemoveBuffer(). A log that is
/// destroyed deletes its buffers. GetBuffer() returns a pointer to a buffer that still belongs to
/// the log. The pointer is valid while the log exists and the buffer is in it.
/// Errors: an operation that cannot take its lock does nothing. If the operation returns a value,
/// it then returns 0 or null. Misuse writes a check line, "file:translog:<number>,<text>", to the
/// debug interface. std::bad_alloc and exceptions of the debug interface pass to the caller, with
/// no lock held and nothing half done. The destructor of a handle and ClearAllLog() are different:
/// no exception passes out of these two, and a thread cannot be cancelled in them. If the
/// destructor of a handle cannot take its locks, the handle's reference stays counted, and the log
/// exists until ClearAllLog().
///
/// When the library writes a check line, it usually holds the locks of the log, or the lock of all
/// logs. The debug interface must therefore not call an operation of a transaction log, and should
/// return soon.

#include <string>

#include "emsutil/export.h"

namespace NSQN_util {

class QNTransactionLogImpl;

/// The base class of the buffers.
///
/// When a log deletes a buffer, the library holds locks. The destructor of a buffer must therefore
/// not call an operation of a transaction log.
class EMSUTIL_API QNTransactionBuffer
{
public:
    virtual ~QNTransactionBuffer();
};

/// A handle on a log. The handle holds one reference while it is attached.
///
/// Thread safety, ownership and errors are described at the top of this header.
class EMSUTIL_API QNTransactionLog
{
public:
    /// Creates a log with a handle value of its own, and attaches the handle to it. The first log
    /// of a process has the value 1, the next one 2, and so on. No log has the value 0. The handle
    /// stays unattached if a lock cannot be taken.
    QNTransactionLog();

    /// Attaches the handle to the log with this handle value. The handle stays unattached if there
    /// is no such log, if a lock cannot be taken, or if the log has INT_MAX references.
    explicit QNTransactionLog(unsigned long handle);

    /// Drops the handle's reference. If no reference remains, destroys the log and deletes its
    /// buffers in the order of their keys.
    ~QNTransactionLog();

    QNTransactionLog(const QNTransactionLog&) = delete;
    QNTransactionLog& operator=(const QNTransactionLog&) = delete;

    /// Returns the log's handle value. If the handle is unattached, writes a check line and returns
    /// 0.
    unsigned long GetHandle();

    /// Returns whether the handle is attached to a log.
    bool IsValid() const;

    /// Adds `n` extra references, which keep the log while no handle is attached to it. Returns the
    /// number of extra references after that. Returns 0 if the handle is unattached.
    ///
    /// REQUIRES: n > 0. If n is less than 1, writes a check line and adds nothing. If the log would
    /// then have more than INT_MAX references, those of attached handles included, adds nothing. In
    /// both cases returns the unchanged number of extra references.
    int AddRef(int n);

    /// Drops one extra reference. Returns the number of extra references that remain. Returns 0 if
    /// the handle is unattached. Never destroys the log: only the destructor of a handle and
    /// ClearAllLog() do.
    ///
    /// REQUIRES: the log has an extra reference. If it has none, writes a check line and changes
    /// nothing.
    int Release();

    /// Destroys every log of the process, in the order of handle values, even a log that has
    /// references. Writes check lines for each log that has references. Later handle values
    /// continue the sequence.
    ///
    /// REQUIRES: no handle in the process is attached. A handle that is attached would then point
    /// to a log that does not exist any more.
    static void ClearAllLog();

    // The key of a buffer is a name and a number. A name may have any bytes, and may be empty. Keys
    // are ordered by name, byte by byte, and then by number. On an unattached handle AddBuffer()
    // does nothing, and the other two operations return null.

    /// Adds a buffer, which then belongs to the log. If `pBuffer` is null, or if the key is in use,
    /// writes a check line and changes nothing: the buffer still belongs to the caller. Waits for
    /// other operations on the buffers of this log.
    void AddBuffer(const std::string& name, unsigned long num, QNTransactionBuffer* pBuffer);

    /// Returns the buffer with this key. Returns null if there is none. The buffer still belongs to
    /// the log. Look-ups on one log run at the same time. A look-up waits while AddBuffer() or
    /// RemoveBuffer() runs on this log. It does not wait for a buffer that is not in the log yet.
    QNTransactionBuffer* GetBuffer(const std::string& name, unsigned long num);

    /// Removes the buffer with this key and returns it. The buffer then belongs to the caller.
    /// Returns null if there is none. Waits for other operations on the buffers of this log.
    QNTransactionBuffer* RemoveBuffer(const std::string& name, unsigned long num);

private:
    QNTransactionLogImpl* m_pImpl;
};

} // namespace NSQN_util

#endif
