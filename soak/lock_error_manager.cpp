#include "emsutil/lock_error_manager.h"

#include <emsplatform/platform.h>

#include "soak/load.h"

namespace soak {

using NSQN_util::QNMitLockErrMgr;

namespace {

/// Threads insert and erase texts under ever new ids, and one id that all share. The library has no
/// operation that reads the texts: one that is not erased shows as memory that grows.
class LockErrorLoad final : public Load
{
public:
    explicit LockErrorLoad(int threads) : Load(threads)
    {
        std::atomic_ref(NSQN_util::g_bEnableMitLockErrMgr).store(true);
    }

    void Work(int, const Pace& pace) override
    {
        pace.Repeat([this] {
            QNMitLockErrMgr& locks = *QNMitLockErrMgr::Instance();
            const int id = static_cast<int>(m_nInserted++ & 0x7fffffff);
            locks.InsertThrIDandInfo(-1, "the shared text");
            locks.InsertThrIDandInfo(id, "waits for a lock that all threads want");
            locks.EraseThrIDandInfo(id);
            ++m_nErased;
        });
    }

    std::vector<Total> Finish() override
    {
        return {{"lock errors erased", m_nInserted, m_nErased}};
    }

private:
    Count m_nInserted = 0;
    Count m_nErased = 0;
};

} // namespace

std::unique_ptr<Load> CreateLockErrorLoad(int threads)
{
    return std::make_unique<LockErrorLoad>(threads);
}

} // namespace soak
