#include "host/soak/load.h"

#include <cstddef>
#include <deque>
#include <mutex>

#include "emsutil/transaction_log.h"

namespace emshost {

namespace {

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

} // namespace

std::unique_ptr<SoakLoad> MakeLogLoad()
{
    return std::make_unique<LogLoad>();
}

} // namespace emshost
