#ifndef EMSUTIL_LOCK_ERROR_MANAGER_H
#define EMSUTIL_LOCK_ERROR_MANAGER_H

/// Lock errors: one text per thread id. The host records the text when a thread has something to
/// report about its locks, for example before it waits for one, and must erase it afterwards. The
/// library records nothing by itself.
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
/// While it is false, nothing is recorded and nothing is erased. The records are meant for a
/// debugger, for emsutil-inspect and for core files: no function returns them.
///
/// Thread safety: any thread may call any function at any time, except Destroy().
/// Ownership: texts are copied. The library owns the manager until Destroy().
/// Errors: a null text throws std::logic_error while the switch is on. No other error is reported:
/// a call does nothing when its lock cannot be taken. std::bad_alloc passes to the caller, with no
/// lock held.

#include <map>
#include <string>

#include <ace/Thread_Mutex.h>

#include "emsutil/export.h"

namespace NSQN_util {

/// The recorded texts of a process, by thread id.
///
/// Thread safety, ownership and errors: as at the top of this header.
class EMSUTIL_API QNMitLockErrMgr
{
public:
    /// Returns the process's manager, and creates it on first use. Returns null when ACE's lock for
    /// static objects cannot be taken. Once the manager exists a call is one read. The caller must
    /// not delete it.
    static QNMitLockErrMgr* Instance();

    /// Destroys the manager with its records. The next Instance() creates a new one.
    ///
    /// REQUIRES: no thread uses the manager any more. Destroy() does not wait for such a thread.
    static void Destroy();

    QNMitLockErrMgr();
    ~QNMitLockErrMgr();
    QNMitLockErrMgr(const QNMitLockErrMgr&) = delete;
    QNMitLockErrMgr& operator=(const QNMitLockErrMgr&) = delete;

    /// Records a copy of `info` for a thread id, unless the id has a text already: the first text
    /// stays until it is erased. Any int is a valid id. Throws std::logic_error when `info` is null
    /// and the switch is on. May wait for another call that records or erases. May be called from
    /// anywhere.
    void InsertThrIDandInfo(int threadId, const char* info);

    /// Erases the text of a thread id, if there is one. May wait for another call that records or
    /// erases. May be called from anywhere.
    void EraseThrIDandInfo(int threadId);

    /// The manager, or null. It is published with release: a reader must read it with acquire, or
    /// call Instance().
    static QNMitLockErrMgr* m_pInstance;

private:
    std::map<int, std::string> m_ThrIDInfoMap; // guarded by m_ThrIDInfoLock
    ACE_Thread_Mutex m_ThrIDInfoLock;
};

} // namespace NSQN_util

#endif
