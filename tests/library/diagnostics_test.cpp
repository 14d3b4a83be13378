#include <climits>
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

} // namespace

TEST(StringFormat, AThreadWithTheSmallestStackMayFormat)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need a larger stack";
#endif
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, static_cast<std::size_t>(PTHREAD_STACK_MIN));
    std::string text;
    pthread_t thread{};
    const auto format = [](void* result) -> void* {
        volatile char local[4096];
        local[0] = 'x';
        *static_cast<std::string*>(result) = string_format("%c %d", local[0], 4711);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, format, &text), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(text, "x 4711");
}

TEST(StringFormat, ReturnsTextsOfAnyLengthWholeAfterTheFewestDoublings)
{
    // The length, and how often memory is allocated.
    for (const auto& [length, allocations] : {std::pair(0, 1), {511, 1}, {512, 2}, {5000, 5}}) {
        const std::string text(static_cast<std::size_t>(length), 'a');
        {
            const faults::FailNth last(faults::ALLOCATION, allocations);
            EXPECT_THROW(string_format("%s", text.c_str()), std::bad_alloc) << length;
        }
        const faults::FailNth further(faults::ALLOCATION, allocations + 1);
        EXPECT_EQ(string_format("%s", text.c_str()), text);
    }
    EXPECT_EQ(string_format("%d %5000s %.2f %s", -7, "x", 1.5, "100%"),
              "-7 " + std::string(4999, ' ') + "x 1.50 100%");
    // A NUL in front is no sign of a malformed format.
    const std::string nul(1, '\0');
    EXPECT_EQ(string_format("%c%c", 0, 'a'), nul + "a");
    EXPECT_EQ(string_format("%c%600d", 0, 7), nul + std::string(599, ' ') + "7");
}

TEST(StringFormat, GivesUpAtOnceOnAMalformedFormat)
{
    for (const char* format : {static_cast<const char*>(nullptr), "%", "abc%", "%600d%"}) {
        const faults::FailNth further(faults::ALLOCATION, 2);
        EXPECT_EQ(FormatUnchecked(format, 1), "") << format;
    }
    const std::string longer(9000, 'x');
    const faults::FailNth further(faults::ALLOCATION, 2);
    EXPECT_EQ(string_format("%s%ls", longer.c_str(), L"a\u20ac"), ""); // not in the C locale
}

TEST(DebugInterface, IsFetchedOnceAndANullIsNotKept)
{
    ThePlatform().hasDebugInterface = false;
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), nullptr);
    ThePlatform().hasDebugInterface = true;
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_EQ(GetEmsUtilAgentDebugInterface(), TheDebugInterface());
    EXPECT_EQ(ThePlatform().fetches, 2);
}

TEST(Checks, WriteTheConditionAsWrittenAndEvaluateItOnce)
{
#define TEST_EXPANDED 1
    for (const bool holds : {true, false}) {
        QN_CHECK_AT("sample", 1)
        QN_ASSERT(holds && TEST_EXPANDED);
        bool isElse = false;
        if (holds)
            QN_CHECK_AT("sample", 2) QN_LOG_IF_TRUE(TEST_EXPANDED && "%s%n");
        else // stays the if's
            isElse = true;
        EXPECT_NE(isElse, holds);
    }
    EXPECT_EQ(TakeLines(),
              (Lines{"1|file:sample:2,QN_LOG_IF_TRUE: TEST_EXPANDED && \"%s%n\"",
                     "A|ASSERT: file sample, line 1 assertion failed for '(holds && 1)'.\n"}));
    // A check line asks the platform, and is lost when it has no debug interface.
    ThePlatform().hasDebugInterface = false;
    int evaluations = 0;
    QN_CHECK_AT("sample", 3)
    QN_LOG_IF_TRUE(++evaluations == 1);
    QN_CHECK_AT("sample", 4)
    QN_LOG_IF_NOT_TRUE(++evaluations != 2);
    EXPECT_EQ(evaluations, 2);
    EXPECT_EQ(TakeLines(), Lines{});
}

TEST(ReportFile, KeepsMessagesAsTheyAreFormattedUpTo511Characters)
{
    const ReportDirectory directory;
    const auto trace = EmsUtilTraced;
    NSQN_util::g_ProcName = "other";
    trace(nullptr); // creates no writer: the first entry decides the name of the file
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
        EXPECT_EQ(TakeLines(),
                  (Lines{"1|100%d\n", string_format("1|used time(ms): %s\n", elapsed)}));
    }
    faults::g_llClock = 0;
    const std::string used = "1|used time(ms): 0\n";
    const std::string fits(511, 'f');
    static_cast<void>(AgentTimeGuard(nullptr));
    static_cast<void>(AgentTimeGuard("%s", fits.c_str()));
    static_cast<void>(AgentTimeGuard("%sff", fits.c_str()));
    const std::string check = "1|file:emsutil_util:103,QN_LOG_IF_TRUE: irlen < 0";
    const std::string whole = "1|" + fits + "\n";
    EXPECT_EQ(TakeLines(), (Lines{used, whole, used, check, whole, used}));
}

TEST(TimeGuard, ACancellationInALineDoesNotLeaveTheDestructor)
{
    ThePlatform().onLine = [](const std::string&) { pthread_testcancel(); };
    std::thread([] {
        const AgentTimeGuard guard("description");
        pthread_cancel(pthread_self());
    }).join();
    EXPECT_EQ(TakeLines().size(), 2u);
}
