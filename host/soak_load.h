#ifndef HOST_SOAK_LOAD_H
#define HOST_SOAK_LOAD_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace emshost {

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

/// A load for each service. From here on the debug interface counts lines; one that no load expects
/// is a message too. `atRest` is called again and again, on one thread at a time, while no load has
/// a file open.
std::vector<std::unique_ptr<SoakLoad>> MakeSoakLoads(std::function<void()> atRest);

} // namespace emshost

#endif
