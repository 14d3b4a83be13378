#include <memory>
#include <string>

#include "emsutil/general_command.h"
#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// Threads queue commands with ascending numbers, and run others at once; one more thread drains.
class Commands
{
public:
    explicit Commands(int threads)
        : m_nProducing(threads), m_Producers(static_cast<std::size_t>(threads))
    {
        g_pLoad = this;
        Register("soak-queued", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            g_pLoad->CountQueued(*cmd);
            return 0;
        });
        Register("soak-at-once", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            cmd->name = "done";
            return 0;
        });
    }

    void Work(int thread, const Pace& pace)
    {
        if (static_cast<std::size_t>(thread) < m_Producers.size()) {
            Produce(static_cast<std::size_t>(thread), pace);
            return;
        }
        while (m_nProducing > 0) { // one of them may be waiting for room in the queue
            runGeneralCmd();
            pace.Pause();
        }
        runGeneralCmd();
    }

    std::vector<Total> Finish() const
    {
        return {{"commands run", m_nAdded, m_nRun},
                {"commands in order", m_nAdded, m_nInOrder},
                {"commands run at once", m_nAtOnce, m_nSeenAtOnce}};
    }

private:
    struct Producer
    {
        std::uint64_t number = 0; // of the producer
        std::uint64_t next = 0;   // of the draining thread
    };

    static void Register(std::string name, EmsGeneralCmdHandler handler)
    {
        const RegEmsUtilCmd registration(name, handler);
    }

    void Produce(std::size_t index, const Pace& pace)
    {
        EmsGeneralCmd cmd;
        auto& pair = cmd.nvtps.nvtps.emplace_back();
        auto& repeated = cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
        pair.name = std::to_string(index);
        int burst = 0;
        pace.Repeat(
            [&] {
                cmd.name = "soak-queued";
                pair.value = std::to_string(m_Producers[index].number++);
                repeated.value = pair.value;
                addGeneralCmd(cmd);
                ++m_nAdded;

                cmd.name = "soak-at-once";
                runGeneralCmd(cmd);
                ++m_nAtOnce;
                m_nSeenAtOnce += cmd.name == "done" ? 1 : 0;
            },
            [&] { // registers names while others are looked up, and not too many
                burst = (burst + 1) % 100;
                Register("soak-other " + pair.name + ' ' + std::to_string(burst),
                         [](EmsGeneralCmd*, EmsGeneralCmd*) { return 0; });
                pace.Pause();
            });
        --m_nProducing;
    }

    void CountQueued(const EmsGeneralCmd& cmd)
    {
        const auto& pair = cmd.nvtps.nvtps.front();
        Producer& producer = m_Producers[std::stoul(pair.name)];
        const std::uint64_t number = std::stoull(pair.value);
        const bool whole = cmd.objs.objs.front().nvtps.nvtps.front().value == pair.value;
        ++m_nRun;
        m_nInOrder += whole && number == producer.next ? 1 : 0;
        producer.next = number + 1;
    }

    static constinit inline Commands* g_pLoad = nullptr; // handlers receive no context

    std::atomic<int> m_nProducing;
    std::vector<Producer> m_Producers;
    Count m_nAdded = 0;
    Count m_nRun = 0;
    Count m_nInOrder = 0;
    Count m_nAtOnce = 0;
    Count m_nSeenAtOnce = 0;
};

} // namespace

Load GeneralCommandLoad(int threads)
{
    const auto commands = std::make_shared<Commands>(threads);
    return {threads + 1, [commands](int thread, const Pace& pace) { commands->Work(thread, pace); },
            [commands] { return commands->Finish(); }};
}

} // namespace soak
