// Rules on task managers and tasks.
//
// The kit's timers do with the platform what the library's do: a mutex of the timer's own is held
// while its task is inserted and armed, and the expiry and the destruction wait for it, except on
// the thread that arms. A task may be destroyed as soon as it is armed, so what a rule looks at is
// kept outside of it.

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#include <emsplatform/task.h>

#include "rules.h"

namespace {

constexpr int STATE_FINISHED = 3;

using Hook = std::function<void()>;

/// What a task is to do, and what has happened to it.
struct Timer
{
    unsigned int m_nInterval = 1;
    int m_nArmings = 1;
    bool m_bFinishes = true;     // sets state 3 after the expiry
    Hook m_OnArmed = [] {};      // called on the arming thread, while the expiry waits for it
    Hook m_OnExpiry = [] {};     // called when the expiry has disarmed the timer
    Hook m_OnDestroying = [] {}; // called in the destructor

    std::mutex m_ArmingLock;
    const std::thread::id m_ArmingThread = std::this_thread::get_id();
    std::atomic<long> m_lId = 0;
    std::atomic<int> m_nBegun = 0; // expiries that have begun
    std::atomic<int> m_nExpiries = 0;
    std::atomic<int> m_nDestroyed = 0;

    void AwaitArming()
    {
        if (m_ArmingThread != std::this_thread::get_id()) {
            const std::lock_guard guard(m_ArmingLock);
        }
    }

    static void Count(std::atomic<int>& count)
    {
        ++count;
        count.notify_all();
    }

    /// Waits until the task is destroyed, and checks that it has expired once.
    void RequireLife() const
    {
        m_nDestroyed.wait(0);
        Require(m_nExpiries == 1, std::to_string(m_nExpiries) + " expiries, not 1");
        Require(m_nDestroyed == 1, "it was destroyed twice");
    }
};

using TimerPtr = std::shared_ptr<Timer>;

class Task final : public eKorGnlTask, public PSyncHelp
{
public:
    Task(eKorTaskMgr& manager, TimerPtr timer)
        : eKorGnlTask(&manager, "Conformance"), m_pTimer(std::move(timer))
    {}

    ~Task() override
    {
        m_pTimer->AwaitArming();
        m_pTimer->m_OnDestroying();
        Timer::Count(m_pTimer->m_nDestroyed);
    }

    void InitTaskCmdReqProcess(CmdMSG*) override
    {
        const TimerPtr timer = m_pTimer;
        for (int i = 0; i < timer->m_nArmings && timer->m_nBegun == 0; ++i) {
            const long id = SetTaskTimeInterval(timer->m_nInterval);
            if (timer->m_nDestroyed > 0) {
                return; // on this thread
            }
            timer->m_lId = id;
            if (timer->m_nExpiries > 0) {
                DelTaskTimeInterval(id); // the expiry came on this thread, before the id was known
            }
        }
    }

    void eKorTaskTimeInterval(long) override
    {
        const TimerPtr timer = m_pTimer;
        Timer::Count(timer->m_nBegun);
        timer->AwaitArming();
        DelTaskTimeInterval(timer->m_lId);
        timer->m_OnExpiry();
        Timer::Count(timer->m_nExpiries);
        if (timer->m_bFinishes) {
            eKorSetTaskState(STATE_FINISHED);
        }
    }

