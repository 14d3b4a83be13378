#include <barrier>
#include <climits>
#include <thread>

#include <gtest/gtest.h>

#include "agent/qn_check.h"
#include "emsutil/diagnostics.h"
#include "tests/faults.h"
#include "tests/test_platform.h"

using namespace NSQN_EMSUTIL_AGENT;
using Lines = std::vector<std::string>;

namespace {

/// string_format without the compiler's view of the format, for formats that it would refuse.
std::string (*const FormatUnchecked)(const char*, ...) = string_format;

std::vector<std::size_t> TakeFormatCounts()
{
    return std::move(ThePlatform().formatCounts);
}

} // namespace

TEST(StringFormat, ReturnsTextsOfAnyLengthWholeAfterTheFewestDoublings)
{
    const struct
    {
        int length;
        std::vector<std::size_t> counts;
    } cases[] = {
        {0, {511}},         {1, {511}},          {511, {511}},
        {512, {511, 1023}}, {1023, {511, 1023}}, {5000, {511, 1023, 2047, 4095, 8191}},
    };
    for (const auto& test : cases) {
        const std::string text(static_cast<std::size_t>(test.length), 'a');
        EXPECT_EQ(string_format("%s", text.c_str()), text);
        EXPECT_EQ(TakeFormatCounts(), test.counts) << test.length;
    }
    const std::string huge(100'000'000, 'h');
    EXPECT_TRUE(string_format("%s", huge.c_str()) == huge);
    EXPECT_EQ(TakeFormatCounts().size(), 19u); // 512 * 2^18 is the first that holds it
}

TEST(StringFormat, TakesTheArgumentsAfreshOnEveryAttempt)
{
    const std::string text = string_format("%d %5000s %.2f %s", -7, "x", 1.5, "100%");
    EXPECT_EQ(text, "-7 " + std::string(4999, ' ') + "x 1.50 100%");
}

TEST(StringFormat, TextsMayBeginWithAndHoldNul)
{
    const std::string nul(1, '\0');
    EXPECT_EQ(string_format("%c%c", 0, 'a'), nul + "a");
    EXPECT_EQ(string_format("%c%600d", 0, 7), nul + std::string(599, ' ') + "7");
}

TEST(StringFormat, GivesUpAtOnceOnAMalformedFormat)
{
    const char* const malformed[] = {
        nullptr, "%", "abc%", "%600d%", "%2147483647d%", "%99999999999d",
    };
    for (const char* format : malformed) {
        EXPECT_EQ(FormatUnchecked(format, 1), "") << format;
        EXPECT_LE(TakeFormatCounts().size(), 2u) << format; // one attempt and the question why
    }
}

TEST(DebugInterface, IsFetchedOnceAndANullIsNotKept)
{
    ThePlatform().hasDebugInterface = false;
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), nullptr);
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), nullptr);
    EXPECT_EQ(ThePlatform().fetches, 2);

    ThePlatform().hasDebugInterface = true;
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    ThePlatform().hasDebugInterface = false;
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_EQ(ThePlatform().fetches, 3);
}

TEST(DebugInterface, IsFetchedWithoutTheLockThatCannotBeTaken)
{
    const faults::FailNth fault(faults::READ_LOCK);
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_TRUE(fault.Happened());
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_EQ(ThePlatform().fetches, 1);
}

TEST(DebugInterface, AThrowingPlatformLeavesTheLockFree)
{
    ThePlatform().onFetch = [] { throw std::runtime_error("no debug interface"); };
    EXPECT_THROW(GetEmsUtilAgentDebugInterface(), std::runtime_error);
    ThePlatform().onFetch = nullptr;
    std::thread([] { EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface()); }).join();
}

TEST(DebugInterface, FirstCallersFetchSideBySide)
{
    constexpr int threads = 8;
    std::barrier<> all(threads);
    ThePlatform().onFetch = [&] { all.arrive_and_wait(); };
    std::vector<std::thread> callers;
    for (int i = 0; i < threads; ++i) {
        callers.emplace_back(
            [] { EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface()); });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(ThePlatform().fetches, threads);
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_EQ(ThePlatform().fetches, threads);
}

