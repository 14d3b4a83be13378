#include <chrono>
#include <future>

#include <emsplatform/debug_interface.h>
#include <emsplatform/task.h>
#include <emsutil/diagnostics.h>
#include <emsutil/timer.h>

using namespace NSQN_EMSUTIL_AGENT;

std::promise<void> g_Fired;

void Fire(void*)
{
    GetEmsUtilAgentDebugInterface()->DebugPrint(1, "%s\n", "the timer has fired");
    g_Fired.set_value();
}

int main()
{
    eKorTaskMgr manager(7, std::chrono::milliseconds(100));
    EmsUtilTimerInterface timer = {Fire, nullptr, nullptr};
    ScheduleEmsUtilTimer(8, timer, nullptr); // there is no such task manager
    ScheduleEmsUtilTimer(7, timer, nullptr);
    g_Fired.get_future().wait();
}