    static void RequirePlaces()
    {
        Require(std::has_virtual_destructor_v<eKorTask>, "eKorTask has no virtual destructor");
        // The destructor takes two places.
        RequirePlace("InitTaskCmdReqProcess", VirtualPlace(&Task::InitTaskCmdReqProcess), 3);
        RequirePlace("eKorTaskCmdRecv", VirtualPlace(&Task::eKorTaskCmdRecv), 4);
        RequirePlace("eKorTaskCmdResp", VirtualPlace(&Task::eKorTaskCmdResp), 5);
        RequirePlace("eKorTaskTimeInterval", VirtualPlace(&Task::eKorTaskTimeInterval), 6);
        RequirePlace("HandleNoAsn1Msg", VirtualPlace(&Task::HandleNoAsn1Msg), 7);
    }

private:
    const TimerPtr m_pTimer;
};

eKorTaskMgr& Manager(const ConformanceOptions& options)
{
    if (options.m_nTaskMgrId < 0) {
        Skip("the platform has no task managers");
    }
    eKorAppMgr* const appMgr = eKorGetAppMgr();
    Require(appMgr != nullptr, "null from eKorGetAppMgr()");
    eKorTaskMgr* const manager =
        appMgr->FindTaskMgrByID(static_cast<unsigned char>(options.m_nTaskMgrId));
    Require(manager != nullptr, "null from FindTaskMgrByID() for the id of the options");
    return *manager;
}

Task* Insert(eKorTaskMgr& manager, const TimerPtr& timer)
{
    auto* const task = new (std::nothrow) Task(manager, timer);
    manager.AllocReqID(task);
    manager.TMInitInsertTask(task);
    return task;
}

void Schedule(eKorTaskMgr& manager, const TimerPtr& timer)
{
    const std::lock_guard arming(timer->m_ArmingLock);
    Task* const task = Insert(manager, timer);
    if (timer->m_nExpiries == 0) { // else the platform has armed it, and it may be destroyed
        task->InitTaskCmdReqProcess(nullptr);
    }
    timer->m_OnArmed();
}

/// A timer from its beginning to its end.
void RunTimer(eKorTaskMgr& manager, unsigned int interval = 1)
{
    const auto timer = std::make_shared<Timer>();
    timer->m_nInterval = interval;
    Schedule(manager, timer);
    timer->RequireLife();
}

/// The same, with a hook at one moment of it.
void RunTimerWith(eKorTaskMgr& manager, Hook Timer::*moment, Hook hook)
{
    const auto timer = std::make_shared<Timer>();
    (*timer).*moment = std::move(hook);
    Schedule(manager, timer);
    timer->RequireLife();
}

void ScheduleAnother(eKorTaskMgr& manager)
{
    Schedule(manager, std::make_shared<Timer>());
}

/// For a hook: other threads must be able to arm meanwhile.
Hook ScheduleOnAnotherThread(eKorTaskMgr& manager)
{
    return [&manager] { std::thread(ScheduleAnother, std::ref(manager)).join(); };
}

/// Returns when all that was due two units from now has happened.
void PassTime(eKorTaskMgr& manager)
{
    RunTimer(manager, 3);
}

constexpr Rule RULES[] = {
    {"eKorGnlTask.places",
     "The virtual operations must be the destructor, InitTaskCmdReqProcess, eKorTaskCmdRecv, "
     "eKorTaskCmdResp, eKorTaskTimeInterval and HandleNoAsn1Msg, in this order.",
     [](const ConformanceOptions&) { Task::RequirePlaces(); }},
    {"FindTaskMgrByID.unknown_id", "It must return null for an id that no task manager has.",
     [](const ConformanceOptions& options) {
         Manager(options);
         int managers = 0;
         for (int id = 0; id < 256; ++id) {
             managers +=
                 eKorGetAppMgr()->FindTaskMgrByID(static_cast<unsigned char>(id)) != nullptr;
         }
         Require(managers < 256, "a task manager for each id from 0 to 255");
     }},
    // First, as the other rules need these.
    {"SetTaskTimeInterval.end_to_end",
     "An armed task must expire, and must be destroyed when it is at state 3.",
     [](const ConformanceOptions& options) { RunTimer(Manager(options)); }},
    {"eKorTaskTimeInterval.without_lock",
     "While an expiry runs, other threads must be able to insert and arm tasks.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         RunTimerWith(manager, &Timer::m_OnExpiry, ScheduleOnAnotherThread(manager));
     }},
    {"~eKorGnlTask.without_lock",
     "While a task is destroyed, other threads must be able to insert and arm tasks.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         RunTimerWith(manager, &Timer::m_OnDestroying, ScheduleOnAnotherThread(manager));
     }},
    {"AllocReqID.not_inserted", "A task that is not inserted must stay the caller's, to delete.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         const auto timer = std::make_shared<Timer>();
         const auto task = std::make_unique<Task>(manager, timer);
         manager.AllocReqID(task.get());
         PassTime(manager);
         Require(timer->m_nDestroyed == 0, "the platform has destroyed it");
     }},
    {"TMInitInsertTask.finished_unarmed",
     "An inserted task that is set to state 3 must be destroyed, also outside an event and when it "
     "was never armed.",
     [](const ConformanceOptions& options) {
         const auto timer = std::make_shared<Timer>();
         {
             const std::lock_guard arming(timer->m_ArmingLock);
             Insert(Manager(options), timer)->eKorSetTaskState(STATE_FINISHED);
         }
         timer->m_nDestroyed.wait(0);
     }},
    {"SetTaskTimeInterval.expiry_waits",
     "While an expiry waits for the thread that armed it, that thread must be able to arm again.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         const auto timer = std::make_shared<Timer>();
         timer->m_OnArmed = [&manager, &timer] {
             timer->m_nBegun.wait(0);
             ScheduleAnother(manager);
         };
         Schedule(manager, timer);
         timer->RequireLife();
     }},
    {"SetTaskTimeInterval.in_expiry", "An expiry must be able to insert and arm another task.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         RunTimerWith(manager, &Timer::m_OnExpiry, [&manager] { ScheduleAnother(manager); });
     }},
    {"SetTaskTimeInterval.any_thread", "Any number of threads may arm at the same time.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         OnFourThreads([&manager](int) {
             for (int times = 0; times < 25; ++times) {
                 ScheduleAnother(manager);
             }
             RunTimer(manager);
         });
     }},
    {"DelTaskTimeInterval.disarms",
     "A disarmed timer must not expire again, and an id that is not armed must be ignored.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         const auto timer = std::make_shared<Timer>();
         timer->m_bFinishes = false;
         Task* task = nullptr;
         {
             const std::lock_guard arming(timer->m_ArmingLock);
             task = Insert(manager, timer);
             task->DelTaskTimeInterval(0);
             if (timer->m_lId == 0) { // else the platform has armed it
                 task->InitTaskCmdReqProcess(nullptr);
             }
         }
         timer->m_nExpiries.wait(0);
         PassTime(manager);
         task->eKorSetTaskState(STATE_FINISHED);
         timer->RequireLife();
     }},
    {"eKorSetTaskState.nothing_after",
     "A task at state 3 must not expire again, whatever else is armed for it.",
     [](const ConformanceOptions& options) {
         eKorTaskMgr& manager = Manager(options);
         const auto timer = std::make_shared<Timer>();
         timer->m_nArmings = 2;
         Schedule(manager, timer);
         PassTime(manager);
         timer->RequireLife();
     }},
};

} // namespace

std::span<const Rule> TaskRules()
{
    return RULES;
}
