// Every service under 2, 8 and 32 threads at once, with exact totals; and the first use of all.

#include <algorithm>
#include <array>
#include <barrier>
#include <cstring>
#include <latch>
#include <map>
#include <optional>
#include <sstream>

#include <unistd.h>

#include <gtest/gtest.h>

#include <emsstandin/task_manager.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "agent/emsutil_thread.h"
#include "agent/emsutil_util_report.h"
#include "emsutil/diagnostics.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/timer.h"
#include "tests/support/expose.h"
#include "tests/support/faults.h"
#include "tests/support/test_platform.h"
#include "tests/support/threads.h"
#include "util/translog.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

EXPOSE(LockErrorsOf, QNMitLockErrMgr, m_ThrIDInfoMap, std::map<int, std::string>)

namespace {

constexpr int STEPS = 80000; // of all threads together
constexpr int COMMANDS = 160000;

struct Stress : testing::TestWithParam<int>
{
    const int m_nThreads = GetParam();
    const int m_nEach = STEPS / m_nThreads; // steps of a thread
};

INSTANTIATE_TEST_SUITE_P(Threads, Stress, testing::Values(2, 8, 32));

EmsGeneralCmd Numbered(std::size_t producer, int number)
{
    EmsGeneralCmd cmd;
    cmd.name = "count";
    cmd.nvtps.nvtps.emplace_back().name = std::to_string(producer);
    cmd.nvtps.nvtps.back().value = std::to_string(number);
    return cmd;
}

} // namespace

TEST_P(Stress, CommandsKeepTheOrderOfEachProducer)
{
    static std::vector<int> next;
    next.resize(static_cast<std::size_t>(m_nThreads));
    std::string name = "count";
    const RegEmsUtilCmd registration(name, [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        const auto& pair = cmd->nvtps.nvtps.front();
        EXPECT_EQ(std::stoi(pair.value), next.at(std::stoul(pair.name))++);
        return 0;
    });
    std::atomic<int> producing = m_nThreads;
    RunOnThreads(m_nThreads + 1, [&](int thread) {
        if (thread == m_nThreads) {
            while (producing > 0) {
                runGeneralCmd();
            }
            return;
        }
        for (int i = 0; i < COMMANDS / m_nThreads; ++i) {
            EmsGeneralCmd cmd = Numbered(static_cast<std::size_t>(thread), i);
            addGeneralCmd(cmd);
            if (i % 1000 == 0) { // while others are looked up
                std::string others = std::to_string(thread) + "," + std::to_string(i);
                RegEmsUtilCmd(others, [](EmsGeneralCmd*, EmsGeneralCmd*) { return 0; });
            }
        }
        --producing;
    });
    runGeneralCmd();
    EXPECT_EQ(std::count(next.begin(), next.end(), COMMANDS / m_nThreads), m_nThreads);
}

TEST_P(Stress, TimersCopyFireAndFreeOnce)
{
    static std::vector<std::atomic<int>> timers(STEPS);
    static std::latch fired(STEPS);
    auto& manager = *emsstandin::AddTaskManager(9, {std::chrono::microseconds(50), nullptr});
    manager.Start();
    RunOnThreads(m_nThreads, [this](int thread) {
        EmsUtilTimerInterface count = {
            [](void* timer) {
                *static_cast<std::atomic<int>*>(timer) += 10;
                fired.count_down();
            },
            [](void* timer) { return ++*static_cast<std::atomic<int>*>(timer), timer; },
            [](void* timer) { *static_cast<std::atomic<int>*>(timer) += 100; }};
        for (int i = thread * m_nEach; i < (thread + 1) * m_nEach; ++i) {
            ScheduleEmsUtilTimer(9, count, &timers[static_cast<std::size_t>(i)]);
        }
    });
    fired.wait();
    manager.Stop();
    EXPECT_EQ(std::count(timers.begin(), timers.end(), 111), STEPS);
}

TEST_P(Stress, TheThreadMonitorCountsEveryEvent)
{
    const int rounds = m_nEach / m_nThreads; // a query goes over all threads
    RunOnThreads(m_nThreads, [rounds](int) {
        EmsThreadInfoMap values = {{"Report", {"", 0}}};
        for (int i = 1; i <= rounds; ++i) {
            AddEmsThreadInfo(values, "round", i);
            const RegEmsThreadInfo inside(&values);
            std::list<EmsThreadInfo> infos;
            GetEmsThreadInfo(infos, -1);
            GetEmsThreadInfo(infos, 0);
            IsEmsThreadTimeout(1000);
            StatEmsThreadInfo();
            EXPECT_TRUE(IsEmsThreadReport(pthread_self()));
        }
    });
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    EXPECT_EQ(records.size(), static_cast<std::size_t>(m_nThreads));
    for (const EmsThreadInfo& record : records) {
        EXPECT_EQ(record.m_llRecvs, 2 * rounds);
        EXPECT_EQ(record.m_InfoMap.at("round").first, std::to_string(rounds));
    }
    EXPECT_EQ(TakeLines().size(), static_cast<std::size_t>(m_nThreads * rounds));
}

