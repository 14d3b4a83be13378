#include "emsutil/lock_error_manager.h"

#include <memory>

#include <emsplatform/platform.h>

#include "soak/load.h"

namespace soak {

/// Threads insert and erase texts under ever new ids, and insert one under an id that all share.
/// The library has no operation that reads the texts, so there are no totals: a text that is not
/// erased shows as memory that grows.
Load LockErrorLoad()
{
    const auto latest = std::make_shared<Count>(0);
    std::atomic_ref(NSQN_util::g_bEnableMitLockErrMgr).store(true);
    const auto step = [latest](int) {
        NSQN_util::QNMitLockErrMgr& locks = *NSQN_util::QNMitLockErrMgr::Instance();
        const int id = static_cast<int>((*latest)++ & 0x7fffffff);
        locks.InsertThrIDandInfo(-1, "the shared text");
        locks.InsertThrIDandInfo(id, "waits for a lock that all threads want");
        locks.EraseThrIDandInfo(id);
    };
    return {step, [] { return std::vector<Total>(); }};
}

} // namespace soak
