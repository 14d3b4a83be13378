#include <climits>
#include <memory>
#include <optional>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

#include "tests/support/test_platform.h"
#include "util/translog.h"

using namespace NSQN_util;
using Lines = std::vector<std::string>;

namespace {

std::string g_Deleted; // the names of the buffers

struct Buffer : QNTransactionBuffer
{
    explicit Buffer(std::string name) : m_strName(std::move(name)) {}
    ~Buffer() override { g_Deleted += m_strName + ' '; }
    const std::string m_strName;
};

std::pair<int, int> Counts(unsigned long handle)
{
    const QNTransactionLogImpl& log = *g_TransLogMap.at(handle);
    return {log.m_nRefCount, log.m_nRefCountEx};
}

/// The check line with this number.
std::string Line(int number)
{
    static const std::map<int, std::string> texts = {
        {224, "QN_LOG_IF_NOT_TRUE: ret >= TRANSLOG_REFCOUNT_NULL"},
        {262, "QN_RETURN_ERRORCODE_IF_NOT_TRUE: NULL != m_pImpl"},
        {353, "QN_LOG_IF_NOT_TRUE: m_nRefCount <= TRANSLOG_REFCOUNT_NULL"},
        {354, "QN_LOG_IF_NOT_TRUE: m_nRefCountEx <= TRANSLOG_REFCOUNT_NULL"},
        {402, "QN_LOG_IF_NOT_TRUE: m_nRefCount > TRANSLOG_REFCOUNT_NULL"},
        {419, "QN_LOG_IF_NOT_TRUE: n > TRANSLOG_REFCOUNT_NULL"},
        {439, "QN_LOG_IF_NOT_TRUE: m_nRefCountEx > TRANSLOG_REFCOUNT_NULL"},
        {440, "QN_LOG_IF_NOT_TRUE: m_nRefCount > m_nRefCountEx"},
        {467, "QN_RETURN_IF_NOT_TRUE: NULL != pBuffer"},
        {471, "QN_RETURN_IF_NOT_TRUE: m_TransBufMap.find(key) == m_TransBufMap.end()"},
    };
    return "1|file:translog:" + std::to_string(number) + "," + texts.at(number);
}

} // namespace

TEST(TransactionLog, HandleValuesCountFromOneAndSkipZeroAndThoseInUse)
{
    QNTransactionLog first;
    EXPECT_EQ(first.GetHandle(), 1u);
    EXPECT_EQ(QNTransactionLog().GetHandle(), 2u);
    QNTransactionLog::ClearAllLog(); // `first` now points to a destroyed log
    TakeLines();
    EXPECT_EQ(QNTransactionLog().GetHandle(), 3u);

    QNTransactionLog one; // 4
    g_nNextTransLogHandle = ULONG_MAX;
    QNTransactionLog last;
    EXPECT_EQ(last.GetHandle(), ULONG_MAX);
    EXPECT_EQ(QNTransactionLog(ULONG_MAX).GetHandle(), ULONG_MAX);
    EXPECT_EQ(QNTransactionLog().GetHandle(), 1u);
    g_nNextTransLogHandle = 4;
    EXPECT_EQ(QNTransactionLog().GetHandle(), 5u);
    EXPECT_EQ(TakeLines(), Lines{});
    new (&first) QNTransactionLog(0ul); // its log has been destroyed
}

TEST(TransactionLog, AnUnattachedHandleDoesNothing)
{
    unsigned long destroyed = QNTransactionLog().GetHandle();
    for (const unsigned long handle : {0ul, destroyed, ULONG_MAX}) {
        QNTransactionLog log(handle);
        EXPECT_FALSE(log.IsValid());
        EXPECT_EQ(log.AddRef(-5), 0);
        EXPECT_EQ(log.Release(), 0);
        log.AddBuffer("a", 1, nullptr);
        EXPECT_EQ(log.GetBuffer("a", 1), nullptr);
        EXPECT_EQ(log.RemoveBuffer("a", 1), nullptr);
        EXPECT_EQ(TakeLines(), Lines{});
        EXPECT_EQ(log.GetHandle(), 0u);
        EXPECT_EQ(TakeLines(), Lines{Line(262)});
    }
}

TEST(TransactionLog, ExtraReferencesAreCountedAndMisuseOnlyReported)
{
    QNTransactionLog log;
    const unsigned long handle = log.GetHandle();
    EXPECT_EQ(log.AddRef(1), 1);
    EXPECT_EQ(log.AddRef(2), 3);
    EXPECT_EQ(log.Release(), 2);
    EXPECT_EQ(Counts(handle), std::pair(3, 2));
    EXPECT_EQ(log.AddRef(INT_MAX), 2);
    EXPECT_EQ(log.AddRef(INT_MAX - 3), INT_MAX - 1);
    EXPECT_EQ(log.AddRef(1), INT_MAX - 1);
    EXPECT_FALSE(QNTransactionLog(handle).IsValid()); // no room to count it
    EXPECT_EQ(Counts(handle), std::pair(INT_MAX, INT_MAX - 1));

    EXPECT_EQ(log.AddRef(0), INT_MAX - 1);
    EXPECT_EQ(log.AddRef(INT_MIN), INT_MAX - 1);
    EXPECT_EQ(Counts(handle), std::pair(INT_MAX, INT_MAX - 1));
    EXPECT_EQ(TakeLines(), (Lines{Line(419), Line(419)}));

    QNTransactionLog other;
    EXPECT_EQ(other.Release(), 0);
    EXPECT_EQ(Counts(other.GetHandle()), std::pair(1, 0));
    EXPECT_EQ(TakeLines(), Lines{Line(439)});

    // No caller can cause these counts: the checks are there for a damaged log.
    QNTransactionLogImpl& damaged = *g_TransLogMap.at(other.GetHandle());
    damaged.m_nRefCount = 2;
    damaged.m_nRefCountEx = 2;
    EXPECT_EQ(other.Release(), 1);
    EXPECT_EQ(TakeLines(), Lines{Line(440)});
    damaged.m_nRefCount = -5;
    damaged.m_nRefCountEx = -3;
    EXPECT_EQ(other.Release(), -3);
    EXPECT_EQ(TakeLines(), (Lines{Line(439), Line(440), Line(224)}));
    EXPECT_EQ(other.AddRef(4), 1); // a count below 0 has room for any number
    EXPECT_EQ(Counts(other.GetHandle()), std::pair(-1, 1));
    damaged.m_nRefCount = 0;
    std::destroy_at(&other);
    EXPECT_EQ(TakeLines(), (Lines{Line(402), Line(354)}));
    new (&other) QNTransactionLog(0ul);
    QNTransactionLog::ClearAllLog(); // one of these has references
    new (&log) QNTransactionLog(0ul);
}

