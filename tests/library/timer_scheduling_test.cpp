// What a platform may do while it inserts and arms a timer's task: deliver the expiry or destroy
// the task, on another thread or inside the very call. The task framework here is the test's own.

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

void Schedule()
{
    static EmsUtilTimerInterface timer = {[](void*) { g_Events += "timeout "; },
                                          [](void* param) { return param; },
                                          [](void*) { g_Events += "free "; }};
    int param = 5;
    ScheduleEmsUtilTimer(7, timer, &param);
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
    return Throw(task);
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

long eKorTask::SetTaskTimeInterval(unsigned int)
{
    return g_Steering.onArm(*this);
}

void eKorTask::DelTaskTimeInterval(long id)
{
    g_Steering.disarmed.push_back(id);
}

void eKorTask::eKorSetTaskState(int)
{
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

eKorTaskMgr* eKorAppMgr::FindTaskMgrByID(unsigned char)
{
    return &g_Manager;
}

eKorAppMgr* eKorGetAppMgr()
{
    return &g_AppMgr;
}

TEST(TimerScheduling, OtherThreadsWaitForTheArming)
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

TEST(TimerScheduling, AnyCallMayFireOrDestroyTheTaskOrFail)
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

TEST(TimerScheduling, AnArmingByThePlatformHoldsWhenThatOfTheLibraryFails)
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

TEST(TimerScheduling, AnotherTimerMayBeScheduledInsideTheArming)
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

TEST(TimerScheduling, WithoutTheLockNothingIsScheduledAndAnExpiryIsLeftToTheNext)
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
