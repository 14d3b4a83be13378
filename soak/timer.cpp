#include "emsutil/timer.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include <emsstandin/task_manager.h>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;

constexpr unsigned char MANAGER = 1;
constexpr std::uint64_t MOST_PENDING = 1000;

struct State
{
    emsstandin::TaskManager* manager = nullptr;
    std::mutex mutex; // guards the next
    std::uint64_t pending = 0;
    std::condition_variable freed;
    Count scheduled = 0;
    Count freedCount = 0;
    Count firedOnce = 0;
};

struct Data
{
    State* state;
    int fired = 0;
};

void Fire(void* data)
{
    ++static_cast<Data*>(data)->fired;
}

void* Copy(void* data)
{
    return new Data(*static_cast<Data*>(data));
}

void Free(void* data)
{
    const std::unique_ptr<Data> own(static_cast<Data*>(data));
    State& state = *own->state;
    ++state.freedCount;
    state.firedOnce += own->fired == 1 ? 1 : 0;
    const std::lock_guard guard(state.mutex);
    --state.pending;
    state.freed.notify_all();
}

void Schedule(State& state)
{
    {
        std::unique_lock lock(state.mutex);
        state.freed.wait(lock, [&state] { return state.pending < MOST_PENDING; });
        ++state.pending;
    }
    ++state.scheduled;
    EmsUtilTimerInterface timer = {Fire, Copy, Free};
    Data data{&state};
    ScheduleEmsUtilTimer(MANAGER, timer, &data);
}

std::vector<Total> Finish(State& state)
{
    {
        std::unique_lock lock(state.mutex);
        state.freed.wait_for(lock, 10s, [&state] { return state.pending == 0; });
    }
    state.manager->Stop();
    return {{"timers freed", state.scheduled, state.freedCount},
            {"timers fired once", state.scheduled, state.firedOnce}};
}

} // namespace

/// Threads schedule timers as fast as they are freed.
Load TimerLoad()
{
    const auto state = std::make_shared<State>();
    emsstandin::TaskManagerOptions options;
    options.m_Unit = 100us;
    state->manager = emsstandin::AddTaskManager(MANAGER, options);
    state->manager->Start();
    return {[state](int) { Schedule(*state); }, [state] { return Finish(*state); }};
}

} // namespace soak