namespace {

#define TEST_COUNT_NULL 0

int g_nEvaluations = 0;

int Evaluate(int value)
{
    ++g_nEvaluations;
    return value;
}

void ReturnIfNotTrue(int value, bool& wentOn)
{
    QN_CHECK_AT("sample", 2)
    QN_RETURN_IF_NOT_TRUE(Evaluate(value) > TEST_COUNT_NULL);
    wentOn = true;
}

int ReturnErrorCodeIfNotTrue(const int* pointer)
{
    QN_CHECK_AT("sample", 3)
    QN_RETURN_ERRORCODE_IF_NOT_TRUE(NULL != pointer, -5);
    return 0;
}

} // namespace

TEST(Checks, WriteTheConditionAsWrittenAndEvaluateItOnce)
{
    const int n = 7;
    QN_CHECK_AT("sample", 1)
    QN_LOG_IF_TRUE(Evaluate(n) % 5 == 2 && "%s%n");
    QN_CHECK_AT("sample", 1)
    QN_LOG_IF_TRUE(Evaluate(n) == 8);
    QN_CHECK_AT("sample", 4)
    QN_LOG_IF_NOT_TRUE(Evaluate(n) <= TEST_COUNT_NULL);
    QN_CHECK_AT("sample", 4)
    QN_LOG_IF_NOT_TRUE(Evaluate(n) == 7);
    EXPECT_EQ(g_nEvaluations, 4);

    bool wentOn = false;
    ReturnIfNotTrue(0, wentOn);
    EXPECT_FALSE(wentOn);
    ReturnIfNotTrue(1, wentOn);
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(g_nEvaluations, 6);
    EXPECT_EQ(ReturnErrorCodeIfNotTrue(nullptr), -5);
    EXPECT_EQ(ReturnErrorCodeIfNotTrue(&n), 0);

    const Lines expected = {
        "1|file:sample:1,QN_LOG_IF_TRUE: Evaluate(n) % 5 == 2 && \"%s%n\"",
        "1|file:sample:4,QN_LOG_IF_NOT_TRUE: Evaluate(n) <= TEST_COUNT_NULL",
        "1|file:sample:2,QN_RETURN_IF_NOT_TRUE: Evaluate(value) > TEST_COUNT_NULL",
        "1|file:sample:3,QN_RETURN_ERRORCODE_IF_NOT_TRUE: NULL != pointer",
    };
    EXPECT_EQ(TakeLines(), expected);
}

TEST(Checks, AnAssertionShowsItsMacrosExpanded)
{
    const int* m_pInstance = nullptr;
    QN_CHECK_AT("emsutil_thread", 106)
    QN_ASSERT(NULL != m_pInstance);
    m_pInstance = &g_nEvaluations;
    QN_CHECK_AT("emsutil_thread", 106)
    QN_ASSERT(NULL != m_pInstance);
    EXPECT_EQ(TakeLines(), Lines{"A|ASSERT: file emsutil_thread, line 106 assertion failed for "
                                 "'(__null != m_pInstance)'.\n"});
}

TEST(Checks, StandUnbracedInAnIfWithAnElse)
{
    bool reachedElse = false;
    if (g_nEvaluations > 0)
        QN_CHECK_AT("sample", 1) QN_LOG_IF_TRUE(true);
    else
        reachedElse = true;
    EXPECT_TRUE(reachedElse);
    EXPECT_EQ(TakeLines(), Lines{});
}

TEST(Checks, AskThePlatformAtEveryReportAndSkipTheLineWithoutADebugInterface)
{
    ASSERT_NE(GetEmsUtilAgentDebugInterface(), nullptr);
    ThePlatform().fetches = 0;
    ThePlatform().hasDebugInterface = false;
    EXPECT_EQ(ReturnErrorCodeIfNotTrue(nullptr), -5);
    EXPECT_EQ(ThePlatform().fetches, 1);
    EXPECT_EQ(TakeLines(), Lines{});
    ThePlatform().hasDebugInterface = true;
    EXPECT_EQ(ReturnErrorCodeIfNotTrue(nullptr), -5);
    EXPECT_EQ(ThePlatform().fetches, 2);
    QN_CHECK_AT("sample", 5)
    QN_ASSERT(ThePlatform().fetches == 0); // which does not ask
    EXPECT_EQ(ThePlatform().fetches, 2);
    EXPECT_EQ(TakeLines().size(), 2u);
}
