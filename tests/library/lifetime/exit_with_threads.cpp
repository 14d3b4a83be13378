// A process exits while its threads use the services that threads may use until the end, which are
// all except transaction logs. It must not crash, and no text may be wrong.

#include <cstdlib>
#include <latch>
#include <string>
#include <string_view>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "tests/library/lifetime/every_service.h"
#include "tests/library/lifetime/require.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int EXITS = 200;

void Format()
{
    for (int i = 0; i < 100; ++i) {
        REQUIRE(string_format("%d %s", 7, "text") == "7 text");
    }
    EmsUtilTraced("[%s]", "entry");
}

void Enter()
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "number", 7);
    const RegEmsThreadInfo inside(&values);
    StatEmsThreadInfo();
}

void AddAndRun()
{
    EmsGeneralCmd cmd;
    cmd.name = "name";
    RegEmsUtilCmd(cmd.name, [](EmsGeneralCmd* queued, EmsGeneralCmd*) {
        REQUIRE(queued->ToString() == ":name={objs={},nvtps={}};");
        return 0;
    });
    addGeneralCmd(cmd);
    runGeneralCmd();
}

void ScheduleTimer()
{
    EmsUtilTimerInterface timer = {
        [](void* text) { REQUIRE(*static_cast<std::string*>(text) == "text"); },
        [](void* text) {
            return static_cast<void*>(new std::string(*static_cast<std::string*>(text)));
        },
        [](void* text) { delete static_cast<std::string*>(text); }};
    std::string text = "text";
    ScheduleEmsUtilTimer(7, timer, &text);
}

/// Exits while two threads format and one calls `use`, after each has done so once.
[[noreturn]] void ExitWithThreads(void (*use)())
{
    static std::latch used(3);
    for (void (*const body)() : {Format, Format, use}) {
        std::thread([body] {
            body();
            used.count_down();
            while (true) {
                body();
            }
        }).detach();
    }
    used.wait();
    std::exit(0); // NOLINT(concurrency-mt-unsafe): that is the case
}

bool HasOnlyWholeEntries(std::string report)
{
    const std::string_view entry = "[entry]";
    while (report.ends_with(entry)) {
        report.resize(report.size() - entry.size());
    }
    return report.empty();
}

} // namespace

int main()
{
    for (int i = 0; i < EXITS; ++i) {
        const Installation installation;
        const pid_t child = fork();
        if (child == 0) {
            emsstandin::SetDebugStream(nullptr);
            emsstandin::AddTaskManager(7, {std::chrono::microseconds(50), nullptr})->Start();
            ExitWithThreads(i % 3 == 0 ? Enter : i % 3 == 1 ? AddAndRun : ScheduleTimer);
        }
        int status = -1;
        waitpid(child, &status, 0);
        REQUIRE(status == 0);
        REQUIRE(HasOnlyWholeEntries(installation.Report()));
    }
}
