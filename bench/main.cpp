/// emsutil_bench [TEXT] [--benchmark_...]: measures all operations, or those with the text in their
/// name. The results go to standard output, what is going on to standard error.

#include <cstdio>
#include <exception>
#include <thread>
#include <vector>

#include <emsstandin/setup.h>

#include "bench/compare.h"

namespace {

#if defined(NDEBUG) && defined(__OPTIMIZE__)
constexpr bool IS_OPTIMISED = true;
#else
constexpr bool IS_OPTIMISED = false;
#endif

void MeasureAll()
{
    bench::MeasureStringFormat();
    bench::MeasureTextForms();
    bench::MeasureCommandQueue();
    bench::MeasureCommandHandlers();
    bench::MeasureThreadMonitor();
    bench::MeasureStatistics();
    bench::MeasureTransactionLogs();
    bench::MeasureDiagnostics();
    bench::MeasureTimers();
    bench::MeasureTimerLateness();
    bench::MeasureLockErrors();
}

} // namespace

int main(int argc, char** argv)
{
    if (!IS_OPTIMISED) {
        std::fprintf(
            stderr,
            "bench: a debug build is nothing to measure: set CMAKE_BUILD_TYPE to Release\n");
        return 2;
    }
    // Until a process has had a second thread the C library leaves atomic operations out.
    std::thread([] {}).join();

    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, interleaving);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (count > 1) {
        bench::MeasureOnly(arguments[1]);
    }

    emsstandin::SetDebugStream(nullptr); // lines are made, and dropped

    try {
        MeasureAll();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench: %s\n", failure.what());
        return 1;
    }
    return 0;
}
