#include <cstdio>
#include <mutex>

#include <unistd.h>

#include <emsplatform/platform.h>
#include <emsutil/lock_error_manager.h>

using NSQN_util::QNMitLockErrMgr;

std::mutex g_AlarmTable;

void LockTheTable()
{
    g_AlarmTable.lock();
    std::puts("the alarm table is locked");
}

int main()
{
    NSQN_util::g_bEnableMitLockErrMgr = true; // before threads start
    const int threadId = gettid();

    if (QNMitLockErrMgr* locks = QNMitLockErrMgr::Instance()) {
        locks->InsertThrIDandInfo(threadId, "waits for the alarm table");
        LockTheTable();
        locks->EraseThrIDandInfo(threadId);
    }
    g_AlarmTable.unlock();
}
