#include "host/soak/load.h"

#include <emsplatform/platform.h>

#include "emsutil/lock_error_manager.h"

namespace emshost {

namespace {

/// Threads insert and erase texts under ever new ids. Nothing reads them back: what is not erased
/// shows as memory that grows.
class LockErrorLoad final : public SoakLoad
{
public:
    LockErrorLoad() { std::atomic_ref(NSQN_util::g_bEnableMitLockErrMgr).store(true); }

    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) {
                    RepeatUntil(stop, [this] {
                        NSQN_util::QNMitLockErrMgr& locks = *NSQN_util::QNMitLockErrMgr::Instance();
                        const int id = static_cast<int>(m_nInserted++ & 0x7fffffff);
                        locks.InsertThrIDandInfo(id, "waits for a lock that everybody wants");
                        locks.EraseThrIDandInfo(id);
                        ++m_nErased;
                    });
                }};
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"lock errors erased", m_nInserted, m_nErased}};
    }

private:
    Count m_nInserted = 0;
    Count m_nErased = 0;
};

} // namespace

std::unique_ptr<SoakLoad> MakeLockErrorLoad()
{
    return std::make_unique<LockErrorLoad>();
}

} // namespace emshost
