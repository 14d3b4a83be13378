#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/timer.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int HIGHEST_MANAGER = 255;
constexpr int LONGEST_UNIT_MS = 60000;

struct Manager
{
    emsstandin::TaskManager* m_pManager;
    Clock::duration m_Unit;
};

/// By id. Of the main thread.
std::map<int, Manager>& Managers()
{
    static auto* const managers = new std::map<int, Manager>;
    return *managers;
}

/// What the command hands to the library, which has it copied.
struct TimerRequest
{
    int m_nManager;
    Clock::duration m_Unit;
    std::string m_strText;
};

/// How many timers are not yet freed. Never destroyed.
struct PendingCount
{
    std::mutex m_Mutex; // guards the next
    int m_nPending = 0;
    std::condition_variable m_NonePending;

    static PendingCount& Instance()
    {
        static auto* const count = new PendingCount;
        return *count;
    }
};

/// The copy, which is the timer's.
class PendingTimer
{
public:
    explicit PendingTimer(const TimerRequest& request)
        : m_Due(Clock::now() + request.m_Unit),
          m_strWho(string_format("timer on %d: ", request.m_nManager) + Quoted(request.m_strText))
    {
        PendingCount& count = PendingCount::Instance();
        const std::lock_guard guard(count.m_Mutex);
        ++count.m_nPending;
    }

    ~PendingTimer()
    {
        if (!m_bFired) {
            Console::Instance().Print(m_strWho + " is destroyed before it fires");
        }
        PendingCount& count = PendingCount::Instance();
        const std::lock_guard guard(count.m_Mutex);
        if (--count.m_nPending == 0) {
            count.m_NonePending.notify_all();
        }
    }

    PendingTimer(const PendingTimer&) = delete;
    PendingTimer& operator=(const PendingTimer&) = delete;

    void Fire()
    {
        const std::chrono::duration<double, std::milli> late = Clock::now() - m_Due;
        m_bFired = true;
        Console::Instance().Print(
            string_format("%s, %.1f ms late", m_strWho.c_str(), late.count()));
    }

private:
    const Clock::time_point m_Due;
    const std::string m_strWho;
    bool m_bFired = false;
};

void FireTimer(void* timer)
{
    static_cast<PendingTimer*>(timer)->Fire();
}

void* CopyTimer(void* request)
{
    return new PendingTimer(*static_cast<const TimerRequest*>(request));
}

void FreeTimer(void* timer)
{
    delete static_cast<PendingTimer*>(timer);
}

void AddManager(Host& host, EmsGeneralCmd& cmd)
{
    const auto id = IntOf(FindPair(cmd, "id"), 0, HIGHEST_MANAGER);
    const Pair* const unitPair = FindPair(cmd, "unit");
    const auto unit = IntOf(unitPair, 1, LONGEST_UNIT_MS);
    if (!id || (unitPair != nullptr && !unit)) {
        host.ReportBadCommand(cmd, string_format("needs id:long=N from 0 to %d, [unit:long=MS] "
                                                 "from 1 to %d",
                                                 HIGHEST_MANAGER, LONGEST_UNIT_MS));
        return;
    }
    emsstandin::TaskManagerOptions options;
    if (unit) {
        options.m_Unit = std::chrono::milliseconds(*unit);
    }
    emsstandin::TaskManager* const manager =
        emsstandin::AddTaskManager(static_cast<unsigned char>(*id), options);
    if (manager == nullptr) {
        host.ReportBadCommand(cmd, string_format("there is a task manager %d already", *id));
        return;
    }
    Managers().emplace(*id, Manager{manager, options.m_Unit});
    host.AtEnd([manager] { manager->Stop(); });
}

void Schedule(Host& host, EmsGeneralCmd& cmd)
{
    const auto id = IntOf(FindPair(cmd, "manager"), 0, HIGHEST_MANAGER);
    const auto text = TextOf(FindPair(cmd, "text"));
    if (!id || !text) {
        host.ReportBadCommand(
            cmd, string_format("needs manager:long=N from 0 to %d and text=TEXT", HIGHEST_MANAGER));
        return;
    }
    TimerRequest request{*id, {}, *text};
    const auto found = Managers().find(*id);
    if (found != Managers().end()) {
        const Manager& manager = found->second;
        manager.m_pManager->Start(); // or throws, and there is no timer that nobody would deliver
        request.m_Unit = manager.m_Unit;
    }
    EmsUtilTimerInterface timer = {FireTimer, CopyTimer, FreeTimer};
    ScheduleEmsUtilTimer(static_cast<unsigned char>(*id), timer, &request);
}

void AwaitTimers(Host&, EmsGeneralCmd&)
{
    Console::Instance().Flush(); // whoever watches sees what led here
    PendingCount& count = PendingCount::Instance();
    std::unique_lock lock(count.m_Mutex);
    count.m_NonePending.wait(lock, [&count] { return count.m_nPending == 0; });
}

const HandlerTable g_Handlers = {
    {"await-timers", Handler<AwaitTimers>, "waits until all timers have fired and are freed"},
    {"manager", Handler<AddManager>,
     "id:long=N [unit:long=MS]: makes task manager N, with a thread of its own; a unit is 100 ms"},
    {"timer", Handler<Schedule>,
     "manager:long=N text=TEXT: has task manager N print a text one unit later, and how late it "
     "is"},
};

} // namespace

} // namespace emshost
