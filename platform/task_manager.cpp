#include "emsstandin/task_manager.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/timerfd.h>
#include <unistd.h>

#include "platform/task_store.h"

namespace emsstandin {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

/// A timer of the kernel on the monotonic clock, one per manager.
class TaskManager::KernelTimer
{
public:
    KernelTimer() : m_nFile(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC))
    {
        if (m_nFile == -1) {
            throw std::system_error(errno, std::generic_category(),
                                    "task manager: no kernel timer");
        }
    }
    ~KernelTimer() { close(m_nFile); }
    KernelTimer(const KernelTimer&) = delete;
    KernelTimer& operator=(const KernelTimer&) = delete;

    static nanoseconds Now()
    {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
    }

    void Set(microseconds when)
    {
        when = std::max(when, microseconds(1)); // 0 disarms the timer
        const auto whole = std::chrono::floor<seconds>(when);
        const itimerspec spec{{}, {whole.count(), nanoseconds(when - whole).count()}};
        timerfd_settime(m_nFile, TFD_TIMER_ABSTIME, &spec, nullptr);
    }

    void Wait()
    {
        std::uint64_t expiries = 0;
        while (read(m_nFile, &expiries, sizeof expiries) == -1 && errno == EINTR) {
        }
    }

private:
    const int m_nFile;
};

namespace {

std::chrono::microseconds Checked(std::chrono::microseconds unit)
{
    if (unit < microseconds(1) || unit > std::chrono::minutes(1)) {
        throw std::invalid_argument(
            "task manager: unit must be between a microsecond and a minute");
    }
    return unit;
}

} // namespace

TaskManager::TaskManager(TaskManagerOptions options)
    : m_pTimer(options.m_Clock ? nullptr : std::make_unique<KernelTimer>()),
      m_pStore(m_pTimer
                   ? std::make_unique<TaskStore>(Checked(options.m_Unit), KernelTimer::Now,
                                                 [this](microseconds when) { m_pTimer->Set(when); })
                   : std::make_unique<TaskStore>(Checked(options.m_Unit),
                                                 std::move(options.m_Clock), nullptr))
{}

TaskManager::~TaskManager()
{
    Stop();
}

void TaskManager::Start()
{
    if (m_pStore->IsInsideHere()) {
        return;
    }
    const std::lock_guard control(m_ControlLock);
    if (m_pStore->IsRunning()) {
        return;
    }
    if (m_Thread.joinable()) {
        m_Thread.join(); // the thread has ended, as an event has stopped the manager
    }
    m_pStore->Begin();
    if (m_pTimer != nullptr) {
        try {
            m_Thread = std::thread([this] {
                try {
                    while (m_pStore->IsRunning()) {
                        m_pTimer->Wait();
                        m_pStore->Deliver();
                    }
                } catch (...) {
                    m_pStore->End(); // an event ends the thread; Start() may follow
                    throw;
                }
            });
        } catch (...) {
            m_pStore->End();
            throw;
        }
    }
}

void TaskManager::Stop()
{
    if (m_pStore->IsInsideHere()) {
        m_pStore->End();
        return;
    }
    const std::lock_guard control(m_ControlLock);
    m_pStore->End();
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
    m_pStore->DestroyTasks();
}

std::size_t TaskManager::DeliverExpired()
{
    return m_pStore->Deliver();
}

namespace {

constexpr std::size_t MOST_TASK_MANAGERS = 256; // ids are a byte

constinit std::array<std::atomic<TaskManager*>, MOST_TASK_MANAGERS> g_TaskManagers = {};
constinit std::atomic<bool> g_bHasTaskManager = false;
constinit eKorAppMgr g_AppMgr = {};

} // namespace

TaskManager* AddTaskManager(unsigned char id, TaskManagerOptions options)
{
    auto manager = std::make_unique<TaskManager>(std::move(options));
    TaskManager* none = nullptr;
    if (!g_TaskManagers[id].compare_exchange_strong(none, manager.get())) {
        return nullptr;
    }
    g_bHasTaskManager = true;
    return manager.release();
}

} // namespace emsstandin

eKorTaskMgr* eKorAppMgr::FindTaskMgrByID(unsigned char id)
{
    return emsstandin::g_TaskManagers[id];
}

eKorAppMgr* eKorGetAppMgr()
{
    return emsstandin::g_bHasTaskManager ? &emsstandin::g_AppMgr : nullptr;
}
