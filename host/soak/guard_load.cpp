#include "host/soak/load.h"

#include "emsutil/diagnostics.h"
#include "host/soak/debug_lines.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Threads guard their time.
class GuardLoad final : public SoakLoad
{
public:
    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) {
                    RepeatUntil(stop, [this] {
                        const AgentTimeGuard guard("soak guard %d", SOAK_BURST);
                        ++m_nGuards;
                    });
                }};
    }

    std::vector<SoakTotal> Finish() override
    {
        const DebugLines& lines = DebugLines::Instance();
        return {{"time guards, their lines", 2 * m_nGuards, lines.m_nGuard},
                {"debug lines expected", lines.m_nGuard + lines.m_nStatistics + lines.m_nOther,
                 lines.m_nGuard + lines.m_nStatistics}};
    }

private:
    Count m_nGuards = 0;
};

} // namespace

std::unique_ptr<SoakLoad> MakeGuardLoad()
{
    return std::make_unique<GuardLoad>();
}

} // namespace emshost
