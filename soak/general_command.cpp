#include "emsutil/general_command.h"

#include <memory>

#include "soak/load.h"

namespace soak {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

struct Producer
{
    EmsGeneralCmd cmd;          // with the number of the producer, and twice that of the command
    std::uint64_t number = 0;   // of the next command, for the producer
    std::uint64_t expected = 0; // the same, for the draining thread
    int registered = 0;
};

struct State
{
    std::vector<Producer> producers;
    Count added = 0;
    Count run = 0;
    Count inOrder = 0;
    Count atOnce = 0;
    Count seenAtOnce = 0;
};

constinit State* g_pState = nullptr; // handlers receive no context

void Register(std::string name, EmsGeneralCmdHandler handler)
{
    const RegEmsUtilCmd registration(name, handler);
}

int CountQueued(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    const auto& pair = cmd->nvtps.nvtps.front();
    std::uint64_t& expected = g_pState->producers[std::stoul(pair.name)].expected;
    const std::uint64_t number = std::stoull(pair.value);
    const bool isWhole = cmd->objs.objs.front().nvtps.nvtps.front().value == pair.value;
    ++g_pState->run;
    g_pState->inOrder += isWhole && number == expected ? 1 : 0;
    expected = number + 1;
    return 0;
}

void AddAndRun(State& state, Producer& producer)
{
    EmsGeneralCmd& cmd = producer.cmd;
    auto& value = cmd.nvtps.nvtps.front().value;
    cmd.name = "soak-queued";
    value = std::to_string(producer.number++);
    cmd.objs.objs.front().nvtps.nvtps.front().value = value;
    addGeneralCmd(cmd);
    ++state.added;

    cmd.name = "soak-at-once";
    runGeneralCmd(cmd);
    ++state.atOnce;
    state.seenAtOnce += cmd.name == "done" ? 1 : 0;
}

} // namespace

/// Threads queue commands with ascending numbers, and run others at once. Meanwhile they register
/// further names, 100 each.
Load GeneralCommandLoad(int threads)
{
    const auto state = std::make_shared<State>();
    g_pState = state.get();
    state->producers.resize(static_cast<std::size_t>(threads));
    for (int thread = 0; thread < threads; ++thread) {
        EmsGeneralCmd& cmd = state->producers[static_cast<std::size_t>(thread)].cmd;
        cmd.nvtps.nvtps.emplace_back().name = std::to_string(thread);
        cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
    }
    Register("soak-queued", CountQueued);
    Register("soak-at-once", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        cmd->name = "done";
        return 0;
    });
    return {[state](int thread) {
                AddAndRun(*state, state->producers[static_cast<std::size_t>(thread)]);
            },
            [state]() -> std::vector<Total> {
                return {{"commands run", state->added, state->run},
                        {"commands in order", state->added, state->inOrder},
                        {"commands run at once", state->atOnce, state->seenAtOnce}};
            },
            [state](int thread) {
                int& registered = state->producers[static_cast<std::size_t>(thread)].registered;
                registered = (registered + 1) % 100;
                Register("soak-other " + std::to_string(thread) + ' ' + std::to_string(registered),
                         [](EmsGeneralCmd*, EmsGeneralCmd*) { return 0; });
            }};
}

} // namespace soak
