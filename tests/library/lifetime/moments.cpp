// Uses the services at one moment of the process's life, which the environment names.

#include <functional>
#include <latch>
#include <string>
#include <string_view>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/transaction_log.h"
#include "soak/load.h"
#include "tests/library/lifetime/support.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

constexpr int EXITS = 200;

/// Does one burst of the load's work on the calling thread.
void WorkOnce(const soak::Load& load)
{
    for (std::size_t step = 0; step < soak::BURST; ++step) {
        load.step(0);
    }
    runGeneralCmd();
}

/// Uses every service on the calling thread and checks the results.
void UseEveryService()
{
    const Installation installation;
    emsstandin::SetDebugCallback(
        [](auto, auto, const std::string& line) { REQUIRE(soak::CountDebugLine(line)); });
    for (const soak::Load& load : soak::AllLoads()) {
        WorkOnce(load);
        load.finish();
        for (const soak::Total* total : load.totals) {
            REQUIRE(total->IsExact());
        }
    }
    emsstandin::SetDebugStream(stderr);
    REQUIRE(string_format("%d", 7) == "7");
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    const unsigned long handle = LeaveLog();
    QNTransactionLog::ClearAllLog();
    REQUIRE(!QNTransactionLog(handle).IsValid());
    QNMitLockErrMgr::Destroy();
    REQUIRE(QNMitLockErrMgr::m_pInstance == nullptr);
}

bool Is(std::string_view moment)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    const char* const name = std::getenv("MOMENT");
    return name != nullptr && name == moment;
}

const struct Module
{
    Module() : m_ulLog(Is("static_log") ? LeaveLog() : 0)
    {
        if (Is("static_constructor")) {
            UseEveryService();
        }
    }
    ~Module()
    {
        if (Is("static_destructor")) {
            UseEveryService();
        }
        if (Is("static_log")) {
            FinishLog(m_ulLog);
        }
    }

    const unsigned long m_ulLog;
} g_Module;

struct ThreadObject
{
    ~ThreadObject() { UseEveryService(); }
};

void Format()
{
    for (int i = 0; i < 100; ++i) {
        REQUIRE(string_format("%d %s", 7, "text") == "7 text");
    }
    EmsUtilTraced("x");
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

/// With the services that threads may use until the process has ended: all except transaction logs.
void ExitOftenWithThreads()
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
        REQUIRE(!report.empty() && report.find_first_not_of('x') == std::string::npos);
    }
}

} // namespace

int main()
{
    if (Is("thread_destructor")) {
        std::thread([] { thread_local const ThreadObject object; }).join();
    }
    if (Is("exit_with_threads")) {
        ExitOftenWithThreads();
    }
}
