#include <stdexcept>
#include <utility>

#include <gtest/gtest.h>

#include <emsstandin/task_manager.h>

#include "agent/emsutil_util_timer.h"
#include "tests/support/test_platform.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace std::chrono_literals;
using emsstandin::TaskManager;
using Lines = std::vector<std::string>;

namespace {

std::string g_Events;
std::chrono::nanoseconds g_Now = 1ns;

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

/// Manager 7, started, whose clock is g_Now: a unit is 100 ms.
TaskManager& Manager()
{
    static TaskManager& manager = *emsstandin::AddTaskManager(7, {100ms, [] { return g_Now; }});
    manager.Start();
    return manager;
}

} // namespace

TEST(Timer, FiresOnceAfterOneUnitAndIsThenDestroyed)
{
    TaskManager& manager = Manager();
    int param = 5;
    EmsUtilTimerInterface timer = g_Timer;
    ScheduleEmsUtilTimer(7, timer, &param);
    param = 6;
    g_Now += 1us;
    ScheduleEmsUtilTimer(7, timer, &param);
    g_Now += 1us;
    ScheduleEmsUtilTimer(7, timer, nullptr);
    timer = {};
    EXPECT_EQ(TakeEvents(), "copy copy ");
    g_Now += 100ms - 2us;
    EXPECT_EQ(manager.DeliverExpired(), 0u); // the nanosecond is rounded up
    g_Now += 999ns;
    EXPECT_EQ(manager.DeliverExpired(), 1u);
    g_Now += 2us;
    EXPECT_EQ(manager.DeliverExpired(), 2u);
    EXPECT_EQ(TakeEvents(), "timeout5 free timeout6 free timeout-null ");
    g_Now += 10s;
    EXPECT_EQ(manager.DeliverExpired(), 0u);
}

TEST(Timer, NullFunctionsAreNotCalled)
{
    TaskManager& manager = Manager();
    int param = 5;
    for (EmsUtilTimerInterface timer : {EmsUtilTimerInterface{nullptr, nullptr, nullptr},
                                        {Timeout, [](void*) -> void* { return nullptr; }, Free},
                                        {Timeout, nullptr, Free},
                                        {nullptr, Copy, Free}}) {
        ScheduleEmsUtilTimer(7, timer, &param);
    }
    g_Now += 101ms;
    EXPECT_EQ(manager.DeliverExpired(), 4u);
    EXPECT_EQ(TakeEvents(), "copy timeout-null timeout-null free ");
}

TEST(Timer, FailuresWriteOneLine)
{
    int param = 5;
    ScheduleEmsUtilTimer(7, g_Timer, &param); // no application manager
    Manager();
    EXPECT_EQ(emsstandin::AddTaskManager(7, {}), nullptr);
    ScheduleEmsUtilTimer(255, g_Timer, &param);
    EXPECT_EQ(TakeLines(), (Lines{"1|Find TaskMgrID 7 failed\n", "1|Find TaskMgrID 255 failed\n"}));
    EXPECT_EQ(TakeEvents(), "");
    EmsUtilTimerInterface throws = {[](void*) { throw std::runtime_error("late"); }, Copy, Free};
    ScheduleEmsUtilTimer(7, throws, &param);
    g_Now += 101ms;
    EXPECT_EQ(Manager().DeliverExpired(), 1u);
    EXPECT_EQ(TakeEvents(), "copy free ");
    EXPECT_EQ(TakeLines(), Lines{"1|timer of task EmsUtilAgentTimerTask failed: late\n"});
}
