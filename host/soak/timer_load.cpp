#include "host/soak/load.h"

#include <chrono>

#include <emsstandin/task_manager.h>

#include "emsutil/timer.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;

/// Threads schedule timers on a task manager, as fast as these are freed.
class TimerLoad final : public SoakLoad
{
public:
    TimerLoad()
    {
        emsstandin::TaskManagerOptions options;
        options.m_Unit = 1ms;
        m_pManager = emsstandin::AddTaskManager(MANAGER, options);
        m_pManager->Start();
    }

    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) { RepeatUntil(stop, [&] { Schedule(stop); }); }};
    }

    std::vector<SoakTotal> Finish() override
    {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (m_nFreed < m_nScheduled && std::chrono::steady_clock::now() < deadline) {
            Pause();
        }
        m_pManager->Stop();
        return {{"timers copied", m_nScheduled, m_nCopied},
                {"timers fired", m_nScheduled, m_nFired},
                {"timers freed", m_nScheduled, m_nFreed}};
    }

private:
    static constexpr unsigned char MANAGER = 1;
    static constexpr std::uint64_t MOST_PENDING = 1000;

    /// What the library has copied for the timer.
    struct Data
    {
        TimerLoad* m_pLoad;
    };

    void Schedule(const Stop& stop)
    {
        while (m_nScheduled > m_nFreed + MOST_PENDING && !stop) {
            Pause();
        }
        EmsUtilTimerInterface timer = {
            [](void* data) { ++static_cast<Data*>(data)->m_pLoad->m_nFired; },
            [](void* data) -> void* {
                ++static_cast<Data*>(data)->m_pLoad->m_nCopied;
                return new Data(*static_cast<Data*>(data));
            },
            [](void* data) {
                ++static_cast<Data*>(data)->m_pLoad->m_nFreed;
                delete static_cast<Data*>(data);
            }};
        Data data{this};
        ScheduleEmsUtilTimer(MANAGER, timer, &data);
        ++m_nScheduled;
    }

    emsstandin::TaskManager* m_pManager;
    Count m_nScheduled = 0;
    Count m_nCopied = 0;
    Count m_nFired = 0;
    Count m_nFreed = 0;
};

} // namespace

std::unique_ptr<SoakLoad> MakeTimerLoad()
{
    return std::make_unique<TimerLoad>();
}

} // namespace emshost
