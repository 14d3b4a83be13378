#include "host/soak_load.h"

#include <array>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <fstream>
#include <list>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include <emsplatform/platform.h>
#include <emsplatform/setup.h>
#include <emsplatform/task_manager.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "emsutil/timer.h"
#include "emsutil/transaction_log.h"
#include "host/console.h"
#include "host/temporary_install.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using namespace std::chrono_literals;
using Count = std::atomic<std::uint64_t>;

constexpr int BURST = 100;

void Pause()
{
    std::this_thread::sleep_for(1ms);
}

/// Steps in bursts with pauses between, so that no service keeps the others from their turn.
template <class Step>
void RepeatUntil(const SoakLoad::Stop& stop, Step step)
{
    while (!stop) {
        for (int i = 0; i < BURST; ++i) {
            step();
        }
        Pause();
    }
}

/// What the loads have the library write to the debug interface. Never destroyed, as a line may
/// come until the process is gone.
struct DebugLines
{
    Count m_nGuard = 0;
    Count m_nStatistics = 0;
    Count m_nOther = 0;

    static DebugLines& Instance()
    {
        static auto* const lines = new DebugLines;
        return *lines;
    }

    void CountLine(const std::string& text)
    {
        if (text.starts_with("soak guard ") || text.starts_with("used time(ms): ")) {
            ++m_nGuard;
        } else if (text.starts_with("Ems Thread Information\n")) {
            ++m_nStatistics;
        } else {
            ++m_nOther;
            Console::Instance().Message(text);
        }
    }
};

/// Several producers queue commands of ascending numbers; one thread drains.
class CommandLoad final : public SoakLoad
{
public:
    CommandLoad()
    {
        g_pLoad = this;
        std::string name = "soak-queued";
        const RegEmsUtilCmd queued(name, [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            g_pLoad->CountQueued(*cmd);
            return 0;
        });
        name = "soak-at-once";
        const RegEmsUtilCmd atOnce(name, [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
            cmd->name = "done";
            return 0;
        });
    }

    std::vector<Work> Works() override
    {
        std::vector<Work> works(m_Producers.size());
        for (std::size_t i = 0; i < works.size(); ++i) {
            works[i] = [this, i](const Stop& stop) { Produce(i, stop); };
        }
        works.emplace_back([this](const Stop&) { Drain(); });
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"commands run", m_nAdded, m_nRun},
                {"commands in order", m_nAdded, m_nInOrder},
                {"commands run at once", m_nAtOnce, m_nSeenAtOnce}};
    }

private:
    struct Producer
    {
        std::uint64_t m_nNumber = 0; // of the producer
        std::uint64_t m_nNext = 0;   // of the thread that drains
    };

    void Produce(std::size_t index, const Stop& stop)
    {
        EmsGeneralCmd cmd;
        EmsNameAndValueStringTypePair& pair = cmd.nvtps.nvtps.emplace_back();
        EmsNameAndValueStringTypePair& repeated =
            cmd.objs.objs.emplace_back().nvtps.nvtps.emplace_back();
        pair.name = std::to_string(index);
        RepeatUntil(stop, [&] {
            cmd.name = "soak-queued";
            pair.value = std::to_string(m_Producers[index].m_nNumber++);
            repeated.value = pair.value;
            addGeneralCmd(cmd);
            ++m_nAdded;

            cmd.name = "soak-at-once";
            runGeneralCmd(cmd);
            ++m_nAtOnce;
            m_nSeenAtOnce += cmd.name == "done" ? 1 : 0;
        });
        --m_nProducing;
    }

    /// A producer may be waiting for room when it is to stop.
    void Drain()
    {
        while (m_nProducing > 0) {
            runGeneralCmd();
            Pause();
        }
        runGeneralCmd();
    }

    void CountQueued(const EmsGeneralCmd& cmd)
    {
        const EmsNameAndValueStringTypePair& pair = cmd.nvtps.nvtps.front();
        Producer& producer = m_Producers[std::stoul(pair.name)];
        const std::uint64_t number = std::stoull(pair.value);
        const bool whole = cmd.objs.objs.front().nvtps.nvtps.front().value == pair.value;
        ++m_nRun;
        m_nInOrder += whole && number == producer.m_nNext ? 1 : 0;
        producer.m_nNext = number + 1;
    }

    static constinit inline CommandLoad* g_pLoad = nullptr; // handlers get no context

    std::array<Producer, 3> m_Producers;
    std::atomic<std::size_t> m_nProducing = m_Producers.size();
    Count m_nAdded = 0;
    Count m_nRun = 0;
    Count m_nInOrder = 0;
    Count m_nAtOnce = 0;
    Count m_nSeenAtOnce = 0;
};

