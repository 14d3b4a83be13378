#ifndef SOAK_LOAD_H
#define SOAK_LOAD_H

/// Loads on the services of the library. Each counts what it does and what it sees of it.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace soak {

using Count = std::atomic<std::uint64_t>;

/// How often something was done, and how often its effect was seen.
struct Total
{
    std::string what;
    std::uint64_t done;
    std::uint64_t seen;

    bool IsExact() const { return done == seen && done > 0; }
};

/// How a thread repeats its steps: in bursts with pauses, so that no service keeps the others from
/// running, until Stop(); or a number of bursts without pauses.
class Pace
{
public:
    static constexpr int BURST = 100; // steps

    Pace() = default;
    explicit Pace(int bursts) : m_nBursts(bursts) {}

    void Stop() { m_bStopped = true; }

    /// To be called between bursts and while a thread waits for another.
    void Pause() const;

    /// Calls `step` again and again, and `afterBurst` after each burst.
    template <class Step, class AfterBurst>
    void Repeat(Step step, AfterBurst afterBurst) const
    {
        for (int burst = 0; m_nBursts == 0 ? !m_bStopped : burst < m_nBursts; ++burst) {
            for (int i = 0; i < BURST; ++i) {
                step();
            }
            afterBurst();
        }
    }

    template <class Step>
    void Repeat(Step step) const
    {
        Repeat(step, [this] { Pause(); });
    }

private:
    const int m_nBursts = 0;
    std::atomic<bool> m_bStopped = false;
};

/// The load that threads put on one service.
struct Load
{
    int threads;
    /// What each thread does, numbered from 0.
    std::function<void(int thread, const Pace& pace)> work;
    /// Waits for what is still under way when all threads have ended, and returns the totals.
    std::function<std::vector<Total>()> finish;
};

Load GeneralCommandLoad(int threads); // with one more, which drains
/// Needs the directory of the report file. Calls `atRest` again and again, on one thread at a time,
/// while the report file is closed.
Load ReportLoad(int threads, std::function<void()> atRest);
Load TimeGuardLoad(int threads);
Load ThreadMonitorLoad(int threads);
Load TimerLoad(int threads);
Load TransactionLogLoad(int threads);
Load LockErrorLoad(int threads);
/// One of each.
std::vector<Load> AllLoads(int threads, const std::function<void()>& atRest);

/// Runs all threads of the loads. They start together, when there is a thread for each; then
/// `meanwhile` is called, the pace is stopped, and the threads are joined. Throws
/// std::system_error, and has run nothing, when a thread cannot be created.
void Run(const std::vector<Load>& loads, Pace& pace, const std::function<void()>& meanwhile);

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