TEST_P(Stress, LogsCountEveryReferenceAndDeleteEveryBuffer)
{
    static std::atomic<int> deleted;
    struct Counted : QNTransactionBuffer
    {
        ~Counted() override { ++deleted; }
    };
    constexpr std::size_t count = 4;
    std::optional<std::array<QNTransactionLog, count>> logs(std::in_place);
    std::atomic<unsigned long> neighbour = 0; // a log that may be going at this moment
    RunOnThreads(m_nThreads, [&](int thread) {
        for (int i = thread * m_nEach; i < (thread + 1) * m_nEach; ++i) {
            const auto number = static_cast<unsigned long>(i);
            QNTransactionLog own;
            own.AddBuffer("own", 1, new Counted);
            QNTransactionLog others(neighbour.exchange(own.GetHandle()));
            // Each has as many odd numbers as even ones.
            QNTransactionLog shared((*logs)[number / 2 % count].GetHandle());
            shared.AddRef(2);
            shared.AddBuffer("shared", number, new Counted);
            EXPECT_NE(shared.GetBuffer("shared", number), nullptr);
            if (number % 2 == 0) {
                delete shared.RemoveBuffer("shared", number);
            }
            shared.Release();
            shared.Release();
        }
    });
    EXPECT_EQ(deleted, STEPS + STEPS / 2);
    EXPECT_EQ(g_TransLogMap.size(), count);
    for (const auto& [handle, log] : g_TransLogMap) {
        EXPECT_EQ(log->m_nRefCount, 1);
        EXPECT_EQ(log->m_nRefCountEx, 0);
        EXPECT_EQ(log->m_TransBufMap.size(), STEPS / 2 / count);
    }
    logs.reset();
    EXPECT_EQ(g_TransLogMap.size(), 0u);
    EXPECT_EQ(deleted, 2 * STEPS);
    EXPECT_EQ(TakeLines(), std::vector<std::string>{});
}

TEST_P(Stress, ReportEntriesAreWhole)
{
    const ReportFolder folder;
    faults::g_pCtime = [](char* buffer) { return std::strcpy(buffer, "stamp \n"); };
    RunOnThreads(m_nThreads, [this](int thread) {
        for (int i = 0; i < m_nEach; ++i) {
            EmsUtilReport("%d entry %d\n", thread, i);
        }
    });
    std::istringstream file(ReportFolder::Take());
    std::map<std::string, int> next;
    for (std::string line; std::getline(file, line);) {
        const std::string thread = line.substr(0, line.find(" entry "));
        ASSERT_EQ(line, thread + " entry " + std::to_string(next[thread]++));
    }
    for (int thread = 0; thread < m_nThreads; ++thread) {
        EXPECT_EQ(next["stamp " + std::to_string(thread)], m_nEach);
    }
}

TEST_P(Stress, LockErrorsAreKeptAndErased)
{
    NSQN_util::g_bEnableMitLockErrMgr = true;
    RunOnThreads(m_nThreads, [this](int thread) {
        for (int id = thread * m_nEach; id < (thread + 1) * m_nEach; ++id) {
            QNMitLockErrMgr::Instance()->InsertThrIDandInfo(-1, "shared");
            QNMitLockErrMgr::Instance()->InsertThrIDandInfo(id, "text");
            if (id % 2 != 0) {
                QNMitLockErrMgr::Instance()->EraseThrIDandInfo(id);
            }
        }
    });
    EXPECT_EQ(LockErrorsOf(*QNMitLockErrMgr::Instance()).size(), STEPS / 2 + 1u);
}

namespace {

constexpr int FIRST_USERS = 16;

void UseAllFirst()
{
    std::barrier<> all(FIRST_USERS);
    std::array<const void*, FIRST_USERS> writers{};
    RunOnThreads(FIRST_USERS, [&](int thread) {
        EmsGeneralCmd cmd = Numbered(0, 0);
        all.arrive_and_wait();
        addGeneralCmd(cmd);
        all.arrive_and_wait();
        const RegEmsThreadInfo inside(nullptr);
        all.arrive_and_wait();
        QNMitLockErrMgr::Instance()->InsertThrIDandInfo(gettid(), "text");
        all.arrive_and_wait();
        writers.at(static_cast<std::size_t>(thread)) = EmsUtilReportFile::Instance();
        all.arrive_and_wait();
        EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
        all.arrive_and_wait();
        EXPECT_EQ(ReadMsgHandleModeSwitcher(), 0);
    });
    // Of two that were made, one would have had something that the other lacks.
    static int ran = 0;
    std::string name = "count";
    RegEmsUtilCmd(name, [](EmsGeneralCmd*, EmsGeneralCmd*) { return ++ran; });
    runGeneralCmd();
    EXPECT_EQ(ran, FIRST_USERS);
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    EXPECT_EQ(records.size(), std::size_t{FIRST_USERS});
    EXPECT_EQ(LockErrorsOf(*QNMitLockErrMgr::Instance()).size(), std::size_t{FIRST_USERS});
    EXPECT_NE(writers[0], nullptr);
    EXPECT_EQ(std::count(writers.begin(), writers.end(), writers[0]), FIRST_USERS);
    EXPECT_EQ(ThePlatform().modeReads, 1);
}

} // namespace

TEST(FirstUse, SixteenThreadsGetTheSameObjectInEachOf200Processes)
{
    NSQN_util::g_bEnableMitLockErrMgr = true;
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
