// A plugin that brings the shared library into a process.

#include "tests/library/lifetime/plugin.h"

#include <cstdlib>
#include <list>

#include <emsstandin/task_manager.h>

#include "emsutil/thread_monitor.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

struct Buffer : QNTransactionBuffer
{
    ~Buffer() override { std::_Exit(1); } // its log is never destroyed
};

QNTransactionLog* g_pLog = nullptr;

void ScheduleTimer(EmsUtilTimerInterface& timer, void* param)
{
    emsstandin::AddTaskManager(7, {std::chrono::milliseconds(1), nullptr})->Start();
    ScheduleEmsUtilTimer(7, timer, param);
}

unsigned long TakeHandleValue()
{
    return QNTransactionLog().GetHandle();
}

long long CountEvents()
{
    {
        const RegEmsThreadInfo inside(nullptr);
    }
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    return records.front().m_llRecvs;
}

void CreateLog()
{
    g_pLog = new QNTransactionLog;
    g_pLog->AddBuffer("name", 1, new Buffer);
    g_pLog->AddRef(1);
}

bool FindsNoLogs()
{
    const bool created = QNTransactionLog().IsValid();
    const bool attached = QNTransactionLog(3).IsValid();
    const int references = g_pLog->Release();
    QNTransactionLog::ClearAllLog();
    g_pLog->~QNTransactionLog();
    return !created && !attached && references == 0;
}

} // namespace

extern "C" EMSUTIL_API const Plugin g_Plugin = {ScheduleTimer, TakeHandleValue, CountEvents,
                                                CreateLog, FindsNoLogs};
