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

Loads CreateLoads(int threads, std::function<void()> atRest)
{
    Loads loads;
    loads.push_back(CreateGeneralCommandLoad(threads));
    loads.push_back(CreateReportLoad(threads, std::move(atRest)));
    loads.push_back(CreateTimeGuardLoad(threads));
    loads.push_back(CreateThreadMonitorLoad(threads));
    loads.push_back(CreateTimerLoad(threads));
    loads.push_back(CreateTransactionLogLoad(threads));
    loads.push_back(CreateLockErrorLoad(threads));
    return loads;
}

void Run(const Loads& loads, Pace& pace, const std::function<void()>& meanwhile)
{
    std::promise<bool> start;
    const std::shared_future<bool> started(start.get_future());
    std::vector<std::jthread> threads;
    try {
        for (const auto& load : loads) {
            for (int thread = 0; thread < load->m_nThreads; ++thread) {
                threads.emplace_back([&load = *load, &pace, thread, started] {
                    if (started.get()) {
                        load.Work(thread, pace);
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
