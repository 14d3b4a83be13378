#include <filesystem>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

#include "base/qn_check.h"
#include "emsutil/diagnostics.h"
#include "tests/support/faults.h"
#include "tests/support/test_platform.h"

using namespace NSQN_EMSUTIL_AGENT;
using Lines = std::vector<std::string>;

namespace {

/// string_format for formats that the compiler would refuse.
std::string (*const FormatUnchecked)(const char*, ...) = string_format;

std::vector<std::size_t> TakeFormatCounts()
{
    return std::exchange(ThePlatform().formatCounts, {});
}

} // namespace

TEST(StringFormat, ReturnsTextsOfAnyLengthWholeAfterTheFewestDoublings)
{
    const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {
        {0, {511}},         {1, {511}},          {511, {511}},
        {512, {511, 1023}}, {1023, {511, 1023}}, {5000, {511, 1023, 2047, 4095, 8191}},
    };
    for (const auto& [length, counts] : cases) {
        const std::string text(length, 'a');
        EXPECT_EQ(string_format("%s", text.c_str()), text);
        EXPECT_EQ(TakeFormatCounts(), counts) << length;
    }
    const std::string huge(100'000'000, 'h');
    EXPECT_TRUE(string_format("%s", huge.c_str()) == huge);
    EXPECT_EQ(TakeFormatCounts().size(), 19u); // 512 * 2^18 is the first that holds it
}

TEST(StringFormat, ReadsTheArgumentsFromTheFirstOnEveryAttempt)
{
    EXPECT_EQ(string_format("%d %5000s %.2f %s", -7, "x", 1.5, "100%"),
              "-7 " + std::string(4999, ' ') + "x 1.50 100%");
    // A NUL in front is no sign of a malformed format.
    const std::string nul(1, '\0');
    EXPECT_EQ(string_format("%c%c", 0, 'a'), nul + "a");
    EXPECT_EQ(string_format("%c%600d", 0, 7), nul + std::string(599, ' ') + "7");
}

