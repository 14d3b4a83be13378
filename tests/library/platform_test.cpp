#include <climits>
#include <cstdarg>
#include <fstream>
#include <functional>
#include <map>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include <emsplatform/debug_interface.h>
#include <emsplatform/platform.h>
#include <emsstandin/setup.h>
#include <emsstandin/task_manager.h>

#include "tests/support/threads.h"

namespace {

using emsstandin::DebugOperation;

std::string TempFile(const std::string& name)
{
    return testing::TempDir() + std::to_string(getpid()) + "." + name;
}

std::string g_Events;

/// Appends its name to g_Events at each event, and "~" with its name when it is destroyed.
class NamedTask final : public eKorGnlTask
{
public:
    NamedTask(eKorTaskMgr& manager, char name) : eKorGnlTask(&manager, "NamedTask"), m_cName(name)
    {
        manager.TMInitInsertTask(this);
    }
    ~NamedTask() override
    {
        g_Events.append("~").append(1, m_cName);
        m_OnDestruction();
    }

    void eKorTaskTimeInterval(long id) override
    {
        g_Events += m_cName;
        m_OnEvent(id);
    }

    std::function<void(long id)> m_OnEvent = [](long) {};
    std::function<void()> m_OnDestruction = [] {};

private:
    const char m_cName;
};

/// A started manager with three tasks, whose clock the test moves.
struct Tasks
{
    Tasks() { m_Manager.Start(); }

    /// Returns the events until then.
    std::string EventsAt(int second)
    {
        m_Now = std::chrono::seconds(second);
        m_Manager.DeliverExpired();
        return std::exchange(g_Events, {});
    }

    std::chrono::nanoseconds m_Now{0};
    emsstandin::TaskManager m_Manager{{std::chrono::seconds(1), [this] { return m_Now; }}};
    NamedTask* const m_pA = new NamedTask(m_Manager, 'a');
    NamedTask* const m_pB = new NamedTask(m_Manager, 'b');
    NamedTask* const m_pC = new NamedTask(m_Manager, 'c');
};

/// vsnprintf_s for formats that the compiler would refuse.
int (*const FormatUnchecked)(char*, std::size_t, std::size_t, const char*, va_list) = vsnprintf_s;

int Format(char* dest, std::size_t destMax, std::size_t count, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = FormatUnchecked(dest, destMax, count, format, args);
    va_end(args);
    return result;
}

} // namespace

TEST(Platform, ParentPathsHaveAClosingSeparator)
{
    const std::map<std::string, std::string> cases = {
        {"/opt/ems/bin//", "/opt/ems/"}, {"/opt", "/"}, {"/", "/"}, {"a//b", "a/"}, {"", "./"}};
    for (const auto& [path, parent] : cases) {
        EXPECT_EQ(NSQN_util::GetParentPath(path), parent) << path;
    }
}

TEST(Platform, ReadsIntegersFromTheConfigurationFile)
{
    const std::string path = TempFile("platform_test.cfg");
    std::ofstream(path) << "# a comment\n  plain =  5  # five\nminus=-2147483648\r\n"
                           "plus = +7\nlarge = 2147483648\nword = 5x\nempty =\nplusminus = +-5\n"
                           "twice = 1\ntwice = 2\nspoiled = 1\nspoiled = x\n= 4\nno equals\n"
                           "#hidden = 6\nlast = 9";
    constexpr int none = 42;
    const std::pair<const char*, int> cases[] = {
        {"plain", 5},     {"minus", INT_MIN},  {"plus", 7},       {"large", none},
        {"word", none},   {"empty", none},     {"twice", 2},      {"spoiled", none},
        {"hidden", none}, {"Plain", none},     {"missing", none}, {"last", 9},
        {nullptr, none},  {"plusminus", none},
    };
    int value = none;
    for (const auto& [key, read] : cases) {
        value = none;
        EXPECT_EQ(eKorGetRegInt(key, value, path.c_str()), read == none ? 0 : 1);
        EXPECT_EQ(value, read);
    }
    value = none;
    EXPECT_EQ(eKorGetRegInt("plain", value, "/nowhere/ems.cfg"), 0);
    EXPECT_EQ(eKorGetRegInt("plain", value, nullptr), 0);
    EXPECT_EQ(value, none);
    std::remove(path.c_str());
}

