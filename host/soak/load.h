#ifndef HOST_SOAK_LOAD_H
#define HOST_SOAK_LOAD_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace emshost {

using Count = std::atomic<std::uint64_t>;

/// How often something was done, and how often that was seen to have its effect. All is well when
/// the two are equal and not 0.
struct SoakTotal
{
    std::string m_strWhat;
    std::uint64_t m_nDone;
    std::uint64_t m_nSeen;
};

/// The load on one service.
class SoakLoad
{
public:
    using Stop = std::atomic<bool>;
    using Work = std::function<void(const Stop&)>;

    SoakLoad() = default;
    virtual ~SoakLoad() = default;
    SoakLoad(const SoakLoad&) = delete;
    SoakLoad& operator=(const SoakLoad&) = delete;

    /// What the load's threads do, each until it is to stop.
    virtual std::vector<Work> Works() = 0;
    /// Awaits what is still under way, once the threads of all loads have ended, and tells all.
    virtual std::vector<SoakTotal> Finish() = 0;
};

std::unique_ptr<SoakLoad> MakeCommandLoad();
std::unique_ptr<SoakLoad> MakeMonitorLoad();
std::unique_ptr<SoakLoad> MakeTimerLoad();
std::unique_ptr<SoakLoad> MakeLogLoad();
/// `atRest` is called again and again, on one thread at a time, while no load has a file open.
std::unique_ptr<SoakLoad> MakeReportLoad(std::function<void()> atRest);
std::unique_ptr<SoakLoad> MakeGuardLoad();
std::unique_ptr<SoakLoad> MakeLockErrorLoad();

constexpr int SOAK_BURST = 100;

inline void Pause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// Steps in bursts with pauses between, so that no service keeps the others from their turn.
template <class Step>
void RepeatUntil(const SoakLoad::Stop& stop, Step step)
{
    while (!stop) {
        for (int i = 0; i < SOAK_BURST; ++i) {
            step();
        }
        Pause();
    }
}

} // namespace emshost

#endif
