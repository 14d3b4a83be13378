// Timers on a task framework whose calls are functions of the tests: while it inserts and arms a
// task, a platform may deliver the expiry or destroy the task, on another thread or inside the
// call.

#include <climits>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <emsplatform/task.h>

#include "emsutil/timer.h"
#include "tests/support/faults.h"
#include "tests/support/test_platform.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace std::chrono_literals;
using Ids = std::vector<long>;

namespace {

std::string g_Events;
eKorTask* g_pTask = nullptr; // the one that Keep() was called for last

/// What the platform does in its operations.
struct Steering
{
    std::function<void(eKorTask&)> onInsert = [](eKorTask&) {};
    std::function<long(eKorTask&)> onArm = [](eKorTask&) { return 1; };
    std::function<void(eKorTask&)> onFinished = [](eKorTask&) {};
    Ids disarmed = {}; // in the order of the calls
} g_Steering;

struct Manager : eKorTaskMgr
{
} g_Manager;

eKorAppMgr g_AppMgr;
eKorAppMgr* g_pAppMgr = &g_AppMgr;

void* Copy(void* param)
{
    return new int(*static_cast<int*>(param));
}

void Timeout(void* param)
{
    g_Events += param == nullptr                 ? "timeout-null "
                : *static_cast<int*>(param) == 5 ? "timeout "
                                                 : "timeout-changed ";
}

void Free(void* param)
{
    g_Events += "free ";
    delete static_cast<int*>(param);
}

/// Schedules a timer, and changes what it was scheduled with.
void ScheduleWith(EmsUtilTimerInterface timer)
{
    int param = 5;
    ScheduleEmsUtilTimer(7, timer, &param);
    timer = {};
    param = 6;
}

void Schedule()
{
    ScheduleWith({Timeout, Copy, Free});
}

std::string TakeEvents()
{
    return std::exchange(g_Events, {});
}

void Keep(eKorTask& task)
{
    g_pTask = &task;
}

void Destroy(eKorTask& task)
{
    g_Events += "destroy ";
    delete &task;
}

void InitTask(eKorTask& task)
{
    task.InitTaskCmdReqProcess(nullptr);
}

long Fire(eKorTask& task)
{
    task.eKorTaskTimeInterval(42);
    return 42;
}

long DestroyAndArm(eKorTask& task)
{
    Destroy(task);
    return 42;
}

long Throw(eKorTask&)
{
    throw std::runtime_error("not armed");
}

long DestroyAndThrow(eKorTask& task)
{
    Destroy(task);
    throw std::runtime_error("not armed");
}

/// Lets another thread call `operation`, and checks that it waits.
std::future<void> ExpectToWait(const std::function<void()>& operation)
{
    std::promise<void> started;
    auto done = std::async(std::launch::async, [&started, operation] {
        started.set_value();
        operation();
    });
    started.get_future().wait();
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield(); // the other thread would return if it did not wait
    }
    EXPECT_EQ(g_Events, "");
    EXPECT_EQ(done.wait_for(0s), std::future_status::timeout);
    return done;
}

} // namespace

eKorTask::eKorTask(eKorTaskMgr*, const char*) : m_pState(nullptr), m_StateMemory{} {}

eKorTask::~eKorTask() = default;

void eKorTask::InitTaskCmdReqProcess(CmdMSG*) {}

void eKorTask::eKorTaskTimeInterval(long) {}

long eKorTask::SetTaskTimeInterval(unsigned int interval)
{
    EXPECT_EQ(interval, 1u);
    return g_Steering.onArm(*this);
}

void eKorTask::DelTaskTimeInterval(long id)
{
    g_Steering.disarmed.push_back(id);
}

void eKorTask::eKorSetTaskState(int state)
{
    EXPECT_EQ(state, 3); // finished
    g_Steering.onFinished(*this);
}

void eKorGnlTask::eKorTaskCmdRecv(CmdMSG*) {}

void eKorGnlTask::eKorTaskCmdResp(eKorErrorCode, CmdMSG*) {}

void eKorGnlTask::HandleNoAsn1Msg(QNCmdMsg*) {}

PSyncHelp::~PSyncHelp() = default;

unsigned long eKorTaskMgr::AllocReqID(eKorTask*)
{
    return 1;
}

int eKorTaskMgr::TMInitInsertTask(eKorTask* task)
{
    g_Steering.onInsert(*task);
    return 0;
}

eKorTaskMgr* eKorAppMgr::FindTaskMgrByID(unsigned char id)
{
    return id == 7 ? &g_Manager : nullptr;
}

eKorAppMgr* eKorGetAppMgr()
{
    return g_pAppMgr;
}

TEST(Timer, CallsTheFunctionsThatItHasWithACopyOfTheParameter)
{
    const std::pair<EmsUtilTimerInterface, const char*> cases[] = {
        {{Timeout, Copy, Free}, "timeout destroy free "},
        {{Timeout, [](void*) -> void* { return nullptr; }, Free}, "timeout-null destroy "},
        {{Timeout, nullptr, Free}, "timeout-null destroy "},
        {{nullptr, Copy, Free}, "destroy free "},
        {{nullptr, nullptr, nullptr}, "destroy "},
    };
    g_Steering = {.onInsert = Keep, .onFinished = Destroy};
    for (const auto& [timer, events] : cases) {
        ScheduleWith(timer);
        g_pTask->eKorTaskTimeInterval(1);
        EXPECT_EQ(TakeEvents(), events);
    }
    EmsUtilTimerInterface timer = {Timeout, Copy, Free};
    ScheduleEmsUtilTimer(7, timer, nullptr);
    g_pTask->eKorTaskTimeInterval(1);
    EXPECT_EQ(TakeEvents(), "timeout-null destroy ");
    ScheduleWith({[](void*) { throw std::runtime_error("late"); }, Copy, Free});
    EXPECT_THROW(g_pTask->eKorTaskTimeInterval(1), std::runtime_error);
    EXPECT_EQ(TakeEvents(), "destroy free ");
    EXPECT_EQ(g_Steering.disarmed, Ids(std::size(cases) + 2, 1));
}

