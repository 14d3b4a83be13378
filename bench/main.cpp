/// emsutil_bench [--count] [--benchmark_...]: the benchmarks, and with --count what bench/count
/// counts.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>

#include <emsstandin/setup.h>

#include "bench/measure.h"

namespace bench {

bool g_bCounting = false;
std::string g_CountedRow;

namespace {

constexpr int COUNTED_RUNS = 1000;

#if defined(NDEBUG) && defined(__OPTIMIZE__)
constexpr bool IS_OPTIMISED = true;
#else
constexpr bool IS_OPTIMISED = false;
#endif

Row* Add(const std::string& name, const std::string& label, double goal, Body body)
{
    Row* const row = benchmark::RegisterBenchmark(
        name.c_str(), [name, label, goal, body = std::move(body)](benchmark::State& state) {
            if (g_bCounting) {
                g_CountedRow = name;
            }
            body(state);
            state.SetLabel(label);
            state.counters["goal"] = benchmark::Counter(goal, benchmark::Counter::kAvgThreads);
        });
    return g_bCounting ? row->Iterations(COUNTED_RUNS) : row;
}

} // namespace

Row* Ours(const std::string& operation, Body body)
{
    return Add(operation + "/ours", "emsutil", 0, std::move(body));
}

Row* Floor(const std::string& operation, double goal, Body body)
{
    return Add(operation + "/floor", "bare primitives", goal, std::move(body));
}

Row* Peer(const std::string& operation, const std::string& who, double goal, Body body)
{
    return Add(operation + "/peer", who, goal, std::move(body));
}

std::string DebugText(const std::function<void()>& run)
{
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* const stream = open_memstream(&text, &length);
    emsstandin::SetDebugStream(stream);
    run();
    emsstandin::SetDebugStream(nullptr);
    std::fclose(stream);
    std::string copy(text, length);
    std::free(text);
    return copy;
}

} // namespace bench

int main(int argc, char** argv)
{
    if (!bench::IS_OPTIMISED) {
        std::fprintf(stderr, "emsutil_bench: not measured: this is a debug build: set "
                             "CMAKE_BUILD_TYPE to Release\n");
        return 2;
    }
    if (argc > 1 && std::strcmp(argv[1], "--count") == 0) {
        bench::g_bCounting = true;
        argv[1] = argv[0];
        --argc;
        ++argv;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    // Until a process has had a second thread the C library leaves atomic operations out.
    std::thread([] {}).join();
    emsstandin::SetDebugStream(nullptr); // lines are formatted, and dropped

    bench::AddDiagnostics();
    bench::AddGeneralCommands();
    bench::AddThreadMonitor();
    bench::AddTransactionLogs();
    bench::AddTimers();
    bench::AddLockErrorManager();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
