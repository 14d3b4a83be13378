// The sizes that hosts were compiled with; they change with the SONAME only (docs/abi.md). Other
// processors and the debug mode of libstdc++ have other sizes, so the watch is kept on one.

#include <emsplatform/task.h>
#include <emsstandin/task_manager.h>
#include <emsutil/diagnostics.h>
#include <emsutil/general_command.h>
#include <emsutil/lock_error_manager.h>
#include <emsutil/thread_monitor.h>
#include <emsutil/timer.h>
#include <emsutil/transaction_log.h>

#if defined(__x86_64__) && !defined(_GLIBCXX_DEBUG)

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

// The stand-in platform's.
static_assert(sizeof(eKorTask) == 128);
static_assert(sizeof(eKorGnlTask) == 128);
static_assert(sizeof(PSyncHelp) == 8);
static_assert(sizeof(eKorTaskMgr) == 1);
static_assert(sizeof(emsstandin::TaskManagerOptions) == 40);
static_assert(sizeof(emsstandin::TaskManager) == 64);

#endif
