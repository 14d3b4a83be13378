#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

/// The rows of an operation, plain Google Benchmarks: `operation/ours` through the shared library
/// as a host calls it, `operation/floor` for the bare primitives that it cannot do without, and
/// `operation/peer` for what could be used instead.
///
/// A name has no character that a regular expression reads as anything but itself.

#include <functional>
#include <string>

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

namespace bench {

using Body = std::function<void(benchmark::State&)>;
using Row = benchmark::internal::Benchmark;

Row* Ours(const std::string& operation, Body body);

/// The goal: ours takes at most this many times as long as the row. 0 is no goal.
Row* Floor(const std::string& operation, double goal, Body body);
Row* Peer(const std::string& operation, const std::string& who, double goal, Body body);

/// Set by `--count`: rows run a fixed number of times, for callgrind.
extern bool g_bCounting;
/// While counting, the row that runs.
extern std::string g_CountedRow;

/// Measures `run`, which works on `items` objects, unless `hasWorked` denies that a first run did
/// its work. What is created on first use does not count.
template <class Run, class HasWorked>
void Measure(benchmark::State& state, Run run, HasWorked hasWorked, int items = 1)
{
    run();
    if (!hasWorked()) {
        state.SkipWithError("it has not done its work");
        return;
    }
    CALLGRIND_ZERO_STATS;
    while (state.KeepRunningBatch(items)) {
        run();
    }
    if (g_bCounting) {
        const std::string name = g_CountedRow + "/" + std::to_string(state.iterations());
        CALLGRIND_DUMP_STATS_AT(name.c_str());
    }
}

/// What `run` writes to the debug interface, which otherwise drops it.
std::string DebugText(const std::function<void()>& run);

// These register the rows of a service.
void AddDiagnostics();
void AddGeneralCommands();
void AddLockErrorManager();
void AddThreadMonitor();
void AddTimers();
void AddTransactionLogs();

} // namespace bench

#endif
