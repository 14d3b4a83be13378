#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

/// The rows of an operation, plain Google Benchmarks: `operation/ours` through the shared library
/// as a host calls it, `operation/floor` for the bare primitives that it cannot do without, and
/// `operation/peer` for the best of what could be used instead. A queue that producers fill has a
/// bounded peer besides.
///
/// A name has no character that a regular expression reads as anything but itself.

#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <emsstandin/setup.h>

using Body = std::function<void(benchmark::State&)>;
using Row = benchmark::internal::Benchmark;

constexpr int COUNTED_RUNS = 1000; // of each row, under callgrind

/// The goal: ours takes at most this many times as long as the row. 0 is no goal.
inline Row* Add(const std::string& name, const std::string& label, double goal, Body body)
{
    Row* const row = benchmark::RegisterBenchmark(
        name.c_str(), [name, label, goal, body = std::move(body)](benchmark::State& state) {
            body(state);
            const std::string counted = name + "/" + std::to_string(state.iterations());
            CALLGRIND_DUMP_STATS_AT(counted.c_str());
            state.SetLabel(label);
            state.counters["goal"] = benchmark::Counter(goal, benchmark::Counter::kAvgThreads);
        });
    return RUNNING_ON_VALGRIND ? row->Iterations(COUNTED_RUNS) : row;
}

inline Row* Ours(const std::string& operation, Body body)
{
    return Add(operation + "/ours", "emsutil", 0, std::move(body));
}

inline Row* Floor(const std::string& operation, double goal, Body body)
{
    return Add(operation + "/floor", "bare primitives", goal, std::move(body));
}

inline Row* Peer(const std::string& operation, const std::string& who, double goal, Body body)
{
    return Add(operation + "/peer", who, goal, std::move(body));
}

/// Measures `run`, which works on `items` objects. What is created on first use does not count.
/// bench/count counts the loop only.
template <class Run>
void Measure(benchmark::State& state, Run run, int items = 1)
{
    run();
    CALLGRIND_TOGGLE_COLLECT;
    while (state.KeepRunningBatch(items)) {
        run();
    }
    CALLGRIND_TOGGLE_COLLECT;
}

/// Each row checks once, after its runs, that they have done their work.
inline void Check(benchmark::State& state, bool hasWorked)
{
    if (!hasWorked) {
        state.SkipWithError("it has not done its work");
    }
}

/// What `run` writes to the debug interface, which otherwise drops it.
inline std::string DebugText(const std::function<void()>& run)
{
    std::string text;
    emsstandin::SetDebugCallback([&text](auto, int, const std::string& line) { text += line; });
    run();
    emsstandin::SetDebugStream(nullptr);
    return text;
}

// These register the rows of a service.
void AddDiagnostics();
void AddGeneralCommands();
void AddLockErrorManager();
void AddThreadMonitor();
void AddTimers();
void AddTransactionLogs();

#endif
