// A plugin that brings the shared library into a process.

#include <list>

#include <emsstandin/task_manager.h>

#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"
#include "tests/library/lifetime/support.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { std::_Exit(1); } // its log is never destroyed
};

QNTransactionLog* g_pLog = nullptr;

} // namespace

extern "C" {

EMSUTIL_API void ScheduleTimer(EmsUtilTimerInterface& timer)
{
    emsstandin::AddTaskManager(7, {std::chrono::milliseconds(1), nullptr})->Start();
    ScheduleEmsUtilTimer(7, timer, &timer);
}

/// This log and this entry must be the n-th ones of the process.
EMSUTIL_API void LogAndEnter(const int& n)
{
    REQUIRE(QNTransactionLog().GetHandle() == static_cast<unsigned long>(n));
    const RegEmsThreadInfo inside(nullptr);
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    REQUIRE(records.front().m_llRecvs == 2 * n - 1); // with the exits
}

EMSUTIL_API void CreateLog()
{
    g_pLog = new QNTransactionLog;
    g_pLog->AddBuffer("name", 1, new Buffer);
    g_pLog->AddRef(1);
}

EMSUTIL_API void FindNoLogs()
{
    REQUIRE(!QNTransactionLog().IsValid());
    REQUIRE(!QNTransactionLog(3).IsValid());
    REQUIRE(g_pLog->Release() == 0);
    QNTransactionLog::ClearAllLog();
    g_pLog->~QNTransactionLog();
}

} // extern "C"
