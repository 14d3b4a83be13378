#include <vector>

#include "bench/measure.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_util;

namespace {

const std::string NAME = "request";

/// Attaches to each log in turn, in an order that jumps.
void AttachAndDetach(benchmark::State& state, std::size_t count)
{
    std::vector<QNTransactionLog> logs(count);
    std::vector<unsigned long> handles;
    for (QNTransactionLog& log : logs) {
        handles.push_back(log.GetHandle());
    }
    std::size_t index = 0;
    unsigned long attached = 0;
    Measure(state, [&] {
        attached = QNTransactionLog(handles[index]).GetHandle();
        index = (index + 7919) % count;
    });
    Check(state, attached > 0);
}

} // namespace

void AddTransactionLogs()
{
    Ours("create and destroy a log", [](benchmark::State& state) {
        unsigned long handle = 0;
        Measure(state, [&] { handle = QNTransactionLog().GetHandle(); });
        Check(state, handle > 0);
    });
    Ours("look up one of 10 buffers", [](benchmark::State& state) {
        QNTransactionLog log; // it deletes its buffers
        for (unsigned long number = 0; number < 10; ++number) {
            log.AddBuffer(NAME, number, new QNTransactionBuffer);
        }
        unsigned long number = 0;
        QNTransactionBuffer* got = nullptr;
        Measure(state, [&] { benchmark::DoNotOptimize(got = log.GetBuffer(NAME, number++ % 10)); });
        Check(state, got != nullptr);
    });
    Ours("add and remove a buffer", [](benchmark::State& state) {
        QNTransactionLog log;
        QNTransactionBuffer buffer;
        QNTransactionBuffer* removed = nullptr;
        Measure(state, [&] {
            log.AddBuffer(NAME, 1, &buffer);
            removed = log.RemoveBuffer(NAME, 1);
        });
        Check(state, removed == &buffer);
    });
    Ours("attach to a log and detach, 1,000 logs",
         [](benchmark::State& state) { AttachAndDetach(state, 1000); });
    Ours("attach to a log and detach, 100,000 logs",
         [](benchmark::State& state) { AttachAndDetach(state, 100000); });
}