TEST(Platform, ACallbackReceivesTheTextUnchangedAndMayPrint)
{
    std::vector<std::string> lines;
    NSQN_util::DebugInterface* debug = NSQN_util::GetDefaultDebugInterface();
    emsstandin::SetDebugCallback([&](DebugOperation operation, int level, const std::string& text) {
        lines.push_back((operation == DebugOperation::AssertPrint ? "A" : std::to_string(level)) +
                        text);
        if (text == "outer") {
            debug->DebugPrint(2, "inner");
        }
    });
    emsstandin::SetLowestDebugLevel(1);
    const std::string longText(511, 'x'); // with its newline it fills 512 bytes
    debug->DebugPrint(0, "not shown");
    debug->DebugPrint(1, "outer");
    debug->AssertPrint("%s\n", longText.c_str());
    EXPECT_EQ(lines, (std::vector<std::string>{"1outer", "2inner", "A" + longText + "\n"}));
    EXPECT_FALSE(debug->IsLevelShown(0));

    emsstandin::SetDebugCallback([](auto, auto, auto&) { throw 1; });
    EXPECT_THROW(debug->DebugPrint(1, "thrown"), int);
    emsstandin::SetDebugCallback(nullptr);
    debug->DebugPrint(1, "nobody listens");
}

TEST(Platform, AFileReceivesWholeLinesFromAllThreads)
{
    const std::string path = TempFile("platform_test.log");
    std::remove(path.c_str());
    EXPECT_FALSE(emsstandin::SetDebugFile("/nowhere/debug.log"));
    ASSERT_TRUE(emsstandin::SetDebugFile(path));
    const std::string line = std::string(300, 'w') + '\n';
    RunOnThreads(4, [&line](int) {
        for (int i = 0; i < 1000; ++i) {
            NSQN_util::GetDefaultDebugInterface()->DebugPrint(1, "%.300s", line.c_str());
        }
    });
    emsstandin::SetDebugStream(stderr); // closes the file
    std::string expected;
    for (int i = 0; i < 4000; ++i) {
        expected += line;
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), expected);
    std::remove(path.c_str());
}

TEST(Platform, TimersExpireInTheOrderInWhichTheyAreDue)
{
    Tasks tasks;
    const auto& [now, manager, a, b, c] = tasks;
    const long first = a->SetTaskTimeInterval(10);
    b->SetTaskTimeInterval(4);
    EXPECT_EQ(tasks.EventsAt(9), "b");              // once for 4 and 8, again at 12
    const long second = c->SetTaskTimeInterval(10); // at 19
    a->SetTaskTimeInterval(0);                      // as 1: at 10
    EXPECT_NE(first, second);
    c->DelTaskTimeInterval(first);        // a timer of another task
    EXPECT_EQ(tasks.EventsAt(18), "aab"); // the first again at 20, the other at 19
    EXPECT_EQ(tasks.EventsAt(19), "ca");
    EXPECT_EQ(tasks.EventsAt(20), "aba");
    a->DelTaskTimeInterval(first);
    c->m_OnEvent = [task = c](long id) {
        task->DelTaskTimeInterval(id);
        task->SetTaskTimeInterval(3); // not in the same delivery
        task->m_OnEvent = [](long) {};
    };
    EXPECT_EQ(tasks.EventsAt(30), "abc");
    EXPECT_EQ(tasks.EventsAt(33), "abc");
    ++tasks.m_Now;
    b->SetTaskTimeInterval(1); // rounded up to a microsecond
    EXPECT_EQ(tasks.EventsAt(34), "a");
    tasks.m_Manager.Stop();
    EXPECT_EQ(g_Events, "~a~b~c");
}

