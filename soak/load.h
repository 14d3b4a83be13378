#ifndef SOAK_LOAD_H
#define SOAK_LOAD_H

/// Loads on the services of the library. Each counts what it does and what it sees of it. A process
/// creates the loads once: the services are process-wide, and so are the counts.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace soak {

using Count = std::atomic<std::uint64_t>;

/// How often something was done, and how often its effect was seen.
struct Total
{
    const char* what;
    Count done = 0;
    Count seen = 0;

    void Add(bool isSeen)
    {
        ++done;
        seen += isSeen ? 1 : 0;
    }
    bool IsExact() const { return done == seen && done > 0; }
};

constexpr std::size_t BURST = 100;       // steps
constexpr std::size_t MOST_THREADS = 32; // of a load

/// The load that threads, numbered from 0, put on one service.
struct Load
{
    std::string service;
    std::function<void(std::size_t thread)> step;
    std::vector<const Total*> totals;
    /// Waits for what is still under way when all threads have ended, and completes the totals.
    std::function<void()> finish = [] {};
};

/// Creates one load of each kind. That of the reports needs the directory of the report file.
std::vector<Load> AllLoads();

/// Runs the loads with so many threads each, which start together. After each burst a thread calls
/// `pause` with the number of its bursts, and ends when that returns false; without a pause, some
/// services would keep the others from running. Meanwhile the calling thread drains the queue of
/// commands, and calls `meanwhile` again and again. Throws std::system_error, and has run nothing,
/// when a thread cannot be created.
void Run(const std::vector<Load>& loads, std::size_t threads,
         const std::function<bool(std::size_t bursts)>& pause,
         const std::function<void()>& meanwhile);

/// Counts a debug line that a load makes the library write, or returns false for one that no load
/// expects. The program must pass it each line of its debug interface.
bool CountDebugLine(const std::string& line);

} // namespace soak

#endif