TEST(TransactionLog, ClearAllLogDeletesLogsAndBuffersInOrder)
{
    for (const char* name : {"first", "second"}) {
        QNTransactionLog orphan;
        orphan.AddRef(1);
        orphan.AddBuffer("b", 2, new Buffer(std::string(name) + "b2"));
        orphan.AddBuffer("a", 1, new Buffer(std::string(name) + "a1"));
    }
    g_TransLogMap[99] = nullptr;
    QNTransactionLog::ClearAllLog();
    EXPECT_EQ(std::exchange(g_Deleted, {}), "firsta1 firstb2 seconda1 secondb2 ");
    EXPECT_EQ(TakeLines(), (Lines{Line(353), Line(354), Line(353), Line(354)}));
    EXPECT_TRUE(g_TransLogMap.empty());
    EXPECT_EQ(g_nNextTransLogHandle, 3u);
    QNTransactionLog::ClearAllLog();
}

TEST(TransactionLog, BuffersAreKeptByNameAndNumber)
{
    const std::string nul("a\0", 2);
    auto log = std::make_unique<QNTransactionLog>();
    QNTransactionLog other(log->GetHandle());
    auto* const p = new Buffer("a1");
    log->AddBuffer("a", 1, p);
    log->AddBuffer("a", 1, p);
    log->AddBuffer("a", 1, nullptr);
    log->AddBuffer("b", 1, nullptr);
    EXPECT_EQ(TakeLines(), (Lines{Line(471), Line(467), Line(467)}));
    EXPECT_EQ(other.GetBuffer("a", 1), p);
    for (const auto& [name, number] : {std::pair("a", 2ul), {"A", 1ul}, {"b", 1ul}, {"", 1ul}}) {
        EXPECT_EQ(log->GetBuffer(name, number), nullptr);
        EXPECT_EQ(log->RemoveBuffer(name, number), nullptr);
    }
    other.AddBuffer("b", 2, new Buffer("b2"));
    other.AddBuffer("\xff", 0, new Buffer("ff"));
    other.AddBuffer("ab", 0, new Buffer("ab0"));
    other.AddBuffer("a", ULONG_MAX, new Buffer("aMax"));
    other.AddBuffer(nul, 0, new Buffer("aNul"));
    other.AddBuffer("", 7, new Buffer("empty7"));
    other.AddBuffer("taken", 1, new Buffer("taken"));
    const std::unique_ptr<QNTransactionBuffer> taken(log->RemoveBuffer("taken", 1));
    EXPECT_NE(taken, nullptr);
    EXPECT_EQ(log->RemoveBuffer("taken", 1), nullptr);
    log.reset();
    EXPECT_EQ(std::exchange(g_Deleted, {}), "");
    std::destroy_at(&other);
    EXPECT_EQ(std::exchange(g_Deleted, {}), "empty7 a1 aMax aNul ab0 b2 ff ");
    new (&other) QNTransactionLog(0ul);
    EXPECT_EQ(TakeLines(), Lines{});
}

TEST(TransactionLog, AnExceptionOrACancellationInACheckLineDoesNotStopADestruction)
{
    QNTransactionLog damaged;
    damaged.AddBuffer("a", 1, new Buffer("a1"));
    g_TransLogMap.at(damaged.GetHandle())->m_nRefCount = 0;
    ThePlatform().onLine = [](const std::string&) { throw std::runtime_error("disk full"); };
    std::destroy_at(&damaged); // line 402
    EXPECT_EQ(std::exchange(g_Deleted, {}), "a1 ");
    new (&damaged) QNTransactionLog(0ul);
    QNTransactionLog().AddRef(1);
    EXPECT_NO_THROW(QNTransactionLog::ClearAllLog()); // lines 353 and 354

    ThePlatform().onLine = [](const std::string&) { pthread_testcancel(); };
    std::thread([] {
        std::optional<QNTransactionLog> log(std::in_place);
        log->AddBuffer("a", 1, new Buffer("a1"));
        log->AddRef(1);
        log.reset();
        pthread_cancel(pthread_self());
        QNTransactionLog::ClearAllLog();
    }).join();
    EXPECT_EQ(std::exchange(g_Deleted, {}), "a1 ");
}