/// Threads go through monitored stretches; one thread polls.
class MonitorLoad final : public SoakLoad
{
public:
    std::vector<Work> Works() override
    {
        std::vector<Work> works;
        for (int i = 0; i < WORKERS; ++i) {
            works.emplace_back([this, i](const Stop& stop) { WorkInStretches(i == 0, stop); });
        }
        works.emplace_back([this](const Stop& stop) { Poll(stop); });
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        std::list<EmsThreadInfo> records;
        GetEmsThreadInfo(records, 0);
        std::uint64_t events = 0;
        std::uint64_t values = 0;
        for (const EmsThreadInfo& record : records) {
            events += static_cast<std::uint64_t>(record.m_llRecvs);
            values += std::stoull(record.m_InfoMap.at("stretches").first);
        }
        return {{"stretches, their events", 2 * m_nStretches, events},
                {"stretches, their values", m_nStretches, values},
                {"polls that find all well", m_nPolls, m_nGoodPolls},
                {"statistics", m_nStatistics, DebugLines::Instance().m_nStatistics}};
    }

private:
    static constexpr int WORKERS = 3;
    static constexpr long NEVER = 3600; // seconds that no stretch takes

    void WorkInStretches(bool isReport, const Stop& stop)
    {
        EmsThreadInfoMap values;
        if (isReport) {
            AddEmsThreadInfo(values, "Report", "yes");
        }
        std::uint64_t stretches = 0;
        RepeatUntil(stop, [&] {
            AddEmsThreadInfo(values, "stretches", std::to_string(++stretches).c_str());
            const RegEmsThreadInfo inside(&values);
        });
        m_nStretches += stretches;
    }

    void Poll(const Stop& stop)
    {
        long long latest = 0;
        while (!stop) {
            std::list<EmsThreadInfo> records;
            GetEmsThreadInfo(records, 0);
            long long events = 0;
            for (const EmsThreadInfo& record : records) {
                events += record.m_llRecvs;
            }
            std::list<EmsThreadInfo> overdue;
            GetEmsThreadInfo(overdue, NEVER);
            const bool good = events >= std::exchange(latest, events) && overdue.empty() &&
                              !IsEmsThreadTimeout(NEVER);
            ++m_nPolls;
            m_nGoodPolls += good ? 1 : 0;
            StatEmsThreadInfo();
            ++m_nStatistics;
            std::this_thread::sleep_for(10ms);
        }
    }

    Count m_nStretches = 0;
    Count m_nPolls = 0;
    Count m_nGoodPolls = 0;
    Count m_nStatistics = 0;
};

/// Threads schedule timers on a task manager, as fast as these are freed.
class TimerLoad final : public SoakLoad
{
public:
    TimerLoad()
    {
        emsplatform::TaskManagerOptions options;
        options.m_Unit = 1ms;
        m_pManager = emsplatform::AddTaskManager(MANAGER, options);
        m_pManager->Start();
    }

    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) { RepeatUntil(stop, [&] { Schedule(stop); }); }};
    }

    std::vector<SoakTotal> Finish() override
    {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (m_nFreed < m_nScheduled && std::chrono::steady_clock::now() < deadline) {
            Pause();
        }
        m_pManager->Stop();
        return {{"timers copied", m_nScheduled, m_nCopied},
                {"timers fired", m_nScheduled, m_nFired},
                {"timers freed", m_nScheduled, m_nFreed}};
    }

private:
    static constexpr unsigned char MANAGER = 1;
    static constexpr std::uint64_t MOST_PENDING = 1000;

    /// What the library has copied for the timer.
    struct Data
    {
        TimerLoad* m_pLoad;
    };

    void Schedule(const Stop& stop)
    {
        while (m_nScheduled > m_nFreed + MOST_PENDING && !stop) {
            Pause();
        }
        EmsUtilTimerInterface timer = {
            [](void* data) { ++static_cast<Data*>(data)->m_pLoad->m_nFired; },
            [](void* data) -> void* {
                ++static_cast<Data*>(data)->m_pLoad->m_nCopied;
                return new Data(*static_cast<Data*>(data));
            },
            [](void* data) {
                ++static_cast<Data*>(data)->m_pLoad->m_nFreed;
                delete static_cast<Data*>(data);
            }};
        Data data{this};
        ScheduleEmsUtilTimer(MANAGER, timer, &data);
        ++m_nScheduled;
    }

    emsplatform::TaskManager* m_pManager;
    Count m_nScheduled = 0;
    Count m_nCopied = 0;
    Count m_nFired = 0;
    Count m_nFreed = 0;
};

