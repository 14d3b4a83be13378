#include <thread>

#include <emsstandin/setup.h>

#include "bench/measure.h"

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    // Until a process has had a second thread the C library leaves atomic operations out.
    std::thread([] {}).join();
    emsstandin::SetDebugStream(nullptr); // lines are formatted, and dropped
    AddDiagnostics();
    AddGeneralCommands();
    AddThreadMonitor();
    AddTransactionLogs();
    AddTimers();
    AddLockErrorManager();
    benchmark::RunSpecifiedBenchmarks();
}
