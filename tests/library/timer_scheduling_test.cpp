// What a platform may do while it inserts and arms a timer's task: deliver the expiry or destroy
// the task, on another thread or inside the very call.

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <emsplatform/task.h>

#include "emsutil/timer.h"
#include "tests/support/faults.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace std::chrono_literals;
using Ids = std::vector<long>;

namespace {

std::string g_Events;

void Timeout(void*)
{
    g_Events += "timeout ";
}

void* Copy(void* param)
{
    return param;
}

void Free(void*)
{
    g_Events += "free ";
}

EmsUtilTimerInterface g_Timer = {Timeout, Copy, Free};

void Schedule()
{
    int param = 5;
    ScheduleEmsUtilTimer(7, g_Timer, &param);
}

void Destroy(eKorTask& task)
{
    g_Events += "destroy ";
    delete &task;
}

std::string TakeEvents()
{
    return std::exchange(g_Events, {});
}

/// Lets another thread call `operation`, and checks that it waits.
template <class Operation>
std::future<void> ExpectToWait(Operation operation)
{
    std::promise<void> started;
    auto done = std::async(std::launch::async, [&started, operation] {
        started.set_value();
        operation();
    });
    started.get_future().wait();
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield(); // the other thread gets ahead if nothing holds it
    }
    EXPECT_EQ(g_Events, "");
    EXPECT_EQ(done.wait_for(0s), std::future_status::timeout);
    return done;
}

} // namespace

TEST(TimerScheduling, AnExpiryOnAnotherThreadWaitsForTheIdWhateverItIs)
{
    for (const long id : {42L, 0L, -2L, LONG_MIN}) {
        g_Steering = {};
        std::future<void> expiry;
        g_Steering.onArm = [&](eKorTask& task) {
            expiry = ExpectToWait([&task] { task.eKorTaskTimeInterval(99); });
            return id;
        };
        g_Steering.onFinished = Destroy;
        Schedule();
        expiry.get();
        EXPECT_EQ(TakeEvents(), "timeout destroy free ");
        EXPECT_EQ(g_Steering.disarmed, Ids{id});
    }
}

TEST(TimerScheduling, ADestructionOnAnotherThreadWaitsForTheArming)
{
    std::future<void> destruction;
    g_Steering.onArm = [&](eKorTask& task) {
        destruction = ExpectToWait([&task] { delete &task; });
        return 42;
    };
    Schedule();
    destruction.get();
    EXPECT_EQ(TakeEvents(), "free ");
}

TEST(TimerScheduling, AnExpiryInsideTheArmingFiresAndIsDisarmedOnceTheIdIsKnown)
{
    eKorTask* finished = nullptr;
    g_Steering.onArm = [](eKorTask& task) {
        task.eKorTaskTimeInterval(42);
        return 42;
    };
    g_Steering.onFinished = [&](eKorTask& task) { finished = &task; };
    Schedule();
    EXPECT_EQ(g_Steering.disarmed, (Ids{0, 42}));
    ASSERT_NE(finished, nullptr);
    delete finished;
    EXPECT_EQ(TakeEvents(), "timeout free ");

    g_Steering.onFinished = Destroy; // at once, inside the arming
    Schedule();
    EXPECT_EQ(TakeEvents(), "timeout destroy free ");
}

TEST(TimerScheduling, ADestructionInsideAnyCallIsSurvived)
{
    g_Steering.onInsert = Destroy;
    g_Steering.onArm = [](eKorTask&) -> long { throw std::logic_error("armed after the end"); };
    Schedule();
    EXPECT_EQ(TakeEvents(), "destroy free ");

    g_Steering = {};
    g_Steering.onArm = [](eKorTask& task) {
        Destroy(task);
        return 42;
    };
    Schedule();
    EXPECT_EQ(TakeEvents(), "destroy free ");

    g_Steering.onArm = [](eKorTask& task) -> long {
        Destroy(task);
        throw std::runtime_error("not armed");
    };
    EXPECT_THROW(Schedule(), std::runtime_error);
    EXPECT_EQ(TakeEvents(), "destroy free ");
}

TEST(TimerScheduling, ATaskThatCannotBeArmedIsFinishedOnce)
{
    g_Steering.onFinished = Destroy; // at once, inside eKorSetTaskState
    g_Steering.onArm = [](eKorTask&) { return -1; };
    Schedule();
    EXPECT_EQ(TakeEvents(), "destroy free ");

    g_Steering.onArm = [](eKorTask&) -> long { throw std::runtime_error("not armed"); };
    EXPECT_THROW(Schedule(), std::runtime_error);
    EXPECT_EQ(TakeEvents(), "destroy free ");
}

