#include <atomic>
#include <cstring>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <emsplatform/task_manager.h>

#include "agent/emsutil_util_timer.h"
#include "tests/faults.h"
#include "tests/test_platform.h"
#include "tests/threads.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace std::chrono_literals;
using emsplatform::TaskManager;
using Lines = std::vector<std::string>;

namespace {

std::string g_Events;
std::chrono::microseconds g_Now = 0us;

void* Copy(void* param)
{
    g_Events += "copy ";
    return new int(*static_cast<int*>(param));
}

void Timeout(void* param)
{
    g_Events += param != nullptr ? "timeout" + std::to_string(*static_cast<int*>(param)) + " "
                                 : "timeout-null ";
}

void Free(void* param)
{
    g_Events += "free ";
    delete static_cast<int*>(param);
}

EmsUtilTimerInterface g_Timer = {Timeout, Copy, Free};

std::string TakeEvents()
{
    return std::exchange(g_Events, {});
}

/// Manager 7, whose clock is g_Now: a unit is 100 ms.
TaskManager& Manager()
{
    static TaskManager& manager =
        *emsplatform::AddTaskManager(7, {100ms, [] { return std::chrono::nanoseconds(g_Now); }});
    return manager;
}

TaskManager& StartedManager()
{
    Manager().Start();
    return Manager();
}

/// The place of a virtual operation in its class's table.
template <class Operation>
std::size_t Slot(Operation operation)
{
    std::size_t offset = 0; // plus 1, as the C++ ABI of Linux has it
    std::memcpy(&offset, &operation, sizeof offset);
    return (offset - 1) / sizeof(void*);
}

} // namespace

TEST(Timer, FiresOnceAfterOneUnitAndIsThenDestroyed)
{
    TaskManager& manager = StartedManager();
    int param = 5;
    EmsUtilTimerInterface timer = g_Timer;
    ScheduleEmsUtilTimer(7, timer, &param);
    param = 6;
    ScheduleEmsUtilTimer(7, timer, &param);
    ScheduleEmsUtilTimer(7, timer, nullptr);
    timer = {};
    EXPECT_EQ(TakeEvents(), "copy copy ");
    g_Now += 99999us;
    EXPECT_EQ(manager.DeliverExpired(), 0u);
    g_Now += 1us;
    EXPECT_EQ(manager.DeliverExpired(), 3u);
    std::string events = TakeEvents();
    for (const char* expected : {"timeout5 free ", "timeout6 free ", "timeout-null "}) {
        const std::size_t place = events.find(expected);
        ASSERT_NE(place, std::string::npos) << expected;
        events.erase(place, std::strlen(expected));
    }
    EXPECT_EQ(events, "");
    g_Now += 10s;
    EXPECT_EQ(manager.DeliverExpired(), 0u);
}

TEST(Timer, NullFunctionsAreNotCalled)
{
    TaskManager& manager = StartedManager();
    int param = 5;
    EmsUtilTimerInterface none = {nullptr, nullptr, nullptr};
    ScheduleEmsUtilTimer(7, none, &param);
    EmsUtilTimerInterface keepsNothing = {Timeout, [](void*) -> void* { return nullptr; }, Free};
    ScheduleEmsUtilTimer(7, keepsNothing, &param);
    EmsUtilTimerInterface frees = {Timeout, nullptr, Free};
    ScheduleEmsUtilTimer(7, frees, &param);
    EmsUtilTimerInterface borrows = {nullptr, [](void* given) { return given; }, nullptr};
    ScheduleEmsUtilTimer(7, borrows, &param);
    g_Now += 100ms;
    EXPECT_EQ(manager.DeliverExpired(), 4u);
    EXPECT_EQ(TakeEvents(), "timeout-null timeout-null ");
}

TEST(Timer, FailuresWriteOneLine)
{
    int param = 5;
    ScheduleEmsUtilTimer(7, g_Timer, &param); // no application manager
    StartedManager();
    ScheduleEmsUtilTimer(255, g_Timer, &param);
    EXPECT_EQ(TakeLines(), (Lines{"1|Find TaskMgrID 7 failed\n", "1|Find TaskMgrID 255 failed\n"}));
    {
        const faults::FailNth fault(faults::ALLOCATION);
        ScheduleEmsUtilTimer(7, g_Timer, &param);
    }
    EXPECT_EQ(TakeLines(), Lines{"1|new EmsUtilAgentTimerTask task failed bytes " +
                                 std::to_string(sizeof(EmsUtilAgentTimerTask)) + "\n"});
    EXPECT_EQ(TakeEvents(), "");

    EmsUtilTimerInterface throws = {Timeout, [](void*) -> void* { throw 7; }, Free};
    EXPECT_THROW(ScheduleEmsUtilTimer(7, throws, &param), int);
    throws = {[](void*) { throw std::runtime_error("late"); }, Copy, Free};
    ScheduleEmsUtilTimer(7, throws, &param);
    g_Now += 100ms;
    EXPECT_EQ(Manager().DeliverExpired(), 1u);
    EXPECT_EQ(TakeEvents(), "copy free ");
    EXPECT_EQ(TakeLines(), Lines{"1|timer of task EmsUtilAgentTimerTask failed: late\n"});
}