TEST(Timer, WithoutItsManagerWritesALine)
{
    EmsUtilTimerInterface timer = {Timeout, Copy, Free};
    ScheduleEmsUtilTimer(255, timer, nullptr);
    g_pAppMgr = nullptr;
    Schedule();
    EXPECT_EQ(TakeLines(), (std::vector<std::string>{"1|Find TaskMgrID 255 failed\n",
                                                     "1|Find TaskMgrID 7 failed\n"}));
    EXPECT_EQ(TakeEvents(), "");
}

TEST(Timer, OtherThreadsWaitForTheArming)
{
    std::future<void> other;
    for (const long id : {42L, 0L, -2L, LONG_MIN}) {
        g_Steering = {.onArm =
                          [&](eKorTask& task) {
                              other = ExpectToWait([&task] { task.eKorTaskTimeInterval(99); });
                              return id;
                          },
                      .onFinished = Destroy};
        Schedule();
        other.get();
        EXPECT_EQ(TakeEvents(), "timeout destroy free ");
        EXPECT_EQ(g_Steering.disarmed, Ids{id});
    }
    g_Steering.onArm = [&](eKorTask& task) {
        other = ExpectToWait([&task] { delete &task; });
        return 42;
    };
    Schedule();
    other.get();
    EXPECT_EQ(TakeEvents(), "free ");
}

TEST(Timer, AnyCallMayFireOrDestroyTheTaskOrFail)
{
    const struct
    {
        Steering steering;
        const char* events;
        Ids disarmed = {};
        bool throws = false;
    } trials[] = {
        // Fired inside the arming, and disarmed once the id is known.
        {{.onArm = Fire, .onFinished = Keep}, "timeout ", {0, 42}},
        {{.onArm = Fire, .onFinished = Destroy}, "timeout destroy free ", {0}},
        // Destroyed inside a call.
        {{.onInsert = Destroy, .onArm = Throw}, "destroy free "},
        {{.onArm = DestroyAndArm}, "destroy free "},
        {{.onArm = DestroyAndThrow}, "destroy free ", {}, true},
        // Not armed, so finished, once.
        {{.onArm = [](eKorTask&) { return -1; }, .onFinished = Destroy}, "destroy free "},
        {{.onArm = Throw, .onFinished = Destroy}, "destroy free ", {}, true},
        // The platform arms the task itself, inside the insertion.
        {{.onInsert = InitTask, .onArm = Fire, .onFinished = Keep}, "timeout ", {0, 42}},
        {{.onInsert = InitTask, .onArm = Fire, .onFinished = Destroy},
         "timeout destroy free ",
         {0}},
    };
    for (const auto& trial : trials) {
        SCOPED_TRACE(&trial - trials);
        g_Steering = trial.steering;
        if (trial.throws) {
            EXPECT_THROW(Schedule(), std::runtime_error);
        } else {
            Schedule();
        }
        EXPECT_EQ(TakeEvents(), trial.events);
        EXPECT_EQ(g_Steering.disarmed, trial.disarmed);
        if (g_pTask != nullptr) {
            delete std::exchange(g_pTask, nullptr);
            EXPECT_EQ(TakeEvents(), "free ");
        }
    }
}

TEST(Timer, AnArmingByThePlatformHoldsWhenThatOfTheLibraryFails)
{
    int armings = 0;
    g_Steering = {.onInsert = InitTask,
                  .onArm =
                      [&](eKorTask& task) {
                          Keep(task);
                          return ++armings == 1 ? 5L : -1L;
                      },
                  .onFinished = Destroy};
    Schedule();
    EXPECT_EQ(TakeEvents(), "");
    g_pTask->eKorTaskTimeInterval(5);
    EXPECT_EQ(armings, 2);
    EXPECT_EQ(g_Steering.disarmed, Ids{5});
    EXPECT_EQ(TakeEvents(), "timeout destroy free ");
}

TEST(Timer, AnotherTimerMayBeScheduledInsideTheArming)
{
    std::vector<eKorTask*> tasks;
    g_Steering.onArm = [&](eKorTask& task) {
        tasks.push_back(&task);
        if (tasks.size() == 1) {
            Schedule();
            task.eKorTaskTimeInterval(1);
        }
        return 1;
    };
    Schedule();
    EXPECT_EQ(TakeEvents(), "timeout ");
    delete tasks.at(0);
    delete tasks.at(1);
    EXPECT_EQ(TakeEvents(), "free free ");
}

TEST(Timer, WithoutTheLockNothingIsScheduledAndAnExpiryIsLeftToTheNext)
{
    const auto withoutTheLock = [](auto operation) {
        const faults::FailNth fault(faults::MUTEX_LOCK);
        operation();
        EXPECT_TRUE(fault.Happened());
    };
    g_Steering.onInsert = Keep;
    withoutTheLock(Schedule);
    EXPECT_EQ(g_pTask, nullptr);
    EXPECT_EQ(TakeEvents(), "free ");
    Schedule();
    withoutTheLock([] { g_pTask->eKorTaskTimeInterval(42); });
    EXPECT_EQ(TakeEvents(), "");
    g_pTask->eKorTaskTimeInterval(42);
    EXPECT_EQ(TakeEvents(), "timeout ");
    withoutTheLock([] { delete g_pTask; });
    EXPECT_EQ(TakeEvents(), "free ");
}
