#include <climits>
#include <latch>
#include <numeric>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "tests/faults.h"
#include "tests/threads.h"

using namespace NSQN_EMSUTIL_AGENT;
using Names = std::vector<std::string>;

namespace {

EmsNameAndValueStringTypePair Pair(std::string name, std::string value,
                                   std::int32_t rtype = NVTP_TYPE_STRING)
{
    EmsNameAndValueStringTypePair pair;
    pair.name = std::move(name);
    pair.value = std::move(value);
    pair.rtype = rtype;
    return pair;
}

EmsGeneralCmd Cmd(std::string name, std::string value = "")
{
    EmsGeneralCmd cmd;
    cmd.name = std::move(name);
    cmd.nvtps.nvtps.push_back(Pair("value", std::move(value)));
    return cmd;
}

void Add(std::string name, std::string value = "")
{
    EmsGeneralCmd cmd = Cmd(std::move(name), std::move(value));
    addGeneralCmd(cmd);
}

void RunNow(std::string name)
{
    EmsGeneralCmd cmd = Cmd(std::move(name));
    runGeneralCmd(cmd);
}

void Register(std::string name, EmsGeneralCmdHandler handler)
{
    RegEmsUtilCmd registration(name, handler);
}

/// What the handlers saw, in order; they run one at a time.
Names g_Seen;

int See(EmsGeneralCmd* cmd, EmsGeneralCmd* second)
{
    EXPECT_EQ(second, nullptr);
    const auto& pairs = cmd->nvtps.nvtps;
    g_Seen.push_back(cmd->name + (pairs.empty() ? "" : pairs.front().value));
    return -1;
}

int SeeOther(EmsGeneralCmd*, EmsGeneralCmd*)
{
    g_Seen.push_back("other");
    return 0;
}

Names TakeSeen()
{
    return std::move(g_Seen);
}

/// "See0" ... for the commands `first` to `last`.
Names Numbered(int first, int last)
{
    Names names;
    for (int i = first; i <= last; ++i) {
        names.push_back("See" + std::to_string(i));
    }
    return names;
}

constexpr int CAPACITY = (16384 + sizeof(EmsGeneralCmd) - 1) / sizeof(EmsGeneralCmd);

} // namespace

TEST(Records, TextForms)
{
    EXPECT_EQ(EmsNameAndValueStringTypePair().ToString(), "nvtp={name=,value=,rtype=String}");
    EXPECT_EQ(EmsNVTPList().ToString(), "nvtps={}");
    EXPECT_EQ(EmsGeneralObj().ToString(), "obj={nvtps={}}");
    EXPECT_EQ(EmsGeneralObjList().ToString(), "objs={}");
    EXPECT_EQ(EmsGeneralCmd().ToString(), ":={objs={},nvtps={}};");

    EmsGeneralObj obj;
    obj.nvtps.nvtps.push_back(Pair("id", "7", NVTP_TYPE_LONG));
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel";
    cmd.objs.objs.assign(2, obj);
    cmd.nvtps.nvtps = {Pair("%s%n", "%d"), Pair("x", "y", 2), Pair(std::string("a\0b", 3), "1")};
    EXPECT_EQ(cmd.ToString(), ":SetLevel={objs={obj={nvtps={nvtp={name=id,value=7,rtype=Long}}},"
                              "obj={nvtps={nvtp={name=id,value=7,rtype=Long}}}},"
                              "nvtps={nvtp={name=%s%n,value=%d,rtype=String},,"
                              "nvtp={name=a,value=1,rtype=String}}};");
}

TEST(Records, LongsAreReadByStrtolAndReducedTo32Bits)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "0"},
        {"abc", "0"},
        {"  -12xyz", "-12"},
        {"+7", "7"},
        {"4294967297", "1"},
        {"2147483648", "-2147483648"},
        {"-2147483649", "2147483647"},
        {"99999999999999999999", "-1"},
        {"-99999999999999999999", "0"},
    };
    for (const auto& [value, shown] : cases) {
        EXPECT_EQ(Pair("n", value, NVTP_TYPE_LONG).ToString(),
                  std::string("nvtp={name=n,value=") + shown + ",rtype=Long}");
    }
}

TEST(Records, TextFormsAreWhatPrintfMakesOfTheSameFields)
{
    std::mt19937 random(20); // a fixed seed: a failure comes again
    const auto text = [&random] {
        static constexpr std::string_view letters("%sdn,{}=\0 -+09aZ\n\xff", 18);
        std::string made(random() % 40, ' ');
        for (char& letter : made) {
            letter = letters[random() % letters.size()];
        }
        return made;
    };
    for (int i = 0; i < 10000; ++i) {
        EmsNameAndValueStringTypePair pair = Pair(text(), text(), static_cast<int>(random() % 2));
        const bool isText = pair.rtype == NVTP_TYPE_STRING;
        const long value = std::strtol(pair.value.c_str(), nullptr, 10);
        ASSERT_EQ(pair.ToString(),
                  string_format("nvtp={name=%s,value=%s,rtype=%s}", pair.name.c_str(),
                                isText ? pair.value.c_str() : string_format("%ld", value).c_str(),
                                isText ? "String" : "Long"));
    }
}