TEST(Platform, ATaskMayDestroyItselfAndOthersInItsEvent)
{
    Tasks tasks;
    const auto& [now, manager, a, b, c] = tasks;
    for (NamedTask* task : {a, b, c}) {
        task->SetTaskTimeInterval(1);
        task->SetTaskTimeInterval(1);
    }
    a->m_OnEvent = [self = a, other = b](long) {
        self->eKorSetTaskState(3);
        other->eKorSetTaskState(3);
        self->eKorSetTaskState(3); // once more
        g_Events += "finished ";
    };
    c->m_OnEvent = [task = c](long) {
        task->m_OnEvent = [task](long) { delete task; };
        throw std::runtime_error("late");
    };
    emsstandin::SetDebugCallback([](auto, auto, auto& line) { g_Events += line; });
    EXPECT_EQ(tasks.EventsAt(2), "afinished ~b~actimer of task NamedTask failed: late\nc~c");
    tasks.m_Manager.Stop();
    EXPECT_EQ(g_Events, "");
}

TEST(Platform, StoppingDestroysAllTasksWhereverItIsCalled)
{
    EXPECT_THROW(emsstandin::TaskManager({std::chrono::microseconds(0), nullptr}),
                 std::invalid_argument);
    EXPECT_NE(emsstandin::AddTaskManager(7, {}), nullptr);
    EXPECT_EQ(emsstandin::AddTaskManager(7, {}), nullptr);
    Tasks tasks;
    emsstandin::TaskManager& manager = tasks.m_Manager;
    tasks.m_pA->SetTaskTimeInterval(1);
    tasks.m_pB->SetTaskTimeInterval(1);
    tasks.m_pA->m_OnEvent = [&manager](long) {
        EXPECT_EQ(manager.DeliverExpired(), 0u);
        manager.Stop();
        g_Events += "stopped ";
    };
    tasks.m_pB->m_OnDestruction = [&manager] { manager.Stop(); };
    EXPECT_EQ(tasks.EventsAt(1), "astopped ~a~b~c");
    new NamedTask(manager, 'd');
    EXPECT_EQ(tasks.EventsAt(2), "");
    manager.Stop();
    EXPECT_EQ(std::exchange(g_Events, {}), "~d");

    // In an event inside which an event of another manager runs.
    Tasks outer;
    Tasks inner;
    outer.m_pA->SetTaskTimeInterval(1);
    inner.m_pA->SetTaskTimeInterval(1);
    inner.m_Now = std::chrono::seconds(1);
    outer.m_pA->m_OnEvent = [&inner](long) { inner.m_Manager.DeliverExpired(); };
    inner.m_pA->m_OnEvent = [&outer](long) { outer.m_Manager.Stop(); };
    EXPECT_EQ(outer.EventsAt(1), "aa~a~b~c");
}

TEST(Formatter, StaysWithinItsBoundsAndLeavesTheEmptyTextForARejectedFormat)
{
    const std::string text = "text" + std::string(9000, 'x');
    const std::tuple<std::size_t, std::size_t, const char*, int, std::string> cases[] = {
        {8, 0, "%.4s", -1, ""},
        {3, SIZE_MAX, "%.4s", -1, "te"},
        {9005, 9004, "%s", 9004, text},
        {9005, 9003, "%s", -1, text.substr(0, 9003)},
        {3073, 3072, "%s", -1, text.substr(0, 3072)},
        {3072, 3071, "%s", -1, text.substr(0, 3071)},
        {3072, 3071, "%.3071s", 3071, text.substr(0, 3071)},
        {8, 7, nullptr, -1, ""},
        {8, 7, "%2147483648d", -1, ""},
        {5000, 4999, "%s%ls", -1, ""},
    };
    for (const auto& [destMax, count, format, result, left] : cases) {
        std::string buffer(destMax + 8, '#');
        EXPECT_EQ(Format(buffer.data(), destMax, count, format, text.c_str(), L"a\u20ac"), result);
        EXPECT_EQ(std::string(buffer.c_str()), left);
        EXPECT_EQ(buffer.substr(destMax), "########");
    }
    char unchanged = '#';
    EXPECT_LT(Format(&unchanged, 0, 0, "%s", "text"), 0);
    EXPECT_EQ(unchanged, '#');
    EXPECT_LT(Format(nullptr, 8, 7, "%s", "text"), 0);
}
