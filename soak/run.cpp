#include <future>
#include <thread>

#include "emsutil/general_command.h"
#include "soak/load.h"

namespace soak {

void Run(const std::vector<Load>& loads, std::size_t threads,
         const std::function<bool(std::size_t bursts)>& pause,
         const std::function<void()>& meanwhile)
{
    std::promise<bool> start;
    const std::shared_future<bool> started(start.get_future());
    std::atomic<std::size_t> running = loads.size() * threads;
    std::vector<std::jthread> all;
    const auto run = [&pause, &running, started](const Load& load, std::size_t thread) {
        bool goesOn = started.get();
        for (std::size_t steps = 1; goesOn; ++steps) {
            load.step(thread);
            goesOn = steps % BURST != 0 || pause(steps / BURST);
        }
        --running;
    };
    try {
        for (const Load& load : loads) {
            for (std::size_t thread = 0; thread < threads; ++thread) {
                all.emplace_back(run, std::cref(load), thread);
            }
        }
    } catch (...) {
        start.set_value(false);
        throw;
    }
    start.set_value(true);
    while (running > 0) { // a thread may be waiting for room in the queue
        NSQN_EMSUTIL_AGENT::runGeneralCmd();
        meanwhile();
    }
    NSQN_EMSUTIL_AGENT::runGeneralCmd();
}

} // namespace soak