TEST(Records, CopiesAreDeepAndAssignmentLeavesTheSourcesElements)
{
    EmsGeneralCmd five = Cmd("five");
    five.nvtps.nvtps.assign(5, Pair("old", "old"));
    EmsGeneralCmd three = Cmd("three");
    three.nvtps.nvtps = {Pair("a", "1"), Pair("b", "2", 9), Pair("c", "3", NVTP_TYPE_LONG)};
    three.objs.objs.emplace_back();
    const std::string expected = three.ToString();

    five = three;
    EmsGeneralCmd copy(three);
    EmsGeneralCmd& self = three;
    three = self;
    three.nvtps.nvtps.front().value = "changed";
    three.objs.objs.clear();
    EXPECT_EQ(five.ToString(), expected);
    EXPECT_EQ(copy.ToString(), expected);
    EXPECT_EQ(copy.nvtps.nvtps.size(), 3u);
    EXPECT_EQ((++copy.nvtps.nvtps.begin())->rtype, 9);

    std::string text = expected;
    EXPECT_EQ(copy.FromString(text).ToString(), EmsGeneralCmd().ToString());
    EXPECT_EQ(EmsNVTPList::FromString(text).ToString(), "nvtps={}");
    EXPECT_EQ(text, expected);
    EXPECT_EQ(copy.ToString(), expected);
}

TEST(Commands, TheFirstHandlerOfANameStays)
{
    const std::string withNul("See\0", 4);
    Register("See", nullptr);
    Register("See", See);
    Register("See", SeeOther);
    Register("", See);
    Register(withNul, SeeOther);
    for (const std::string& name :
         {std::string("See"), std::string(), withNul, std::string("see"), std::string("Se")}) {
        RunNow(name);
    }
    EXPECT_EQ(TakeSeen(), (Names{"See", "", "other"}));
}

TEST(Commands, RunAtOnceOnTheCallersRecord)
{
    Register("Change", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        cmd->name = "changed";
        return 0;
    });
    EmsGeneralCmd cmd = Cmd("Change");
    runGeneralCmd(cmd);
    EXPECT_EQ(cmd.name, "changed");
}

TEST(Commands, QueuedCommandsRunInOrderOnceTheirHandlerIsThere)
{
    runGeneralCmd(); // an empty queue: nothing happens
    EmsGeneralCmd cmd = Cmd("See", "0");
    addGeneralCmd(cmd);
    cmd.nvtps.nvtps.front().value = "changed after the add";
    Add("Late", "dropped");
    Add("See", "1");
    Register("See", See);
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), Numbered(0, 1));
    Register("Late", See);
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), Names{});
}

TEST(Commands, AHandlerMayAddRunRegisterAndDrain)
{
    Register("See", See);
    Register("All", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        Register("New", SeeOther);
        Add("See", "1");
        RunNow("New");
        runGeneralCmd();
        Add("See", "2");
        return 0;
    });
    Add("All");
    Add("See", "0");
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), (Names{"other", "See0", "See1", "See2"}));
}

TEST(Commands, AThrowingHandlerLeavesTheRestQueuedAndTheThreadNoDrainer)
{
    Register("See", See);
    Register("Throw", [](EmsGeneralCmd*, EmsGeneralCmd*) -> int { throw std::string("thrown"); });
    Add("Throw");
    Add("See", "0");
    Add("See", "1");
    EXPECT_THROW(runGeneralCmd(), std::string);
    EXPECT_EQ(TakeSeen(), Names{});

    // Had the drain not ended, this thread would now queue past the limit instead of waiting.
    std::thread drainer;
    static std::latch* g_pWaiting = nullptr;
    std::latch waiting(1);
    g_pWaiting = &waiting;
    faults::g_pOnConditionWait = [] { g_pWaiting->count_down(); };
    drainer = std::thread([&waiting] {
        waiting.wait();
        faults::g_pOnConditionWait = nullptr;
        runGeneralCmd();
    });
    for (int i = 2; i <= CAPACITY; ++i) {
        Add("See", std::to_string(i));
    }
    drainer.join();
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), Numbered(0, CAPACITY));
}

