// A process exits while its threads use the services that threads may use until the end, which are
// all except transaction logs. It must not crash, and no text may be wrong.

#include <functional>
#include <latch>
#include <string>
#include <string_view>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "tests/library/lifetime/support.h"

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

/// Exits while two threads format and one does the work of `load`, after each has done so once.
[[noreturn]] void ExitWithThreads(const soak::Load& load)
{
    static std::latch used(3);
    const std::function<void()> work = [load] { WorkOnce(load); };
    for (const auto& body : {std::function(Format), std::function(Format), work}) {
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

} // namespace

int main()
{
    for (std::size_t i = 0; i < EXITS; ++i) {
        const Installation installation;
        const pid_t child = fork();
        if (child == 0) {
            emsstandin::SetDebugStream(nullptr);
            auto loads = soak::AllLoads();
            std::erase_if(loads, [](const soak::Load& load) {
                return load.service == "reports" || load.service == "transaction logs";
            });
            ExitWithThreads(loads[i % loads.size()]);
        }
        int status = -1;
        waitpid(child, &status, 0);
        REQUIRE(status == 0);
        const std::string report = installation.Report();
        constexpr std::string_view entry = "[entry]";
        std::string_view rest = report;
        while (rest.starts_with(entry)) {
            rest.remove_prefix(entry.size());
        }
        REQUIRE(entry.starts_with(rest)); // the system may cut the write in which the process ends
    }
}
