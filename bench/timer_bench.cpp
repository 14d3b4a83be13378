#include <chrono>
#include <string>

#include <ace/Event_Handler.h>
#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not compile.
#include <ace/Timer_Heap.h>

#ifdef BENCH_HAS_BOOST
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif
#ifdef BENCH_HAS_POCO
#include <Poco/Clock.h>
#include <Poco/Event.h>
#include <Poco/Util/Timer.h>
#include <Poco/Util/TimerTask.h>
#endif

#include <emsstandin/task_manager.h>

#include "bench/compare.h"
#include "emsutil/timer.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

constexpr unsigned char MANAGER = 11;
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
void Repeat(benchmark::State& state, int count, Schedule schedule, Deliver deliver)
{
    int data = 4711;
    while (state.KeepRunningBatch(count)) {
        g_nFired = 0;
        for (int i = 0; i < count; ++i) {
            schedule(&data);
        }
        g_Clock += 2 * UNIT;
        deliver();
        if (g_nFired != count) {
            state.SkipWithError("not all timers have fired");
        }
    }
}

#ifdef BENCH_HAS_POCO
/// Poco's timers have a thread of their own.
void RepeatPoco(benchmark::State& state)
{
    struct Task : Poco::Util::TimerTask
    {
        explicit Task(Poco::Event& event) : m_Event(event) {}
        void run() override { m_Event.set(); }
        Poco::Event& m_Event;
    };
    Poco::Util::Timer timer;
    Poco::Event fired;
    for (auto _ : state) {
        timer.schedule(new Task(fired), Poco::Clock());
        fired.wait();
    }
}
#endif

#ifdef BENCH_HAS_BOOST
void RepeatAsio(benchmark::State& state)
{
    boost::asio::io_context context;
    for (auto _ : state) {
        boost::asio::steady_timer timer(context, std::chrono::seconds(0));
        timer.async_wait([](const boost::system::error_code&) { Fire(nullptr); });
        context.restart();
        context.run();
    }
}
#endif

} // namespace

void MeasureTimers()
{
    emsstandin::TaskManagerOptions options;
    options.m_Unit = UNIT;
    options.m_Clock = [] { return g_Clock; };
    emsstandin::TaskManager& manager = *emsstandin::AddTaskManager(MANAGER, options);
    manager.Start();

    const auto name = [](const std::string& count) {
        return "timer scheduled and fired, of " + count;
    };
    for (const auto& [count, text] :
         {std::pair(1, "1"), std::pair(1000, "1,000"), std::pair(100000, "100,000")}) {
        ACE_Timer_Heap heap;
        std::vector<Row> rows = {
            Ours([&manager, count = count](benchmark::State& state) {
                Repeat(
                    state, count,
                    [](void* data) { ScheduleEmsUtilTimer(MANAGER, g_Functions, data); },
                    [&manager] { manager.DeliverExpired(); });
            }),
            Floor([&heap, count = count](benchmark::State& state) {
                Repeat(
                    state, count, [&heap](void* data) { (new BareTimer(heap, data))->Arm(); },
                    [&heap] { heap.expire(ToTimeValue(g_Clock)); });
            }),
        };
        if (count == 1) {
#ifdef BENCH_HAS_POCO
            rows.push_back(Rival("Poco::Util::Timer", RepeatPoco));
#endif
#ifdef BENCH_HAS_BOOST
            rows.push_back(Rival("boost::asio::steady_timer", RepeatAsio));
#endif
        }
        Compare({name(text), 1.5, count == 1 ? Time::Wall : Time::Processor}, rows);
    }
    CompareGrowth(name("1,000"), name("100,000"), 5);
    manager.Stop();
}

} // namespace bench
