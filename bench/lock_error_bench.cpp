#include <map>
#include <string>

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <emsplatform/platform.h>

#include "bench/compare.h"
#include "emsutil/lock_error_manager.h"

namespace bench {

void MeasureLockErrors()
{
    const char* info = "waits for the lock of the registry";
    benchmark::DoNotOptimize(info);
    NSQN_util::g_bEnableMitLockErrMgr = true;
    Compare({"lock error text inserted and erased", 1.1},
            {Ours([info](benchmark::State& state) {
                 for (auto _ : state) {
                     NSQN_util::QNMitLockErrMgr::Instance()->InsertThrIDandInfo(1, info);
                     NSQN_util::QNMitLockErrMgr::Instance()->EraseThrIDandInfo(1);
                 }
             }),
             Floor([info](benchmark::State& state) {
                 std::map<int, std::string> records;
                 ACE_Thread_Mutex lock;
                 for (auto _ : state) {
                     {
                         std::string text = info;
                         const ACE_Guard<ACE_Thread_Mutex> guard(lock);
                         records.emplace(1, std::move(text));
                     }
                     const ACE_Guard<ACE_Thread_Mutex> guard(lock);
                     records.erase(1);
                 }
             })});
    NSQN_util::QNMitLockErrMgr::Destroy();
}

} // namespace bench