/// Threads make logs with buffers and pass their handle values on; others attach, take one buffer
/// out and release. The buffers that stay go with the log, so none is left when no log is.
class LogLoad final : public SoakLoad
{
public:
    std::vector<Work> Works() override
    {
        const Work make = [this](const Stop& stop) {
            RepeatUntil(stop, [&] { MakeLog(stop); });
            --m_nMaking;
        };
        const Work take = [this](const Stop&) {
            while (m_nMaking > 0) {
                WorkOnLogs();
                Pause();
            }
            WorkOnLogs();
        };
        return {make, make, take, take};
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"logs attached", m_nLogs, m_nAttached},
                {"buffers found", m_nLogs * BUFFERS, m_nFound},
                {"buffers deleted", m_nMade, m_nDeleted}};
    }

private:
    static constexpr unsigned long BUFFERS = 3;
    static constexpr std::size_t MOST_WAITING = 1000;

    class Buffer final : public NSQN_util::QNTransactionBuffer
    {
    public:
        explicit Buffer(LogLoad& load) : m_Load(load) { ++m_Load.m_nMade; }
        ~Buffer() override { ++m_Load.m_nDeleted; }
        Buffer(const Buffer&) = delete;
        Buffer& operator=(const Buffer&) = delete;

    private:
        LogLoad& m_Load;
    };

    void MakeLog(const Stop& stop)
    {
        while (Waiting() > MOST_WAITING && !stop) {
            Pause();
        }
        NSQN_util::QNTransactionLog log;
        for (unsigned long number = 0; number < BUFFERS; ++number) {
            log.AddBuffer("soak", number, std::make_unique<Buffer>(*this).release());
        }
        log.AddRef(1); // the one who attaches releases it
        ++m_nLogs;
        const std::lock_guard guard(m_Mutex);
        m_Values.push_back(log.GetHandle());
    }

    std::size_t Waiting()
    {
        const std::lock_guard guard(m_Mutex);
        return m_Values.size();
    }

    /// While there are any.
    void WorkOnLogs()
    {
        for (unsigned long value = NextValue(); value != 0; value = NextValue()) {
            NSQN_util::QNTransactionLog log(value);
            m_nAttached += log.IsValid() ? 1 : 0;
            for (unsigned long number = 0; number < BUFFERS; ++number) {
                m_nFound += log.GetBuffer("soak", number) != nullptr ? 1 : 0;
            }
            const std::unique_ptr<NSQN_util::QNTransactionBuffer> taken(
                log.RemoveBuffer("soak", value % BUFFERS));
            log.Release();
        }
    }

    /// 0, which is no handle value, when there is none.
    unsigned long NextValue()
    {
        const std::lock_guard guard(m_Mutex);
        if (m_Values.empty()) {
            return 0;
        }
        const unsigned long value = m_Values.front();
        m_Values.pop_front();
        return value;
    }

    std::mutex m_Mutex; // guards the next
    std::deque<unsigned long> m_Values;
    std::atomic<int> m_nMaking = 2;
    Count m_nLogs = 0;
    Count m_nAttached = 0;
    Count m_nFound = 0;
    Count m_nMade = 0;
    Count m_nDeleted = 0;
};

/// Threads write reports and traces in turn. After each burst they meet, and while all stand still
/// one of them looks at the file line by line and removes it.
class ReportLoad final : public SoakLoad
{
public:
    explicit ReportLoad(std::function<void()> atRest) : m_AtRest(std::move(atRest)) {}

    std::vector<Work> Works() override
    {
        std::vector<Work> works(m_Writers.size());
        for (std::size_t i = 0; i < works.size(); ++i) {
            works[i] = [this, i](const Stop& stop) { Write(i, stop); };
        }
        return works;
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"report lines", m_nWritten, m_nLines}, {"report lines whole", m_nLines, m_nWhole}};
    }

