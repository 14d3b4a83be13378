#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include <sys/timerfd.h>
#include <unistd.h>

#include <ace/Event_Handler.h>
#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not compile.
#include <ace/Timer_Heap.h>

#ifdef BENCH_HAS_BOOST
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif

#include <emsstandin/task_manager.h>

#include "bench/measure.h"
#include "emsutil/timer.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr std::chrono::seconds UNIT(1);

std::chrono::seconds g_Clock(1); // it moves only between scheduling and firing
int g_nFired = 0;

void Fire(void* data)
{
    benchmark::DoNotOptimize(data);
    ++g_nFired;
}

EmsUtilTimerInterface g_Functions = {
    Fire,
    [](void* number) -> void* { return new int(*static_cast<int*>(number)); },
    [](void* number) { delete static_cast<int*>(number); },
};

/// A timer on ACE's heap, with a copy of the caller's data: an interval, as a task's are, that is
/// disarmed where it first expires.
struct BareTimer final : ACE_Event_Handler
{
    BareTimer(ACE_Timer_Heap& timers, void* source)
        : heap(timers), data(functions.pfnCopyParam(source))
    {}
    ~BareTimer() override { functions.pfnFreeParam(data); }

    void Arm()
    {
        id = heap.schedule(this, nullptr, ACE_Time_Value(g_Clock + UNIT), ACE_Time_Value(UNIT));
    }

    int handle_timeout(const ACE_Time_Value&, const void*) override
    {
        heap.cancel(id, nullptr, 1);
        functions.pfnTimeout(data);
        delete this;
        return 0;
    }

    const EmsUtilTimerInterface functions = g_Functions;
    ACE_Timer_Heap& heap;
    void* const data;
    long id = 0;
};

/// `count` times `schedule(data)`, then `deliver()`, which fires all.
template <class Schedule, class Deliver>
void ScheduleAndFire(benchmark::State& state, int count, Schedule schedule, Deliver deliver)
{
    int data = 4711;
    const auto run = [&] {
        g_nFired = 0;
        for (int i = 0; i < count; ++i) {
            schedule(&data);
        }
        g_Clock += 2 * UNIT;
        deliver();
    };
    Measure(state, run, count);
    Check(state, g_nFired == count);
}

void AddScheduling(int count, const std::string& text)
{
    const std::string operation = "schedule and fire a timer, of " + text;
    Ours(operation, [count](benchmark::State& state) {
        constexpr unsigned char id = 11;
        static emsstandin::TaskManager& manager =
            *emsstandin::AddTaskManager(id, {UNIT, [] { return g_Clock; }});
        manager.Start();
        ScheduleAndFire(
            state, count, [](void* data) { ScheduleEmsUtilTimer(id, g_Functions, data); },
            [] { manager.DeliverExpired(); });
        manager.Stop();
    });
    Floor(operation, 1, [count](benchmark::State& state) {
        ACE_Timer_Heap heap;
        ScheduleAndFire(
            state, count, [&heap](void* data) { (new BareTimer(heap, data))->Arm(); },
            [&heap] { heap.expire(ACE_Time_Value(g_Clock)); });
    });
#ifdef BENCH_HAS_BOOST
    Peer(operation, "boost::asio::steady_timer", 1, [count](benchmark::State& state) {
        boost::asio::io_context context;
        const auto schedule = [&context](void* data) {
            const auto timer = std::make_shared<boost::asio::steady_timer>(context, UNIT * 0);
            timer->async_wait([timer, data](const boost::system::error_code&) { Fire(data); });
        };
        ScheduleAndFire(state, count, schedule, [&context] {
            context.restart();
            context.run();
        });
    });
#endif
}

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds DELAY(1);
/// For the thread that fires to wait again: what it does after a timer must not delay the next.
constexpr std::chrono::microseconds PAUSE(200);
constexpr int SAMPLES = 400; // of a repetition

Clock::time_point g_Fired;
std::binary_semaphore g_HasFired(0);

void NoteFiring()
{
    g_Fired = Clock::now();
    g_HasFired.release();
}

/// How late `arm()`'s call of NoteFiring() is in this share of cases; one timer at a time.
template <class Arm>
void MeasureLateness(benchmark::State& state, double share, Arm arm)
{
    for (auto _ : state) {
        std::vector<Clock::duration> late;
        for (int i = 0; i < SAMPLES; ++i) {
            std::this_thread::sleep_for(PAUSE);
            const Clock::time_point due = Clock::now() + DELAY;
            arm();
            g_HasFired.acquire();
            late.push_back(g_Fired - due);
        }
        std::sort(late.begin(), late.end());
        Check(state, late.front() >= Clock::duration::zero());
        const auto index = static_cast<std::size_t>(share * SAMPLES);
        state.SetIterationTime(std::chrono::duration<double>(late[index]).count());
    }
}

/// One iteration is a whole repetition.
void AddLateness(const std::string& text, double share, double goal)
{
    const std::string operation = "lateness of a timer, " + text;
    Row* const ours = Ours(operation, [share](benchmark::State& state) {
        constexpr unsigned char id = 12;
        static auto* const manager = emsstandin::AddTaskManager(id, {DELAY, nullptr});
        EmsUtilTimerInterface functions = {[](void*) { NoteFiring(); }, nullptr, nullptr};
        manager->Start();
        MeasureLateness(state, share, [&] { ScheduleEmsUtilTimer(id, functions, nullptr); });
        manager->Stop();
    });
    Row* const floor = Floor(operation, goal, [share](benchmark::State& state) {
        const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
        const itimerspec spec{{}, {0, std::chrono::nanoseconds(DELAY).count()}};
        MeasureLateness(state, share, [&] {
            std::uint64_t expiries = 0;
            timerfd_settime(timer, 0, &spec, nullptr);
            if (read(timer, &expiries, sizeof expiries) == sizeof expiries) {
                NoteFiring();
            }
        });
        close(timer);
    });
    for (Row* row : {ours, floor}) {
        row->Iterations(1)->UseManualTime();
    }
}

} // namespace

void AddTimers()
{
    AddScheduling(1, "1");
    AddScheduling(1000, "1,000");
    AddScheduling(100000, "100,000");
    AddLateness("median", 0.5, 1.3);
    AddLateness("99th percentile", 0.99, 1.5);
}