TEST(Timer, AnEarlyExpiryWaitsForTheIdAndDisarmsIt)
{
    TaskManager& manager = StartedManager();
    auto* const task = new EmsUtilAgentTimerTask(&manager, "early", g_Timer, nullptr);
    manager.TMInitInsertTask(task);
    std::latch running(1);
    std::thread expiry([&] {
        running.count_down();
        task->eKorTaskTimeInterval(99);
    });
    running.wait();
    task->InitTaskCmdReqProcess(nullptr);
    expiry.join();
    EXPECT_EQ(TakeEvents(), "timeout-null ");
    g_Now += 10s;
    EXPECT_EQ(manager.DeliverExpired(), 0u); // nothing is left armed
}

TEST(Timer, TheTablesHaveTheOrderThatThePlatformRelysOn)
{
    EXPECT_EQ(Slot(&NSQN_util::DebugInterface::DebugPrint), 2u);
    EXPECT_EQ(Slot(&NSQN_util::DebugInterface::AssertPrint), 3u);
    // A virtual destructor takes two places.
    EXPECT_EQ(Slot(&QNTask::InitTaskCmdReqProcess), 2u);
    EXPECT_EQ(Slot(&QNTask::eKorTaskCmdRecv), 3u);
    EXPECT_EQ(Slot(&QNTask::eKorTaskCmdResp), 4u);
    EXPECT_EQ(Slot(&QNTask::eKorTaskTimeInterval), 5u);
    EXPECT_EQ(Slot(&QNTask::HandleNoAsn1Msg), 6u);
}

TEST(TaskManager, StoppingDestroysTasksWhereverItIsCalled)
{
    int param = 5;
    TaskManager& manager = Manager();
    EXPECT_EQ(emsplatform::AddTaskManager(7, {}), nullptr);
    ScheduleEmsUtilTimer(7, g_Timer, &param);
    manager.Stop(); // before it was started
    EXPECT_EQ(TakeEvents(), "copy free ");
    manager.Start();
    ScheduleEmsUtilTimer(7, g_Timer, &param);
    EmsUtilTimerInterface stops = {[](void*) {
                                       Manager().Stop();
                                       g_Events += "stopped ";
                                   },
                                   nullptr, nullptr};
    g_Now += 1ms;
    ScheduleEmsUtilTimer(7, stops, nullptr);
    g_Now += 99ms;
    EXPECT_EQ(manager.DeliverExpired(), 1u);
    EXPECT_EQ(TakeEvents(), "copy timeout5 free ");
    ScheduleEmsUtilTimer(7, g_Timer, &param);
    g_Now += 1ms;
    EXPECT_EQ(manager.DeliverExpired(), 1u);
    EXPECT_EQ(TakeEvents(), "copy stopped free "); // after the event
    EXPECT_EQ(manager.DeliverExpired(), 0u);
    manager.Stop();
    manager.Stop();
    EXPECT_EQ(TakeEvents(), "");
}

TEST(TaskManager, ItsOwnThreadFiresTimersOfManyThreadsAndStopsFromAnEvent)
{
    constexpr int threads = 8;
#ifdef __SANITIZE_THREAD__
    constexpr int each = 200;
#else
    constexpr int each = 5000;
#endif
    static std::atomic<int> fired;
    static std::atomic<int> freed;
    static std::latch all(threads * each);
    static TaskManager& manager = *emsplatform::AddTaskManager(9, {50us, nullptr});
    manager.Start();
    static EmsUtilTimerInterface count = {[](void*) {
                                              ++fired;
                                              all.count_down();
                                          },
                                          [](void* param) { return param; },
                                          [](void*) { ++freed; }};
    RunOnThreads(threads, [](int) {
        for (int i = 0; i < each; ++i) {
            ScheduleEmsUtilTimer(9, count, &count);
        }
    });
    all.wait();
    EXPECT_EQ(fired, threads * each);

    static std::latch stopping(1);
    EmsUtilTimerInterface stop = {[](void*) {
                                      manager.Stop();
                                      manager.Start(); // is ignored here
                                      ScheduleEmsUtilTimer(9, count, &count);
                                      stopping.count_down();
                                  },
                                  nullptr, nullptr};
    ScheduleEmsUtilTimer(9, stop, nullptr);
    stopping.wait();
    manager.Stop();
    EXPECT_EQ(fired, threads * each);
    EXPECT_EQ(freed, threads * each + 1);
    manager.Start();
    manager.Stop();
}
