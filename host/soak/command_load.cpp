#include "host/soak/load.h"

#include <array>
#include <cstddef>
#include <string>

#include "emsutil/general_command.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Several producers queue commands of ascending numbers; one thread drains.
class CommandLoad final : public SoakLoad
{
public:
    CommandLoad()
    {
        g_pLoad = this;
        std::string name = "soak-queued";
        const RegEmsUtilCmd queued(name, [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            g_pLoad->CountQueued(*cmd);
            return 0;
        });
        name = "soak-at-once";
        const RegEmsUtilCmd atOnce(name, [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            cmd->name = "done";
            return 0;
        });
    }

    std::vector<Work> Works() override
    {
        std::vector<Work> works(m_Producers.size());
        for (std::size_t i = 0; i < works.size(); ++i) {
            works[i] = [this, i](const Stop& stop) { Produce(i, stop); };
        }
        works.emplace_back([this](const Stop&) { Drain(); });
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"commands run", m_nAdded, m_nRun},
                {"commands in order", m_nAdded, m_nInOrder},
                {"commands run at once", m_nAtOnce, m_nSeenAtOnce}};
    }

private:
    struct Producer
    {
        std::uint64_t m_nNumber = 0; // of the producer
        std::uint64_t m_nNext = 0;   // of the thread that drains
    };

    void Produce(std::size_t index, const Stop& stop)
    {
        EmsGeneralCmd cmd;
        EmsNameAndValueStringTypePair& pair = cmd.nvtps.nvtps.emplace_back();
        EmsNameAndValueStringTypePair& repeated =
            cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
        pair.name = std::to_string(index);
        RepeatUntil(stop, [&] {
            cmd.name = "soak-queued";
            pair.value = std::to_string(m_Producers[index].m_nNumber++);
            repeated.value = pair.value;
            addGeneralCmd(cmd);
            ++m_nAdded;

            cmd.name = "soak-at-once";
            runGeneralCmd(cmd);
            ++m_nAtOnce;
            m_nSeenAtOnce += cmd.name == "done" ? 1 : 0;
        });
        --m_nProducing;
    }

    /// A producer may be waiting for room when it is to stop.
    void Drain()
    {
        while (m_nProducing > 0) {
            runGeneralCmd();
            Pause();
        }
        runGeneralCmd();
    }

    void CountQueued(const EmsGeneralCmd& cmd)
    {
        const EmsNameAndValueStringTypePair& pair = cmd.nvtps.nvtps.front();
        Producer& producer = m_Producers[std::stoul(pair.name)];
        const std::uint64_t number = std::stoull(pair.value);
        const bool whole = cmd.objs.objs.front().nvtps.nvtps.front().value == pair.value;
        ++m_nRun;
        m_nInOrder += whole && number == producer.m_nNext ? 1 : 0;
        producer.m_nNext = number + 1;
    }

    static constinit inline CommandLoad* g_pLoad = nullptr; // handlers get no context

    std::array<Producer, 3> m_Producers;
    std::atomic<std::size_t> m_nProducing = m_Producers.size();
    Count m_nAdded = 0;
    Count m_nRun = 0;
    Count m_nInOrder = 0;
    Count m_nAtOnce = 0;
    Count m_nSeenAtOnce = 0;
};

} // namespace

std::unique_ptr<SoakLoad> MakeCommandLoad()
{
    return std::make_unique<CommandLoad>();
}

} // namespace emshost
