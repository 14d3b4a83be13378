#include <climits>
#include <optional>
#include <stdexcept>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

#include "agent/emsutil_thread.h"
#include "emsutil/diagnostics.h"
#include "emsutil/thread_monitor.h"
#include "tests/support/faults.h"
#include "tests/support/test_platform.h"

using namespace NSQN_EMSUTIL_AGENT;
using Lines = std::vector<std::string>;

namespace {

constexpr long long SECOND = 1'000'000; // microseconds
constexpr long long START = 1'790'000'000 * SECOND;

/// All records, by thread id.
std::map<unsigned long, EmsThreadInfo> Records()
{
    std::list<EmsThreadInfo> infos;
    GetEmsThreadInfo(infos, 0);
    std::map<unsigned long, EmsThreadInfo> records;
    for (const EmsThreadInfo& info : infos) {
        records.emplace(info.m_ulThreadId, info);
    }
    return records;
}

EmsThreadInfo MyRecord()
{
    return Records()[pthread_self()];
}

long long Microseconds(const ACE_Time_Value& time)
{
    return time.sec() * SECOND + time.usec();
}

/// Status, start (after START), duration, maximum, events; times in microseconds.
using State = std::tuple<int, long long, long long, long long, long long>;

State StateOf(unsigned long threadId)
{
    const EmsThreadInfo record = Records()[threadId];
    return {record.m_nStatus, Microseconds(record.m_StartTime) - START,
            Microseconds(record.m_Duration), Microseconds(record.m_MaxDuration), record.m_llRecvs};
}

void SetClock(double seconds)
{
    faults::g_llClock = START + static_cast<long long>(seconds * static_cast<double>(SECOND));
}

/// Enters or leaves now, for a thread with an id that the test chooses.
void Report(unsigned long threadId, int status, const EmsThreadInfoMap* values = nullptr)
{
    EmsThreadInfo event;
    event.m_ulThreadId = threadId;
    event.m_nStatus = status;
    event.m_StartTime = ACE_Time_Value(faults::g_llClock / SECOND, faults::g_llClock % SECOND);
    EmsThreadInfoMgr::Instance()->UpdateThreadInfo(event, values);
}

} // namespace

TEST(ThreadMonitor, ARecordFollowsEntriesAndExits)
{
    const struct
    {
        double at; // seconds
        int status;
        State after;
    } events[] = {
        {0, 1, {1, 0, 0, 0, 1}},
        {2.000001, 0, {0, 2'000'001, 0, 0, 2}},
        {5.000001, 1, {1, 2'000'001, 3 * SECOND, 3 * SECOND, 3}},
        {9, 0, {0, 9 * SECOND, 3 * SECOND, 3 * SECOND, 4}},
        {10, 1, {1, 9 * SECOND, SECOND, 3 * SECOND, 5}},
        {14, 1, {1, 9 * SECOND, 5 * SECOND, 5 * SECOND, 6}},
        {14, 0, {0, 14 * SECOND, 5 * SECOND, 5 * SECOND, 7}},
        {13, 1, {1, 14 * SECOND, 5 * SECOND, 5 * SECOND, 8}}, // the clock was set back
        {14, 1, {1, 14 * SECOND, 5 * SECOND, 5 * SECOND, 9}},
    };
    for (const auto& [at, status, after] : events) {
        SetClock(at);
        Report(7, status);
        EXPECT_EQ(StateOf(7), after) << at;
    }
    // An exit counts for the thread that entered, and creates no record.
    auto* inside = new RegEmsThreadInfo(nullptr);
    std::thread([inside] { delete inside; }).join();
    EXPECT_EQ(StateOf(pthread_self()), (State{0, 14 * SECOND, 0, 0, 2}));
    Report(8, 0);
    EXPECT_EQ(Records().size(), 2u);
}

TEST(ThreadMonitor, NamedValuesAreSetByTheLastCallAndMergedAtEntries)
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "n", "text");
    AddEmsThreadInfo(values, "n", INT_MIN);
    EXPECT_EQ(values["n"], std::pair(std::string("-2147483648"), 1));
    AddEmsThreadInfo(values, "n", "other");
    AddEmsThreadInfo(values, "", 0);
    AddEmsThreadInfo(values, nullptr, 1);
    AddEmsThreadInfo(values, nullptr, "x");
    AddEmsThreadInfo(values, "x", nullptr);
    EXPECT_EQ(values, (EmsThreadInfoMap{{"", {"0", 1}}, {"n", {"other", 0}}}));
    values["long"] = {std::string(100, 'l'), 7};
    AddEmsThreadInfo(values, "long", values["long"].first.c_str() + 50);
    EXPECT_EQ(values["long"], std::pair(std::string(50, 'l'), 0));

    RegEmsThreadInfo first(&values);
    EmsThreadInfoMap expected = values;
    EXPECT_EQ(MyRecord().m_InfoMap, expected);
    values = {{"n", {"new", 0}}, {"later", {"1", 1}}};
    RegEmsThreadInfo second(&values);
    expected["n"].first = "new";
    expected["later"] = {"1", 1};
    EXPECT_EQ(MyRecord().m_InfoMap, expected);
}

TEST(ThreadMonitor, TheFirstEntryDecidesWhetherAThreadIsAReportThread)
{
    const EmsThreadInfoMap report = {{"Report", {"", 9}}};
    const EmsThreadInfoMap other = {{"report", {"", 0}}};
    Report(1, 1);
    Report(1, 1, &report); // also for a new thread with the id of an ended one
    Report(2, 1, &report);
    Report(3, 1, &other);
    for (unsigned long id = 1; id <= 4; ++id) {
        EXPECT_EQ(IsEmsThreadReport(id), id == 2) << id;
    }
    EXPECT_EQ(Records()[1].m_InfoMap, report);
}