TEST(TimerScheduling, ThePlatformMayArmTheTaskItself)
{
    // Inside the insertion, and the task fires inside each arming.
    eKorTask* finished = nullptr;
    g_Steering.onInsert = [](eKorTask& task) { task.InitTaskCmdReqProcess(nullptr); };
    g_Steering.onArm = [](eKorTask& task) {
        task.eKorTaskTimeInterval(42);
        return 42;
    };
    g_Steering.onFinished = [&](eKorTask& task) { finished = &task; };
    Schedule();
    EXPECT_EQ(TakeEvents(), "timeout ");
    delete finished;
    EXPECT_EQ(TakeEvents(), "free ");
    g_Steering.onFinished = Destroy;
    Schedule();
    EXPECT_EQ(TakeEvents(), "timeout destroy free ");

    // On its own, with a destruction inside the arming.
    eKorTask* inserted = nullptr;
    g_Steering = {};
    g_Steering.onInsert = [&](eKorTask& task) { inserted = &task; };
    Schedule();
    g_Steering.onArm = [](eKorTask& task) {
        Destroy(task);
        return 42;
    };
    inserted->InitTaskCmdReqProcess(nullptr);
    EXPECT_EQ(TakeEvents(), "destroy free ");

    // The library's own arming fails, but that of the platform holds.
    inserted = nullptr;
    g_Steering.onInsert = [&](eKorTask& task) { task.InitTaskCmdReqProcess(nullptr); };
    g_Steering.onArm = [&](eKorTask& task) {
        return std::exchange(inserted, &task) == &task ? -1L : 5L;
    };
    g_Steering.onFinished = Destroy;
    g_Steering.disarmed.clear();
    Schedule();
    EXPECT_EQ(TakeEvents(), "");
    inserted->eKorTaskTimeInterval(5);
    EXPECT_EQ(g_Steering.disarmed, Ids{5});
    EXPECT_EQ(TakeEvents(), "timeout destroy free ");
}

TEST(TimerScheduling, WhatThePlatformThrowsInAnExpiryPasses)
{
    eKorTask* armed = nullptr;
    g_Steering.onArm = [&](eKorTask& task) {
        armed = &task;
        return 42;
    };
    g_Steering.onFinished = [](eKorTask&) { throw std::runtime_error("state"); };
    Schedule();
    EXPECT_THROW(armed->eKorTaskTimeInterval(42), std::runtime_error);
    g_Steering.onFinished = Destroy;
    armed->eKorTaskTimeInterval(42);
    EXPECT_EQ(TakeEvents(), "timeout timeout destroy free ");
}

TEST(TimerScheduling, AnotherTimerMayBeScheduledInsideTheArming)
{
    bool isOuter = true;
    g_Steering.onArm = [&](eKorTask& task) {
        if (std::exchange(isOuter, false)) {
            Schedule();
            task.eKorTaskTimeInterval(1);
        }
        return 1;
    };
    std::vector<eKorTask*> tasks;
    g_Steering.onInsert = [&](eKorTask& task) { tasks.push_back(&task); };
    Schedule();
    EXPECT_EQ(TakeEvents(), "timeout ");
    for (eKorTask* task : tasks) {
        delete task;
    }
    EXPECT_EQ(TakeEvents(), "free free ");
}

TEST(TimerScheduling, WithoutTheLockNothingIsScheduledAndAnExpiryIsLeftToTheNext)
{
    eKorTask* armed = nullptr;
    g_Steering.onArm = [&](eKorTask& task) {
        armed = &task;
        return 42;
    };
    {
        const faults::FailNth fault(faults::MUTEX_LOCK);
        Schedule();
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(armed, nullptr);
    EXPECT_EQ(TakeEvents(), "free ");
    Schedule();
    {
        const faults::FailNth fault(faults::MUTEX_LOCK);
        armed->eKorTaskTimeInterval(42);
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(TakeEvents(), "");
    armed->eKorTaskTimeInterval(42);
    const faults::FailNth fault(faults::MUTEX_LOCK);
    delete armed;
    EXPECT_EQ(TakeEvents(), "timeout free ");
}
