#include "emsutil/transaction_log.h"

#include <memory>

#include "soak/load.h"

namespace soak {

using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

namespace {

constexpr unsigned long BUFFERS = 3;

/// Each thread creates logs with buffers, and passes the handle value of each on to the thread that
/// creates the next one. All work on one shared log besides.
class TransactionLogLoad final : public Load
{
public:
    using Load::Load;

    void Work(int, const Pace& pace) override
    {
        pace.Repeat([this] {
            TakeOver(m_Latest.exchange(CreateLog()));
            UseSharedLog();
        });
    }

    std::vector<Total> Finish() override
    {
        TakeOver(m_Latest.exchange(0));
        const int references = m_Shared.AddRef(1); // all others are released
        m_Shared.Release();
        return {{"logs attached", m_nLogs, m_nAttached},
                {"buffers found", m_nBuffers, m_nFound},
                {"buffers deleted", m_nBuffers, m_nDeleted},
                {"references of a shared log", 1, static_cast<std::uint64_t>(references)}};
    }

private:
    class Buffer final : public QNTransactionBuffer
    {
    public:
        explicit Buffer(Count& deleted) : m_Deleted(deleted) {}
        ~Buffer() override { ++m_Deleted; }
        Buffer(const Buffer&) = delete;
        Buffer& operator=(const Buffer&) = delete;

    private:
        Count& m_Deleted;
    };

    void AddBuffer(QNTransactionLog& log, unsigned long number)
    {
        ++m_nBuffers;
        log.AddBuffer("soak", number, std::make_unique<Buffer>(m_nDeleted).release());
    }

    unsigned long CreateLog()
    {
        QNTransactionLog log;
        for (unsigned long number = 0; number < BUFFERS; ++number) {
            AddBuffer(log, number);
        }
        log.AddRef(1);
        ++m_nLogs;
        return log.GetHandle();
    }

    /// Takes one buffer out; the others are deleted with the log.
    void TakeOver(unsigned long value)
    {
        if (value == 0) { // there is no earlier log
            return;
        }
        QNTransactionLog log(value);
        m_nAttached += log.IsValid() ? 1 : 0;
        for (unsigned long number = 0; number < BUFFERS; ++number) {
            m_nFound += log.GetBuffer("soak", number) != nullptr ? 1 : 0;
        }
        const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", value % BUFFERS));
        log.Release();
    }

    void UseSharedLog()
    {
        QNTransactionLog log(m_nSharedValue);
        const unsigned long number = m_nNumber++;
        log.AddRef(2);
        AddBuffer(log, number);
        m_nFound += log.GetBuffer("soak", number) != nullptr ? 1 : 0;
        const std::unique_ptr<QNTransactionBuffer> taken(log.RemoveBuffer("soak", number));
        log.Release();
        log.Release();
    }

    QNTransactionLog m_Shared;
    const unsigned long m_nSharedValue = m_Shared.GetHandle();
    std::atomic<unsigned long> m_Latest = 0;
    std::atomic<unsigned long> m_nNumber = 0;
    Count m_nLogs = 0;
    Count m_nAttached = 0;
    Count m_nBuffers = 0;
    Count m_nFound = 0;
    Count m_nDeleted = 0;
};

} // namespace

std::unique_ptr<Load> CreateTransactionLogLoad(int threads)
{
    return std::make_unique<TransactionLogLoad>(threads);
}

} // namespace soak
