#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <sys/timerfd.h>
#include <unistd.h>

#include <ace/Event_Handler.h>
#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not compile.
#include <ace/Timer_Heap.h>

#ifdef BENCH_HAS_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif

#include <emsstandin/task_manager.h>

#include "bench/measure.h"
#include "emsutil/timer.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

constexpr std::chrono::seconds UNIT(1);

std::chrono::seconds g_Clock(1); // it moves only between scheduling and firing
int g_nFired = 0;

void Fire(void* data)
{
    benchmark::DoNotOptimize(data);
    ++g_nFired;
}

void* Copy(void* number)
{
    return new int(*static_cast<int*>(number));
}

void Free(void* number)
{
    delete static_cast<int*>(number);
}

EmsUtilTimerInterface g_Functions = {Fire, Copy, Free};

ACE_Time_Value ToTimeValue(std::chrono::seconds time)
{
    return ACE_Time_Value(time.count());
}

/// A timer on ACE's heap, with a copy of the caller's data: an interval, as a task's are, that is
/// disarmed where it first expires.
class BareTimer final : public ACE_Event_Handler
{
public:
    BareTimer(ACE_Timer_Heap& heap, void* data)
        : m_Functions(g_Functions), m_pData(m_Functions.pfnCopyParam(data)), m_Heap(heap)
    {}
    ~BareTimer() override { m_Functions.pfnFreeParam(m_pData); }
    BareTimer(const BareTimer&) = delete;
    BareTimer& operator=(const BareTimer&) = delete;

    void Arm()
    {
        m_lId = m_Heap.schedule(this, nullptr, ToTimeValue(g_Clock + UNIT), ToTimeValue(UNIT));
    }

    int handle_timeout(const ACE_Time_Value&, const void*) override
    {
        m_Heap.cancel(m_lId, nullptr, 1);
        m_Functions.pfnTimeout(m_pData);
        delete this;
        return 0;
    }

private:
    EmsUtilTimerInterface m_Functions;
    void* m_pData;
    ACE_Timer_Heap& m_Heap;
    long m_lId = 0;
};

/// `count` times `schedule(data)`, then `deliver()`, which fires all.
template <class Schedule, class Deliver>
void ScheduleAndFire(benchmark::State& state, int count, Schedule schedule, Deliver deliver)
{
    int data = 4711;
    Measure(
        state,
        [&] {
            g_nFired = 0;
            for (int i = 0; i < count; ++i) {
                schedule(&data);
            }
            g_Clock += 2 * UNIT;
            deliver();
        },
        [count] { return g_nFired == count; }, count);
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
            [&heap] { heap.expire(ToTimeValue(g_Clock)); });
    });
#ifdef BENCH_HAS_BOOST
    if (count == 1) {
        Peer(operation, "boost::asio::steady_timer", 1, [](benchmark::State& state) {
            boost::asio::io_context context;
            g_nFired = 0;
            Measure(
                state,
                [&] {
                    boost::asio::steady_timer timer(context, std::chrono::seconds(0));
                    timer.async_wait([](const boost::system::error_code&) { Fire(nullptr); });
                    context.restart();
                    context.run();
                },
                [] { return g_nFired == 1; });
        });
    }
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
void MeasureLateness(benchmark::State& state, double share, const std::function<void()>& arm)
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
        if (late.front() < Clock::duration::zero()) {
            state.SkipWithError("a timer was early");
        }
        const auto index = static_cast<std::size_t>(share * SAMPLES);
        state.SetIterationTime(std::chrono::duration<double>(late[index]).count());
    }
}

/// A timer of the kernel, and a thread that waits for it as long as the process runs.
int CreateKernelTimer()
{
    const int file = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    std::thread([file] {
        std::uint64_t expiries = 0;
        while (read(file, &expiries, sizeof expiries) == sizeof expiries) {
            NoteFiring();
        }
    }).detach();
    return file;
}

void AddLateness(const std::string& text, double share, double goal)
{
    const std::string operation = "lateness of a timer, " + text;
    std::vector<Row*> rows = {
        Ours(operation,
             [share](benchmark::State& state) {
                 constexpr unsigned char id = 12;
                 static emsstandin::TaskManager& manager =
                     *emsstandin::AddTaskManager(id, {DELAY, nullptr});
                 EmsUtilTimerInterface functions = {[](void*) { NoteFiring(); }, nullptr, nullptr};
                 manager.Start();
                 MeasureLateness(state, share,
                                 [&functions] { ScheduleEmsUtilTimer(id, functions, nullptr); });
                 manager.Stop();
             }),
        Floor(operation, goal,
              [share](benchmark::State& state) {
                  static const int timer = CreateKernelTimer();
                  const itimerspec spec{{}, {0, std::chrono::nanoseconds(DELAY).count()}};
                  MeasureLateness(state, share,
                                  [&spec] { timerfd_settime(timer, 0, &spec, nullptr); });
              }),
    };
#ifdef BENCH_HAS_BOOST
    rows.push_back(
        Peer(operation, "boost::asio::steady_timer", 0, [share](benchmark::State& state) {
            boost::asio::io_context context;
            auto work = boost::asio::make_work_guard(context);
            boost::asio::steady_timer timer(context);
            std::thread thread([&context] { context.run(); });
            MeasureLateness(state, share, [&timer] {
                timer.expires_after(DELAY);
                timer.async_wait([](const boost::system::error_code&) { NoteFiring(); });
            });
            work.reset();
            thread.join();
        }));
#endif
    for (Row* row : rows) {
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

} // namespace bench
