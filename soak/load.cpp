#include "soak/load.h"

#include <chrono>
#include <future>
#include <thread>
#include <utility>

namespace soak {

constinit DebugLines g_DebugLines;

void Pace::Pause() const
{
    if (m_nBursts == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } else {
        std::this_thread::yield();
    }
}

std::vector<Load> AllLoads(int threads, const std::function<void()>& atRest)
{
    return {GeneralCommandLoad(threads), ReportLoad(threads, atRest), TimeGuardLoad(threads),
            ThreadMonitorLoad(threads),  TimerLoad(threads),          TransactionLogLoad(threads),
            LockErrorLoad(threads)};
}

void Run(const std::vector<Load>& loads, Pace& pace, const std::function<void()>& meanwhile)
{
    std::promise<bool> start;
    const std::shared_future<bool> started(start.get_future());
    std::vector<std::jthread> threads;
    try {
        for (const Load& load : loads) {
            for (int thread = 0; thread < load.threads; ++thread) {
                threads.emplace_back([&load, &pace, thread, started] {
                    if (started.get()) {
                        load.work(thread, pace);
                    }
                });
            }
        }
    } catch (...) {
        start.set_value(false);
        throw;
    }
    start.set_value(true);
    meanwhile();
    pace.Stop();
}

bool CountDebugLine(const std::string& line)
{
    if (line.starts_with("soak guard ") || line.starts_with("used time(ms): ")) {
        ++g_DebugLines.guard;
    } else if (line.starts_with("Ems Thread Information\n")) {
        ++g_DebugLines.statistics;
    } else {
        return false;
    }
    return true;
}

} // namespace soak
