#include <map>
#include <string>

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <emsplatform/platform.h>

#include "bench/measure.h"
#include "emsutil/lock_error_manager.h"

using NSQN_util::QNMitLockErrMgr;

namespace bench {

void AddLockErrorManager()
{
    static constexpr char info[] = "waits for the lock of the registry";
    const std::string operation = "insert and erase a lock error text";
    Ours(operation, [](benchmark::State& state) {
        NSQN_util::g_bEnableMitLockErrMgr = true;
        Measure(
            state,
            [] {
                QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, info);
                QNMitLockErrMgr::Instance()->EraseThrIDandInfo(1);
            },
            [] {
                // There is no query, but with the switch on a null text throws.
                try {
                    QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, nullptr);
                } catch (const std::logic_error&) {
                    return true;
                }
                return false;
            });
        QNMitLockErrMgr::Destroy();
    });
    Floor(operation, 1.1, [](benchmark::State& state) {
        std::map<int, std::string> records;
        ACE_Thread_Mutex lock;
        bool isInserted = false;
        Measure(
            state,
            [&] {
                const char* const read = info;
                {
                    std::string text = read;
                    const ACE_Guard<ACE_Thread_Mutex> guard(lock);
                    isInserted = records.emplace(1, std::move(text)).second;
                }
                const ACE_Guard<ACE_Thread_Mutex> guard(lock);
                records.erase(1);
            },
            [&] { return isInserted && records.empty(); });
    });
}

} // namespace bench
