// The sizes that hosts were compiled with; they change with the SONAME only (docs/abi.md). Other
// processors have other sizes, so the watch is kept on one.

#include <emsutil/diagnostics.h>
#include <emsutil/general_command.h>
#include <emsutil/lock_error_manager.h>
#include <emsutil/thread_monitor.h>
#include <emsutil/timer.h>
#include <emsutil/transaction_log.h>

#ifdef __x86_64__

static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsNameAndValueStringTypePair) == 72);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsNVTPList) == 24);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsGeneralObj) == 24);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsGeneralObjList) == 24);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsGeneralCmd) == 80);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::RegEmsUtilCmd) == 1);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::AgentTimeGuard) == 48);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsThreadInfo) == 144);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::RegEmsThreadInfo) == 8);
static_assert(sizeof(NSQN_EMSUTIL_AGENT::EmsUtilTimerInterface) == 24);
static_assert(sizeof(NSQN_util::QNTransactionBuffer) == 8);
static_assert(sizeof(NSQN_util::QNTransactionLog) == 8);
static_assert(sizeof(NSQN_util::QNMitLockErrMgr) == 96);

#endif
