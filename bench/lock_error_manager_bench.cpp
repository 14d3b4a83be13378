#include <map>
#include <stdexcept>

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <emsplatform/platform.h>

#include "bench/measure.h"
#include "emsutil/lock_error_manager.h"

using NSQN_util::QNMitLockErrMgr;

void AddLockErrorManager()
{
    static const char* const info = "waits for the lock of the registry";
    const std::string operation = "insert and erase a lock error text";
    Ours(operation, [](benchmark::State& state) {
        NSQN_util::g_bEnableMitLockErrMgr = true;
        Measure(state, [] {
            QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, info);
            QNMitLockErrMgr::Instance()->EraseThrIDandInfo(1);
        });
        try {
            QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, nullptr);
            Check(state, false);
        } catch (const std::logic_error&) {
            // No function returns the texts, but a null text throws while the switch is on.
        }
    });
    Floor(operation, 1.1, [](benchmark::State& state) {
        std::map<int, std::string> records;
        ACE_Thread_Mutex lock;
        std::size_t erased = 0;
        Measure(state, [&] {
            std::string text = info;
            {
                const ACE_Guard<ACE_Thread_Mutex> guard(lock);
                records.emplace(1, std::move(text));
            }
            const ACE_Guard<ACE_Thread_Mutex> guard(lock);
            erased = records.erase(1);
        });
        Check(state, erased == 1);
    });
}
