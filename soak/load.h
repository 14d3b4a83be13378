#ifndef SOAK_LOAD_H
#define SOAK_LOAD_H

/// Loads on the services of the library. Each counts what it does and what it sees of it.

#include <atomic>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace soak {

constexpr int BURST = 100; // steps

using Count = std::atomic<std::uint64_t>;

/// How often something was done, and how often its effect was seen.
struct Total
{
    std::string what;
    std::uint64_t done;
    std::uint64_t seen;

    bool IsExact() const { return done == seen && done > 0; }
};

/// The load that threads, numbered from 0, put on one service.
struct Load
{
    std::function<void(int thread)> step;
    /// Waits for what is still under way when all threads have ended, and returns the totals.
    std::function<std::vector<Total>()> finish;
    std::function<void(int thread)> afterBurst = [](int) {};
};

Load GeneralCommandLoad(int threads);
/// Needs the directory of the report file. Calls `atRest` again and again, on one thread, while the
/// report file is closed.
Load ReportLoad(int threads, std::function<void()> atRest);
Load TimeGuardLoad();
Load ThreadMonitorLoad(int threads);
Load TimerLoad();
Load TransactionLogLoad();
Load LockErrorLoad();
/// One of each.
std::vector<Load> AllLoads(int threads, const std::function<void()>& atRest);

/// How long each thread repeats its steps: for so many bursts, or until a stop, with a pause after
/// each burst, so that no service keeps the others from running.
struct Pace
{
    int bursts = 0;
    std::stop_token stop = {};
};

/// Runs the loads with so many threads each, which start together. Meanwhile it drains the queue of
/// commands, and calls `meanwhile` again and again. Throws std::system_error, and has run nothing,
/// when a thread cannot be created.
void Run(const std::vector<Load>& loads, int threads, const Pace& pace,
         const std::function<void()>& meanwhile);

/// The debug lines that the loads make the library write. The program must pass each line of its
/// debug interface to CountDebugLine(), which returns false for one that no load expects.
struct DebugLines
{
    Count guard = 0;
    Count statistics = 0;
};
extern DebugLines g_DebugLines;
bool CountDebugLine(const std::string& line);

} // namespace soak

#endif