private:
    static constexpr std::size_t STAMP = 24; // characters in front of a report

    struct Writer
    {
        std::uint64_t m_nNumber = 0; // of the writer
        std::uint64_t m_nNext = 0;   // at the meeting
    };

    static std::string Entry(std::size_t writer, std::uint64_t number)
    {
        return "writer " + std::to_string(writer) + " entry " + std::to_string(number);
    }

    static bool IsReport(std::uint64_t number) { return number % 2 == 0; }

    void Write(std::size_t index, const Stop& stop)
    {
        while (!stop) {
            for (int i = 0; i < BURST; ++i) {
                const std::uint64_t number = m_Writers[index].m_nNumber++;
                const std::string entry = Entry(index, number);
                (IsReport(number) ? EmsUtilReport : EmsUtilTraced)("%s\n", entry.c_str());
                ++m_nWritten;
            }
            m_Meeting.arrive_and_wait();
            Pause();
        }
        m_Meeting.arrive_and_drop();
    }

    void CheckFile()
    {
        const std::string path = m_Install.ReportFolder() + '/' + NSQN_util::g_ProcName + ".rpt";
        {
            std::ifstream file(path);
            for (std::string line; std::getline(file, line);) {
                ++m_nLines;
                m_nWhole += !file.eof() && IsNextOfSomeone(line) ? 1 : 0;
            }
        }
        std::filesystem::remove(path);
        m_AtRest();
    }

    bool IsNextOfSomeone(std::string_view line)
    {
        for (std::size_t i = 0; i < m_Writers.size(); ++i) {
            std::uint64_t& next = m_Writers[i].m_nNext;
            const std::string entry = Entry(i, next);
            if (line.ends_with(entry) &&
                line.size() == entry.size() + (IsReport(next) ? STAMP : 0)) {
                ++next;
                return true;
            }
        }
        return false;
    }

    struct Check
    {
        ReportLoad* m_pLoad;
        void operator()() noexcept { m_pLoad->CheckFile(); }
    };

    const TemporaryInstall m_Install;
    const std::function<void()> m_AtRest;
    std::array<Writer, 2> m_Writers;
    Count m_nWritten = 0;
    std::uint64_t m_nLines = 0; // this and the next are of the meeting
    std::uint64_t m_nWhole = 0;
    std::barrier<Check> m_Meeting{static_cast<std::ptrdiff_t>(m_Writers.size()), Check{this}};
};

/// Threads guard their time.
class GuardLoad final : public SoakLoad
{
public:
    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) {
                    RepeatUntil(stop, [this] {
                        const AgentTimeGuard guard("soak guard %d", BURST);
                        ++m_nGuards;
                    });
                }};
    }

    std::vector<SoakTotal> Finish() override
    {
        const DebugLines& lines = DebugLines::Instance();
        return {{"time guards, their lines", 2 * m_nGuards, lines.m_nGuard},
                {"debug lines expected", lines.m_nGuard + lines.m_nStatistics + lines.m_nOther,
                 lines.m_nGuard + lines.m_nStatistics}};
    }

private:
    Count m_nGuards = 0;
};

/// Threads insert and erase texts under ever new ids. Nothing reads them back: what is not erased
/// shows as memory that grows.
class LockErrorLoad final : public SoakLoad
{
public:
    LockErrorLoad() { std::atomic_ref(NSQN_util::g_bEnableMitLockErrMgr).store(true); }

    std::vector<Work> Works() override
    {
        return {2, [this](const Stop& stop) {
                    RepeatUntil(stop, [this] {
                        NSQN_util::QNMitLockErrMgr& locks = *NSQN_util::QNMitLockErrMgr::Instance();
                        const int id = static_cast<int>(m_nInserted++ & 0x7fffffff);
                        locks.InsertThrIDandInfo(id, "waits for a lock that everybody wants");
                        locks.EraseThrIDandInfo(id);
                        ++m_nErased;
                    });
                }};
    }

    std::vector<SoakTotal> Finish() override
    {
        return {{"lock errors erased", m_nInserted, m_nErased}};
    }

private:
    Count m_nInserted = 0;
    Count m_nErased = 0;
};

} // namespace

std::vector<std::unique_ptr<SoakLoad>> MakeSoakLoads(std::function<void()> atRest)
{
    emsplatform::SetDebugCallback([](emsplatform::DebugOperation, int, const std::string& text) {
        DebugLines::Instance().CountLine(text);
    });
    std::vector<std::unique_ptr<SoakLoad>> loads;
    loads.push_back(std::make_unique<CommandLoad>());
    loads.push_back(std::make_unique<MonitorLoad>());
    loads.push_back(std::make_unique<TimerLoad>());
    loads.push_back(std::make_unique<LogLoad>());
    loads.push_back(std::make_unique<ReportLoad>(std::move(atRest)));
    loads.push_back(std::make_unique<GuardLoad>());
    loads.push_back(std::make_unique<LockErrorLoad>());
    return loads;
}

} // namespace emshost
