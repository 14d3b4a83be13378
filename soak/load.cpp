#include "soak/load.h"

#include <chrono>
#include <future>
#include <thread>

#include "emsutil/general_command.h"

namespace soak {

constinit DebugLines g_DebugLines;

namespace {

void Pause(const Pace& pace)
{
    if (pace.bursts == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } else {
        std::this_thread::yield();
    }
}

void Repeat(const Load& load, int thread, const Pace& pace)
{
    for (int burst = 0; pace.bursts == 0 ? !pace.stop.stop_requested() : burst < pace.bursts;
         ++burst) {
        for (int step = 0; step < BURST; ++step) {
            load.step(thread);
        }
        load.afterBurst(thread);
        Pause(pace);
    }
}

} // namespace

std::vector<Load> AllLoads(int threads, const std::function<void()>& atRest)
{
    return {GeneralCommandLoad(threads),
            ReportLoad(threads, atRest),
            TimeGuardLoad(),
            ThreadMonitorLoad(threads),
            TimerLoad(),
            TransactionLogLoad(),
            LockErrorLoad()};
}

void Run(const std::vector<Load>& loads, int threads, const Pace& pace,
         const std::function<void()>& meanwhile)
{
    std::promise<bool> start;
    const std::shared_future<bool> started(start.get_future());
    std::atomic<int> running = 0;
    std::vector<std::jthread> all;
    try {
        for (const Load& load : loads) {
            for (int thread = 0; thread < threads; ++thread) {
                all.emplace_back([&load, thread, &pace, started, &running] {
                    if (started.get()) {
                        Repeat(load, thread, pace);
                        --running;
                    }
                });
            }
        }
    } catch (...) {
        start.set_value(false);
        throw;
    }
    running = static_cast<int>(all.size());
    start.set_value(true);
    while (running > 0) { // a thread may be waiting for room in the queue
        NSQN_EMSUTIL_AGENT::runGeneralCmd();
        meanwhile();
        Pause(pace);
    }
    NSQN_EMSUTIL_AGENT::runGeneralCmd();
}

bool CountDebugLine(const std::string& line)
{
    const bool isGuard = line.starts_with("soak guard ") || line.starts_with("used time(ms): ");
    const bool isStatistics = line.starts_with("Ems Thread Information\n");
    g_DebugLines.guard += isGuard ? 1 : 0;
    g_DebugLines.statistics += isStatistics ? 1 : 0;
    return isGuard || isStatistics;
}

} // namespace soak
