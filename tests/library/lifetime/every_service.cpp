#include "tests/library/lifetime/support.h"

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/transaction_log.h"

void WorkOnce(const soak::Load& load)
{
    for (std::size_t step = 0; step < soak::BURST; ++step) {
        load.step(0);
    }
    NSQN_EMSUTIL_AGENT::runGeneralCmd();
}

void UseEveryService()
{
    const Installation installation;
    emsstandin::SetDebugCallback(
        [](auto, auto, const std::string& line) { REQUIRE(soak::CountDebugLine(line)); });
    for (const soak::Load& load : soak::AllLoads()) {
        WorkOnce(load);
        load.finish();
        for (const soak::Total* total : load.totals) {
            REQUIRE(total->IsExact());
        }
    }
    emsstandin::SetDebugStream(stderr);
    REQUIRE(NSQN_EMSUTIL_AGENT::string_format("%d", 7) == "7");
    REQUIRE(NSQN_EMSUTIL_AGENT::ReadMsgHandleModeSwitcher() == 0);
    const unsigned long handle = LeaveLog();
    NSQN_util::QNTransactionLog::ClearAllLog();
    REQUIRE(!NSQN_util::QNTransactionLog(handle).IsValid());
    NSQN_util::QNMitLockErrMgr::Destroy();
    REQUIRE(NSQN_util::QNMitLockErrMgr::m_pInstance == nullptr);
}
