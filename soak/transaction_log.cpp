#include "emsutil/transaction_log.h"

#include <memory>

#include "soak/load.h"

namespace soak {

using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

namespace {

constexpr unsigned long BUFFERS = 3;

struct State
{
    QNTransactionLog shared;
    const unsigned long sharedValue = shared.GetHandle();
    std::atomic<unsigned long> latest = 0;
    std::atomic<unsigned long> number = 0;
    Count logs = 0;
    Count attached = 0;
    Count buffers = 0;
    Count found = 0;
    Count deleted = 0;
};

class Buffer final : public QNTransactionBuffer
{
public:
    explicit Buffer(State& state) : m_State(state) { ++m_State.buffers; }
    ~Buffer() override { ++m_State.deleted; }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

private:
    State& m_State;
};

void AddBuffer(State& state, QNTransactionLog& log, unsigned long number)
{
    log.AddBuffer("soak", number, std::make_unique<Buffer>(state).release());
    state.found += log.GetBuffer("soak", number) != nullptr ? 1 : 0;
}

unsigned long CreateLog(State& state)
{
    QNTransactionLog log;
    for (unsigned long number = 0; number < BUFFERS; ++number) {
        AddBuffer(state, log, number);
    }
    log.AddRef(1);
    ++state.logs;
    return log.GetHandle();
}

/// Takes one buffer out; the others are deleted with the log.
void TakeOver(State& state, unsigned long value)
{
    if (value == 0) { // there is no earlier log
        return;
    }
    QNTransactionLog log(value);
    const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", value % BUFFERS));
    state.attached += log.IsValid() && taken != nullptr ? 1 : 0;
    log.Release();
}

void UseSharedLog(State& state)
{
    QNTransactionLog log(state.sharedValue);
    const unsigned long number = state.number++;
    log.AddRef(2);
    AddBuffer(state, log, number);
    const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", number));
    log.Release();
    log.Release();
}

std::vector<Total> Finish(State& state)
{
    TakeOver(state, state.latest.exchange(0));
    const auto references = static_cast<std::uint64_t>(state.shared.AddRef(1)); // the only one
    state.shared.Release();
    return {{"logs attached", state.logs, state.attached},
            {"buffers found", state.buffers, state.found},
            {"buffers deleted", state.buffers, state.deleted},
            {"references of a shared log", 1, references}};
}

} // namespace

/// Each thread creates logs with buffers, and passes the handle value of each on to the thread that
/// creates the next one. All work on one shared log besides.
Load TransactionLogLoad()
{
    const auto state = std::make_shared<State>();
    const auto step = [state](int) {
        TakeOver(*state, state->latest.exchange(CreateLog(*state)));
        UseSharedLog(*state);
    };
    return {step, [state] { return Finish(*state); }};
}

} // namespace soak
