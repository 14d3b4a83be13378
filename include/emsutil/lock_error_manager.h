#ifndef EMSUTIL_LOCK_ERROR_MANAGER_H
#define EMSUTIL_LOCK_ERROR_MANAGER_H

/// Lock errors: one text per thread id. The host is the program that uses emsutil. The host may
/// record a text for a thread that has something to report about its locks, for example before the
/// thread waits for a lock. The host must erase the text when it does not apply any more, for
/// example when the wait is over. The library records nothing by itself.
///
///     #include <emsplatform/platform.h>
///     #include <emsutil/lock_error_manager.h>
///
///     using NSQN_util::QNMitLockErrMgr;
///
///     NSQN_util::g_bEnableMitLockErrMgr = true; // before threads start
///
///     if (QNMitLockErrMgr* locks = QNMitLockErrMgr::Instance()) {
///         locks->InsertThrIDandInfo(threadId, "waits for the alarm table");
///         LockTheTable();
///         locks->EraseThrIDandInfo(threadId);
///     }
///
/// Every call that records or erases reads the platform's switch NSQN_util::g_bEnableMitLockErrMgr.
/// While the switch is false, nothing is recorded and nothing is erased. No function returns the
/// records. They are meant for a debugger, for emsutil-inspect and for core files.
///
/// Thread safety: any thread may call any function at any time, except Destroy(): see there.
/// Ownership: texts are copied. The library owns the manager until Destroy().
/// Errors: InsertThrIDandInfo() throws std::logic_error for a null text while the switch is on.
/// std::bad_alloc passes to the caller, with no lock held. No other error is reported: a call does
/// nothing if its lock cannot be taken.

#include <map>
#include <string>

#include <ace/Thread_Mutex.h>

#include "emsutil/export.h"

namespace NSQN_util {

/// The recorded texts of a process, by thread id.
///
/// Thread safety, ownership and errors are described at the top of this header.
class EMSUTIL_API QNMitLockErrMgr
{
public:
    /// Returns the process's manager, and creates it on first use. Returns null if ACE's lock for
    /// static objects cannot be taken. Once the manager exists, a call only reads a pointer,
    /// without a lock. The caller must not delete the manager.
    static QNMitLockErrMgr* Instance();

    /// Destroys the manager with its records. The next Instance() creates a new manager.
    ///
    /// REQUIRES: no thread uses the manager any more. Destroy() does not wait for threads that
    /// still use it.
    static void Destroy();

    QNMitLockErrMgr();
    ~QNMitLockErrMgr();
    QNMitLockErrMgr(const QNMitLockErrMgr&) = delete;
    QNMitLockErrMgr& operator=(const QNMitLockErrMgr&) = delete;

    /// Records a copy of `info` for a thread id, unless the id has a text already: the first text
    /// stays until it is erased. Any int is a valid id. Throws std::logic_error if `info` is null
    /// while the switch is on. May wait for another call that records or erases. May be called from
    /// a command handler, a timer callback or the destructor of a transaction log's buffer.
    void InsertThrIDandInfo(int threadId, const char* info);

    /// Erases the text of a thread id, if there is one. May wait for another call that records or
    /// erases. May be called from a command handler, a timer callback or the destructor of a
    /// transaction log's buffer.
    void EraseThrIDandInfo(int threadId);

    /// The manager, or null if there is none. It is for a debugger to read. The library writes the
    /// pointer with release order. Code that reads it must use acquire order (std::atomic_ref), or
    /// must call Instance() instead.
    static QNMitLockErrMgr* m_pInstance;

private:
    std::map<int, std::string> m_ThrIDInfoMap; // guarded by m_ThrIDInfoLock
    ACE_Thread_Mutex m_ThrIDInfoLock;
};

} // namespace NSQN_util

#endif
