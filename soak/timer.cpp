#include "emsutil/timer.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <emsstandin/task_manager.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;

constexpr unsigned char MANAGER = 1;
constexpr std::uint64_t MOST_PENDING = 1000;

/// Threads schedule timers as fast as they are freed.
class TimerLoad final : public Load
{
public:
    explicit TimerLoad(int threads) : Load(threads)
    {
        emsstandin::TaskManagerOptions options;
        options.m_Unit = 100us;
        m_pManager = emsstandin::AddTaskManager(MANAGER, options);
        m_pManager->Start();
    }

    void Work(int, const Pace& pace) override
    {
        pace.Repeat([this] { Schedule(); });
    }

    std::vector<Total> Finish() override
    {
        {
            std::unique_lock lock(m_Mutex);
            m_Freed.wait_for(lock, 10s, [this] { return m_nPending == 0; });
        }
        m_pManager->Stop();
        return {{"timers freed", m_nScheduled, m_nFreed},
                {"timers fired once", m_nScheduled, m_nFiredOnce}};
    }

private:
    struct Data
    {
        TimerLoad* load;
        int fired = 0;
    };

    static void Fire(void* data) { ++static_cast<Data*>(data)->fired; }
    static void* Copy(void* data) { return new Data(*static_cast<Data*>(data)); }
    static void Free(void* data)
    {
        const std::unique_ptr<Data> own(static_cast<Data*>(data));
        own->load->CountFreed(own->fired);
    }

    void Schedule()
    {
        {
            std::unique_lock lock(m_Mutex);
            m_Freed.wait(lock, [this] { return m_nPending < MOST_PENDING; });
            ++m_nPending;
        }
        ++m_nScheduled;
        EmsUtilTimerInterface timer = {Fire, Copy, Free};
        Data data{this};
        ScheduleEmsUtilTimer(MANAGER, timer, &data);
    }

    void CountFreed(int fired)
    {
        ++m_nFreed;
        m_nFiredOnce += fired == 1 ? 1 : 0;
        const std::lock_guard guard(m_Mutex);
        --m_nPending;
        m_Freed.notify_all();
    }

    emsstandin::TaskManager* m_pManager;
    std::mutex m_Mutex; // guards the next two
    std::condition_variable m_Freed;
    std::uint64_t m_nPending = 0;
    Count m_nScheduled = 0;
    Count m_nFreed = 0;
    Count m_nFiredOnce = 0;
};

} // namespace

std::unique_ptr<Load> CreateTimerLoad(int threads)
{
    return std::make_unique<TimerLoad>(threads);
}

} // namespace soak