TEST(ThreadMonitor, OverdueIsExactlyTheThresholdAndMore)
{
    SetClock(0.5);
    {
        RegEmsThreadInfo left(nullptr);
    }
    SetClock(100.5);
    EXPECT_FALSE(IsEmsThreadTimeout(1)); // outside
    Report(1, 1);
    RegEmsThreadInfo inside(nullptr);
    std::list<EmsThreadInfo> infos(2);
    SetClock(103.499999);
    EXPECT_FALSE(IsEmsThreadTimeout(0));
    EXPECT_TRUE(IsEmsThreadTimeout(102)); // since the exit of this thread
    EXPECT_FALSE(IsEmsThreadTimeout(103));
    GetEmsThreadInfo(infos, 3);
    EXPECT_EQ(infos.size(), 3u);
    SetClock(103.5);
    EXPECT_TRUE(IsEmsThreadTimeout(103));
    GetEmsThreadInfo(infos, 3);
    ASSERT_EQ(infos.size(), 5u);
    EXPECT_EQ(Microseconds(infos.back().m_Duration), 103 * SECOND); // the higher id is the last
    EXPECT_EQ(StateOf(pthread_self()), (State{1, SECOND / 2, 103 * SECOND, 100 * SECOND, 3}));
    EXPECT_EQ(Microseconds(Records()[1].m_Duration), 3 * SECOND);

    SetClock(-0.5);
    EXPECT_FALSE(IsEmsThreadTimeout(1));
    EXPECT_TRUE(IsEmsThreadTimeout(-1));
    EXPECT_TRUE(IsEmsThreadTimeout(LONG_MIN));
    faults::g_llClock = faults::FAILING_CLOCK; // counts as zero
    {
        RegEmsThreadInfo atZero(nullptr);
    }
    EXPECT_EQ(Microseconds(MyRecord().m_StartTime), 0);
}

TEST(ThreadMonitor, AQueryReturnsAllRecordsOrNone)
{
    SetClock(0);
    Report(1, 1);
    Report(2, 1);
    SetClock(10);
    for (const long seconds : {0, 10}) {
        std::list<EmsThreadInfo> infos;
        const faults::FailNth noMemory(faults::ALLOCATION, 2);
        EXPECT_THROW(GetEmsThreadInfo(infos, seconds), std::bad_alloc);
        EXPECT_TRUE(infos.empty());
    }
    EXPECT_EQ(Microseconds(Records()[1].m_Duration), 0);
}

TEST(ThreadMonitor, TheStatisticsAreOneText)
{
    StatEmsThreadInfo();
    EXPECT_EQ(TakeLines(), Lines{"1|Ems Thread Information\n"});

    const EmsThreadInfoMap values = {{"high", {"4294967303", 1}},
                                     {"low", {"-9223372036854775809", 1}},
                                     {"odd", {"x", -7}},
                                     {{"text\0x", 6}, {{"%s\0x", 4}, 0}},
                                     {"top", {"9223372036854775808", 1}}};
    faults::g_llClock = -2'001'999;
    Report(0xab12345678, 1, &values);
    faults::g_llClock = 253'402'300'799'999'999;
    Report(0xab12345678, 1);
    // The debug interface may enter monitored work.
    ThePlatform().onLine = [](const std::string&) { RegEmsThreadInfo inside(nullptr); };
    StatEmsThreadInfo();
    EXPECT_EQ(TakeLines(), Lines{"1|Ems Thread Information\n"
                                 " thread id           12345678\n"
                                 " thread status       1\n"
                                 " thread start        -2001\n"
                                 " thread duration     253402300802001\n"
                                 " thread max duration 253402300802001\n"
                                 " thread recvs        2\n"
                                 " high 7\n"
                                 " low 0\n"
                                 " Impossible type -7\n"
                                 " text %s\n"
                                 " top -1\n"});
    EXPECT_EQ(MyRecord().m_llRecvs, 2);
}

TEST(ThreadMonitor, AnExitThatRunsOutOfMemoryDoesNotThrow)
{
    // An exit needs memory only if its entry could not create the monitor.
    std::optional<RegEmsThreadInfo> inside;
    {
        const faults::FailNth noLock(faults::MUTEX_LOCK);
        inside.emplace(nullptr);
    }
    const faults::FailNth noMemory(faults::ALLOCATION);
    inside.reset();
    EXPECT_TRUE(noMemory.Happened());
}

TEST(MsgHandleMode, IsZeroOrOneAndReadUntilThatSucceeds)
{
    const std::tuple<int, int, int> cases[] = {{1, 0, 0},  {1, 1, 1}, {1, 2, 1},
                                               {1, -1, 1}, {0, 0, 1}, {2, 0, 1}};
    for (const auto& [result, given, expected] : cases) {
        ThePlatform().readMode = [result = result, given = given](int& value) {
            return value = given, result;
        };
        // Each in a process of its own, because the first result holds.
        EXPECT_EXIT(std::_Exit(ReadMsgHandleModeSwitcher()), testing::ExitedWithCode(expected), "");
    }
    ThePlatform().readMode = [](int& value) {
        EXPECT_EQ(ReadMsgHandleModeSwitcher(), 1); // a platform may ask: it is not read yet
        if (ThePlatform().modeReads == 1) {
            throw std::runtime_error("not readable");
        }
        return value = 0, 1;
    };
    EXPECT_THROW(ReadMsgHandleModeSwitcher(), std::runtime_error);
    EXPECT_EQ(ReadMsgHandleModeSwitcher(), 0);
    EXPECT_EQ(ReadMsgHandleModeSwitcher(), 0);
    EXPECT_EQ(ThePlatform().modeReads, 2);
}