TEST(Commands, AFullQueueHoldsOthersBackButNotTheHandlerThatDrainsIt)
{
    static std::thread producer;
    static std::latch waiting(1);
    static std::latch added(1);
    Register("See", See);
    Register("Burst", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        for (int i = CAPACITY; i < 3 * CAPACITY; ++i) {
            Add("See", std::to_string(i));
            if (i == 2 * CAPACITY + CAPACITY / 2) {
                Add("AwaitAdd");
            }
        }
        faults::g_pOnConditionWait = [] { waiting.count_down(); };
        producer = std::thread([] {
            Add("See", "Last");
            added.count_down();
        });
        waiting.wait(); // it is held back, though this thread is not
        faults::g_pOnConditionWait = nullptr;
        EXPECT_FALSE(added.try_wait());
        return 0;
    });
    // The queue is half full by then, so the producer must have been let in.
    Register("AwaitAdd", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        added.wait();
        return 0;
    });
    Add("Burst");
    for (int i = 1; i < CAPACITY; ++i) {
        Add("See", std::to_string(i));
    }
    runGeneralCmd();
    producer.join();

    Names seen = TakeSeen();
    EXPECT_EQ(std::erase(seen, "SeeLast"), 1u);
    EXPECT_EQ(seen, Numbered(1, 3 * CAPACITY - 1));
}

TEST(Commands, ProducersKeepTheirOwnOrderThroughAFullQueue)
{
    constexpr int producers = 8;
    constexpr int each = 2000;
    static std::map<std::string, std::vector<int>> seen;
    Register("Count", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        const auto& pair = cmd->nvtps.nvtps.front();
        seen[pair.name].push_back(std::stoi(pair.value));
        return 0;
    });
    RunOnThreads(producers + 1, [running = std::make_shared<std::atomic<int>>(producers)](int p) {
        if (p == producers) { // drains
            while (*running > 0) {
                runGeneralCmd();
            }
            return;
        }
        for (int i = 0; i < each; ++i) {
            EmsGeneralCmd cmd = Cmd("Count", std::to_string(i));
            cmd.nvtps.nvtps.front().name = std::to_string(p);
            addGeneralCmd(cmd);
        }
        --*running;
    });
    runGeneralCmd();
    std::vector<int> expected(each);
    std::iota(expected.begin(), expected.end(), 0);
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(producers));
    for (const auto& [producer, values] : seen) {
        EXPECT_EQ(values, expected) << producer;
    }
}

TEST(Commands, RegistrationDuringRunsIsSafe)
{
    Register("See", See);
    std::thread registrar([] {
        for (int i = 0; i < 2000; ++i) {
            Register("name" + std::to_string(i), See);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        RunNow("See");
    }
    registrar.join();
    EXPECT_EQ(TakeSeen().size(), 2000u);
    RunNow("name1999");
    EXPECT_EQ(TakeSeen().size(), 1u);
}

TEST(Commands, TwoDrainsLoseNothingAndRunNothingTwice)
{
    constexpr int commands = 4000;
    static std::atomic<int> ran;
    static std::atomic<bool> stopping;
    Register("Count", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        ++ran;
        return 0;
    });
    static std::atomic<int> woken;
    Register("Wake", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        ++woken;
        return 0;
    });
    const auto drain = [] {
        while (!stopping) {
            runGeneralCmd();
        }
    };
    std::atomic<int> ended = 0;
    std::thread first([&] {
        drain();
        ++ended;
    });
    std::thread second([&] {
        drain();
        ++ended;
    });
    for (int i = 0; i < commands; ++i) {
        Add("Count");
    }
    // A drain that lost the race for a command waits for the next add: these end the wait, one at
    // a time, so that they never fill the queue.
    for (int added = 0; ended < 2; std::this_thread::yield()) {
        stopping = ran == commands;
        if (woken == added) {
            Add("Wake");
            ++added;
        }
    }
    first.join();
    second.join();
    EXPECT_EQ(ran, commands);
}

TEST(Commands, LargeCommandsPassWhole)
{
    static std::string seen;
    Register(std::string(1'000'000, 'n'), [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        seen = cmd->ToString();
        return 0;
    });
    EmsGeneralCmd cmd = Cmd(std::string(1'000'000, 'n'));
    for (int i = 0; i < 100'000; ++i) {
        cmd.nvtps.nvtps.push_back(Pair("%d", std::to_string(i), i % 3));
    }
    addGeneralCmd(cmd);
    runGeneralCmd();
    EXPECT_TRUE(seen == cmd.ToString());
}

TEST(Commands, ARegistryThatGoesFreesWhatIsQueuedUnrun)
{
    // A leak checker tells whether it frees them.
    {
        EmsGeneralCmdMgr registry;
        registry.Register("See", See);
        registry.Add(Cmd("See"));
        registry.Add(Cmd("See"));
    }
    EXPECT_EQ(TakeSeen(), Names{});
}
