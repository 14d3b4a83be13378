#ifndef EMSUTIL_LOCK_ERROR_MANAGER_H
#define EMSUTIL_LOCK_ERROR_MANAGER_H

/// Lock errors: one text a thread, kept while the thread has something to tell of its locks.
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
/// The platform's switch NSQN_util::g_bEnableMitLockErrMgr is read at every call: while it is off,
/// nothing is recorded and nothing erased. The records are there for a debugger or a core file;
/// nothing here reads them back.
///
/// Thread safety: any thread may call any operation at any time, except Destroy().
/// Ownership: texts are copied. The manager is the library's, until Destroy().
/// Errors: none is reported; a lock that cannot be taken makes a call do nothing. std::bad_alloc
/// passes to the caller, with no lock held.

#include <map>
#include <string>

#include <ace/Thread_Mutex.h>

#include "emsutil/export.h"

namespace NSQN_util {

/// The texts of a process by thread id.
class EMSUTIL_API QNMitLockErrMgr
{
public:
    /// The process's manager, made on first use; null when ACE's lock for static objects cannot be
    /// taken. Once it is there a call is one read.
    static QNMitLockErrMgr* Instance();

    /// Destroys it with its records; the next Instance() makes a new one.
    ///
    /// REQUIRES: no thread uses it any more. It does not wait for one that does.
    static void Destroy();

    QNMitLockErrMgr();
    ~QNMitLockErrMgr();
    QNMitLockErrMgr(const QNMitLockErrMgr&) = delete;
    QNMitLockErrMgr& operator=(const QNMitLockErrMgr&) = delete;

    /// Records a text for a thread id, any int, that has none; the first text stays until it is
    /// erased. A null text raises std::logic_error, while the switch is on. May block for another
    /// such call; may be called from anywhere.
    void InsertThrIDandInfo(int threadId, const char* info);

    /// Erases the record of a thread id, if there is one. May block for another such call; may be
    /// called from anywhere.
    void EraseThrIDandInfo(int threadId);

    /// The manager, or null; published with release, so read it with acquire, or by Instance().
    static QNMitLockErrMgr* m_pInstance;

private:
    std::map<int, std::string> m_ThrIDInfoMap; // guarded by m_ThrIDInfoLock
    ACE_Thread_Mutex m_ThrIDInfoLock;
};

} // namespace NSQN_util

#endif
