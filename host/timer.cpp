#include "emsutil/timer.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "host/host.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

namespace {

using Clock = std::chrono::steady_clock;

struct Manager
{
    emsstandin::TaskManager* manager;
    Clock::duration unit;
};

std::map<int, Manager> g_Managers; // by id, for the main thread

// Never destroyed: timers are freed until the process has ended.
std::mutex g_Mutex; // guards the next
int g_nPending = 0; // timers that are not yet freed
std::condition_variable_any& g_Changed = *new std::condition_variable_any;

void AddPending(int difference)
{
    const std::lock_guard guard(g_Mutex);
    g_nPending += difference;
    g_Changed.notify_all();
}

/// What a command passes to the library; each timer has a copy.
struct Timer
{
    std::string who;
    Clock::time_point due;
    bool hasFired = false;
};

void Fire(void* data)
{
    Timer& timer = *static_cast<Timer*>(data);
    const std::chrono::duration<double, std::milli> late = Clock::now() - timer.due;
    timer.hasFired = true;
    Print(string_format("%s, %.1f ms late", timer.who.c_str(), late.count()));
    Flush(); // the main thread may be in a long wait, and does not flush then
}

void* Copy(void* data)
{
    auto copy = std::make_unique<Timer>(*static_cast<const Timer*>(data));
    AddPending(1);
    return copy.release();
}

void Free(void* data)
{
    const std::unique_ptr<Timer> timer(static_cast<Timer*>(data));
    if (!timer->hasFired) {
        Print(timer->who + " is destroyed before it fires");
    }
    AddPending(-1);
}

void AddManager(const Call& call)
{
    const int id = call.Number<int>("id");
    emsstandin::TaskManagerOptions options;
    options.m_Unit = std::chrono::milliseconds(call.Number<int>("unit"));
    auto* const manager = emsstandin::AddTaskManager(static_cast<unsigned char>(id), options);
    if (manager == nullptr) {
        throw std::runtime_error(string_format("task manager %d exists already", id));
    }
    g_Managers[id] = {manager, options.m_Unit};
    call.m_Host.AtEnd([manager] { manager->Stop(); });
}

void Schedule(const Call& call)
{
    const int id = call.Number<int>("manager");
    const auto found = g_Managers.find(id);
    Timer timer{string_format("timer on %d: ", id) + Quoted(call.Text("text")), Clock::now()};
    if (found != g_Managers.end()) {
        found->second.manager->Start(); // or throws, and there is no timer that would not fire
        timer.due = Clock::now() + found->second.unit;
    }
    EmsUtilTimerInterface functions = {Fire, Copy, Free};
    ScheduleEmsUtilTimer(static_cast<unsigned char>(id), functions, &timer);
    if (found == g_Managers.end()) {
        throw std::runtime_error(string_format("task manager %d does not exist", id));
    }
}

void AwaitTimers(const Call& call)
{
    Flush();
    std::unique_lock lock(g_Mutex);
    g_Changed.wait(lock, call.m_Host.StopToken(), [] { return g_nPending == 0; });
}

const Service g_Service(
    "Timers",
    {{"await-timers", "Wait until all timers have fired and are freed.", AwaitTimers},
     {"manager",
      "Create a task manager, with a thread of its own.",
      AddManager,
      {Number("id", 0, 255, "its id"),
       Number("unit", 1, 60000, "its unit of time, in milliseconds", "100")}},
     {"timer",
      "Make a task manager print a text one unit of time later, and how late it is.",
      Schedule,
      {Number("manager", 0, 255, "the id of the task manager"), Text("text", "the text")}}});

} // namespace