TEST(StringFormat, GivesUpAtOnceOnAMalformedFormat)
{
    const char* const malformed[] = {
        nullptr, "%", "abc%", "%600d%", "%99999999999d",
    };
    for (const char* format : malformed) {
        EXPECT_EQ(FormatUnchecked(format, 1), "") << format;
        EXPECT_LE(TakeFormatCounts().size(), 1u) << format;
    }
    const std::string longer(9000, 'x');
    EXPECT_EQ(string_format("%s%ls", longer.c_str(), L"a\u20ac"), ""); // not in the C locale
    EXPECT_EQ(TakeFormatCounts().size(), 1u);
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

namespace {

#define TEST_EXPANDED 1

int g_nEvaluations = 0;

bool Evaluate(bool holds)
{
    ++g_nEvaluations;
    return holds;
}

void ReturnIfNotTrue(bool holds, bool& wentOn)
{
    QN_CHECK_AT("sample", 2)
    QN_RETURN_IF_NOT_TRUE(Evaluate(holds) && TEST_EXPANDED);
    wentOn = true;
}

int ReturnErrorCodeIfNotTrue(bool holds)
{
    QN_CHECK_AT("sample", 3)
    QN_RETURN_ERRORCODE_IF_NOT_TRUE(Evaluate(holds), -5);
    return 0;
}

} // namespace

TEST(Checks, WriteTheConditionAsWrittenAndEvaluateItOnce)
{
    bool wentOn = false;
    for (const bool holds : {true, false}) {
        ReturnIfNotTrue(holds, wentOn);
        EXPECT_EQ(std::exchange(wentOn, false), holds);
        EXPECT_EQ(ReturnErrorCodeIfNotTrue(holds), holds ? 0 : -5);
        QN_CHECK_AT("sample", 1)
        QN_LOG_IF_TRUE(!Evaluate(holds) && "%s%n");
        QN_CHECK_AT("sample", 4)
        QN_LOG_IF_NOT_TRUE(Evaluate(holds));
        QN_CHECK_AT("sample", 5)
        QN_ASSERT(Evaluate(holds) && TEST_EXPANDED);
        if (!holds)
            QN_CHECK_AT("sample", 6) QN_LOG_IF_TRUE(holds); // the else stays the if's
        else
            wentOn = true;
        EXPECT_EQ(std::exchange(wentOn, false), holds);
    }
    EXPECT_EQ(g_nEvaluations, 10);
    const Lines expected = {
        "1|file:sample:2,QN_RETURN_IF_NOT_TRUE: Evaluate(holds) && TEST_EXPANDED",
        "1|file:sample:3,QN_RETURN_ERRORCODE_IF_NOT_TRUE: Evaluate(holds)",
        "1|file:sample:1,QN_LOG_IF_TRUE: !Evaluate(holds) && \"%s%n\"",
        "1|file:sample:4,QN_LOG_IF_NOT_TRUE: Evaluate(holds)",
        "A|ASSERT: file sample, line 5 assertion failed for '(Evaluate(holds) && 1)'.\n",
    };
    EXPECT_EQ(TakeLines(), expected);
}

TEST(Checks, AskThePlatformAtEveryReportAndSkipTheLineWithoutADebugInterface)
{
    ASSERT_NE(GetEmsUtilAgentDebugInterface(), nullptr);
    for (const bool has : {false, true}) {
        ThePlatform().fetches = 0;
        ThePlatform().hasDebugInterface = has;
        EXPECT_EQ(ReturnErrorCodeIfNotTrue(false), -5);
        QN_CHECK_AT("sample", 5)
        QN_ASSERT(!has); // it does not ask the platform
        EXPECT_EQ(ThePlatform().fetches, 1);
        EXPECT_EQ(TakeLines().size(), has ? 2u : 0u);
    }
}

TEST(ReportFile, KeepsMessagesAsTheyAreFormattedUpTo511Characters)
{
    const ReportDirectory directory;
    const auto trace = EmsUtilTraced;
    trace(nullptr); // creates no writer: the first entry decides the name of the file
    NSQN_util::g_ProcName = "other";
    EmsUtilReport(nullptr);
    NSQN_util::g_ProcName = "test";
    EmsUtilTraced("%s", "");
    EmsUtilTraced("%512d", 1);
    trace("abc%");
    EXPECT_TRUE(std::filesystem::is_empty(directory.m_Root + "var/dump"));
    EmsUtilTraced("%511d", 1);
    EXPECT_EQ(directory.Take(), std::string(510, ' ') + "1");
    EmsUtilTraced("a%cc", 0);
    NSQN_util::g_ProcName = "later";
    EmsUtilTraced("%s", "abc");
    EXPECT_EQ(directory.Take(), std::string("a\0cabc", 6));
    std::filesystem::remove_all(directory.m_Root + "var");
    EmsUtilReport("lost");
    EXPECT_FALSE(std::filesystem::exists(directory.m_Root + "var"));
    std::filesystem::create_directories(directory.m_Root + "var/dump");
    EmsUtilTraced("k");
    EXPECT_EQ(directory.Take(), "k");
}

TEST(TimeGuard, WritesItsDescriptionAndWholeMilliseconds)
{
    // The begin and the end in microseconds, and the time that is written.
    const std::tuple<long long, long long, const char*> cases[] = {
        {1'999, 2'000, "1"},
        {1'000, 2'999, "1"},
        {5'000'000, 4'000'000, "0"},
        {faults::FAILING_CLOCK, 1'790'000'000'000'000, "2147483647"},
        {0, 2'147'483'647'000, "2147483647"},
        {0, 2'147'483'646'999, "2147483646"},
        {7'000, faults::FAILING_CLOCK, "0"},
    };
    for (const auto& [begin, end, elapsed] : cases) {
        faults::g_llClock = begin;
        {
            const AgentTimeGuard guard("%s", "100%d");
            faults::g_llClock = end;
        }
        const std::string told = string_format("1|used time(ms): %s\n", elapsed);
        EXPECT_EQ(TakeLines(), (Lines{"1|100%d\n", told}));
    }
    faults::g_llClock = 0;
    const Lines elapsed = {"1|used time(ms): 0\n"};
    static_cast<void>(AgentTimeGuard(nullptr));
    EXPECT_EQ(TakeLines(), elapsed);
    const std::string fits(511, 'f');
    const Lines told = {"1|" + fits + "\n", elapsed[0]};
    static_cast<void>(AgentTimeGuard("%s", fits.c_str()));
    EXPECT_EQ(TakeLines(), told);
    const std::string check = "1|file:emsutil_util:103,QN_LOG_IF_TRUE: irlen < 0";
    static_cast<void>(AgentTimeGuard("%sff", fits.c_str()));
    EXPECT_EQ(TakeLines(), (Lines{check, told[0], told[1]}));
}

TEST(TimeGuard, AnExceptionOrACancellationInALineDoesNotLeaveTheDestructor)
{
    {
        const AgentTimeGuard guard("description");
        ThePlatform().onLine = [](const std::string&) { throw std::runtime_error("disk full"); };
    }
    ThePlatform().onLine = [](const std::string&) { pthread_testcancel(); };
    std::thread([] {
        const AgentTimeGuard guard("description");
        pthread_cancel(pthread_self());
    }).join();
    ThePlatform().onLine = nullptr;
    EXPECT_EQ(TakeLines().size(), 2u); // of the cancelled thread
}
