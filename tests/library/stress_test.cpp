// The loads on all services with 2, 8 and 32 threads each, with exact totals, and the first use of
// every service by many threads.

#include <barrier>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "agent/emsutil_thread.h"
#include "agent/emsutil_util_report.h"
#include "emsutil/diagnostics.h"
#include "emsutil/lock_error_manager.h"
#include "soak/load.h"
#include "tests/support/expose.h"
#include "tests/support/test_platform.h"
#include "tests/support/threads.h"
#include "util/translog.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

EXPOSE(LockErrorsOf, QNMitLockErrMgr, m_ThrIDInfoMap, std::map<int, std::string>)

namespace {

constexpr std::size_t STEPS = 96000; // of all threads of a load together

struct Stress : testing::TestWithParam<std::size_t>
{};

INSTANTIATE_TEST_SUITE_P(Threads, Stress, testing::Values(2, 8, 32));

} // namespace

TEST_P(Stress, EveryTotalIsExact)
{
    const ReportDirectory directory;
    soak::Count unexpected = 0;
    ThePlatform().onLine = [&unexpected](const std::string& line) {
        unexpected += soak::CountDebugLine(line.substr(2)) ? 0 : 1; // without its level
    };
    const auto loads = soak::AllLoads();
    const auto pause = [](std::size_t bursts) {
        std::this_thread::yield();
        return bursts < STEPS / soak::BURST / GetParam();
    };
    soak::Run(loads, GetParam(), pause, std::this_thread::yield);
    for (const soak::Load& load : loads) {
        load.finish();
        for (const soak::Total* total : load.totals) {
            EXPECT_TRUE(total->IsExact())
                << total->what << ": " << total->done << ", " << total->seen;
        }
    }
    EXPECT_EQ(unexpected, 0u);
    EXPECT_TRUE(g_TransLogMap.empty());
    EXPECT_EQ(LockErrorsOf(*QNMitLockErrMgr::Instance()).size(), 1u); // the shared one
}

namespace {

constexpr int FIRST_USERS = 16;

void UseAllFirst()
{
    const std::function<const void*()> services[] = {
        EmsGeneralCmdMgr::Instance, EmsThreadInfoMgr::Instance, QNMitLockErrMgr::Instance,
        EmsUtilReportFile::Instance, GetEmsUtilAgentDebugInterface};
    std::barrier<> all(FIRST_USERS);
    ThePlatform().onFetch = [&] { all.arrive_and_wait(); }; // the callers fetch side by side
    std::mutex lock;
    std::set<const void*> objects;
    RunOnThreads(FIRST_USERS, [&](int) {
        for (const auto& service : services) {
            all.arrive_and_wait();
            const void* const object = service();
            const std::lock_guard guard(lock);
            objects.insert(object);
        }
        all.arrive_and_wait();
        EXPECT_EQ(ReadMsgHandleModeSwitcher(), 0);
    });
    EXPECT_EQ(objects.size(), std::size(services));
    EXPECT_FALSE(objects.contains(nullptr));
    EXPECT_EQ(ThePlatform().fetches, FIRST_USERS);
    EXPECT_EQ(ThePlatform().modeReads, 1);
}

} // namespace

TEST(FirstUse, SixteenThreadsGetTheSameObjectInEachOf200Processes)
{
    ThePlatform().readMode = [](int& value) { return value = 0, 1; };
    for (int process = 0; process < 200 && !HasFailure(); ++process) {
        EXPECT_EXIT(
            {
                UseAllFirst();
                std::fflush(stdout);
                std::_Exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
}
