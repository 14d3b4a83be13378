#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <sys/timerfd.h>
#include <unistd.h>

#ifdef BENCH_HAS_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#endif
#ifdef BENCH_HAS_POCO
#include <Poco/Clock.h>
#include <Poco/Util/Timer.h>
#include <Poco/Util/TimerTask.h>
#endif

#include <emsstandin/task_manager.h>

#include "bench/compare.h"
#include "emsutil/timer.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned char MANAGER = 12;
constexpr std::chrono::milliseconds DELAY(1);
/// For the thread that fires to wait again: what it does after a timer is not to make the next
/// late.
constexpr std::chrono::microseconds PAUSE(200);
constexpr int SAMPLES = 400; // of a repetition

Clock::time_point g_Fired;
std::binary_semaphore g_HasFired(0);

void Fire()
{
    g_Fired = Clock::now();
    g_HasFired.release();
}

/// How late `arm()`'s call of Fire() is in this share of cases; one timer at a time.
Body Lateness(double share, std::function<void()> arm)
{
    return [share, arm = std::move(arm)](benchmark::State& state) {
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
    };
}

/// A thread that waits for a timer of the kernel, and nothing else.
class BareTimer
{
public:
    BareTimer()
        : m_Thread([this] {
              std::uint64_t expiries = 0;
              while (read(m_nFile, &expiries, sizeof expiries) == sizeof expiries && !m_bEnded) {
                  Fire();
              }
          })
    {}
    ~BareTimer()
    {
        m_bEnded = true;
        Arm();
        m_Thread.join();
        close(m_nFile);
    }
    BareTimer(const BareTimer&) = delete;
    BareTimer& operator=(const BareTimer&) = delete;

    void Arm()
    {
        const itimerspec spec{{}, {0, std::chrono::nanoseconds(DELAY).count()}};
        timerfd_settime(m_nFile, 0, &spec, nullptr);
    }

private:
    const int m_nFile = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    std::atomic<bool> m_bEnded = false;
    std::thread m_Thread;
};

#ifdef BENCH_HAS_POCO
struct PocoTask : Poco::Util::TimerTask
{
    void run() override { Fire(); }
};
#endif

#ifdef BENCH_HAS_BOOST
/// A thread that runs what is due.
class AsioTimer
{
public:
    void Arm()
    {
        m_Timer.expires_after(DELAY);
        m_Timer.async_wait([](const boost::system::error_code&) { Fire(); });
    }
    ~AsioTimer()
    {
        m_Work.reset();
        m_Thread.join();
    }

private:
    boost::asio::io_context m_Context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_Work{
        m_Context.get_executor()};
    boost::asio::steady_timer m_Timer{m_Context};
    std::thread m_Thread{[this] { m_Context.run(); }};
};
#endif

} // namespace

void MeasureTimerLateness()
{
    emsstandin::TaskManagerOptions options;
    options.m_Unit = DELAY;
    emsstandin::TaskManager& manager = *emsstandin::AddTaskManager(MANAGER, options);
    manager.Start();
    EmsUtilTimerInterface functions = {[](void*) { Fire(); }, nullptr, nullptr};
    BareTimer bare;
#ifdef BENCH_HAS_POCO
    Poco::Util::Timer poco;
#endif
#ifdef BENCH_HAS_BOOST
    AsioTimer asio;
#endif

    const auto compare = [&](const std::string& name, double goal, double share) {
        std::vector<Row> rows = {
            Ours(Lateness(share,
                          [&functions] { ScheduleEmsUtilTimer(MANAGER, functions, nullptr); })),
            Floor(Lateness(share, [&bare] { bare.Arm(); })),
        };
#ifdef BENCH_HAS_POCO
        rows.push_back(Rival("Poco::Util::Timer", Lateness(share, [&poco] {
                                 poco.schedule(new PocoTask, Poco::Clock() + 1000);
                             })));
#endif
#ifdef BENCH_HAS_BOOST
        rows.push_back(Peer("boost::asio::steady_timer", Lateness(share, [&asio] { asio.Arm(); })));
#endif
        Compare({name, goal, Time::Own}, rows);
    };
    compare("lateness of a timer, median", 1.3, 0.5);
    compare("lateness of a timer, 99th percentile", 1.5, 0.99);
    manager.Stop();
}

} // namespace bench
