#include <cerrno>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "agent/emsutil_agent_generalcmd.h"
#include "emsutil/general_command.h"
#include "tests/support/faults.h"

using namespace NSQN_EMSUTIL_AGENT;
using Names = std::vector<std::string>;

namespace {

EmsNameAndValueStringTypePair Pair(const std::string& name, const std::string& value,
                                   std::int32_t rtype = NVTP_TYPE_STRING)
{
    EmsNameAndValueStringTypePair pair;
    pair.name = name;
    pair.value = value;
    pair.rtype = rtype;
    return pair;
}

EmsGeneralCmd Cmd(const std::string& name, const std::string& value = "")
{
    EmsGeneralCmd cmd;
    cmd.name = name;
    cmd.nvtps.nvtps.push_back(Pair("value", value));
    return cmd;
}

void Add(const std::string& name, int value)
{
    EmsGeneralCmd cmd = Cmd(name, std::to_string(value));
    addGeneralCmd(cmd);
}

void Register(std::string name, EmsGeneralCmdHandler handler)
{
    RegEmsUtilCmd registration(name, handler);
}

/// The commands that the handlers received, in order. Handlers run one at a time.
Names g_Seen;

int See(EmsGeneralCmd* cmd, EmsGeneralCmd* second)
{
    EXPECT_EQ(second, nullptr);
    g_Seen.push_back(cmd->name + cmd->nvtps.nvtps.front().value);
    return -1;
}

int SeeOther(EmsGeneralCmd*, EmsGeneralCmd*)
{
    g_Seen.push_back("other");
    return 0;
}

Names TakeSeen()
{
    return std::exchange(g_Seen, {});
}

/// Returns "See<number>" for each number from `first` to `last`.
Names Numbered(int first, int last)
{
    Names names;
    for (int i = first; i <= last; ++i) {
        names.push_back("See" + std::to_string(i));
    }
    return names;
}

/// Thrown where a thread would wait for room in the queue.
struct Waits
{};

constexpr int CAPACITY = (16384 + sizeof(EmsGeneralCmd) - 1) / sizeof(EmsGeneralCmd);

} // namespace

TEST(Records, TextFormsAndCopies)
{
    EXPECT_EQ(EmsNameAndValueStringTypePair().ToString(), "nvtp={name=,value=,rtype=String}");
    EXPECT_EQ(EmsGeneralCmd().ToString(), ":={objs={},nvtps={}};");

    const std::string nul(1, '\0');
    EmsGeneralCmd cmd;
    cmd.name = "Set%s" + nul + "x";
    cmd.objs.objs.resize(2);
    cmd.nvtps.nvtps = {Pair("id" + nul, " -7x", NVTP_TYPE_LONG), Pair("x", "y", 2),
                       Pair("a" + nul, "b" + nul + "c")};
    cmd.objs.objs.back().nvtps.nvtps = {Pair("%n", "", -1), Pair("=,{", "}\n")};
    EXPECT_EQ(cmd.ToString(), ":Set%s={objs={obj={nvtps={}},obj={nvtps={,"
                              "nvtp={name==,{,value=}\n,rtype=String}}}},"
                              "nvtps={nvtp={name=id,value=-7,rtype=Long},,"
                              "nvtp={name=a,value=b,rtype=String}}};");
    EmsGeneralCmd assigned = Cmd("old");
    assigned = EmsGeneralCmd(cmd);
    EXPECT_EQ(assigned.ToString(), cmd.ToString());
    // The value is read as 64 bits, with saturation, and the low 32 bits of it are shown.
    const std::pair<const char*, const char*> longs[] = {
        {"x", "0"},
        {"010", "10"},
        {"2147483648", "-2147483648"},
        {" -2147483649", "2147483647"},
        {"9223372036854775808", "-1"},
        {"-9223372036854775809", "0"},
    };
    for (const auto& [value, shown] : longs) {
        EXPECT_EQ(Pair("", value, NVTP_TYPE_LONG).ToString(),
                  std::string("nvtp={name=,value=") + shown + ",rtype=Long}");
    }
}

TEST(Commands, TheFirstHandlerOfANameRunsOnTheCallersRecord)
{
    const std::string withNul("See\0", 4);
    Register("See", nullptr);
    Register("See", See);
    Register("See", SeeOther);
    Register("", [](EmsGeneralCmd* cmd, EmsGeneralCmd*) {
        cmd->name = "changed";
        return 0;
    });
    Register(withNul, SeeOther);
    for (const std::string& name :
         {std::string("See"), withNul, std::string("see"), std::string("Se"), std::string()}) {
        EmsGeneralCmd cmd = Cmd(name);
        runGeneralCmd(cmd);
        EXPECT_EQ(cmd.name, name.empty() ? "changed" : name);
    }
    EXPECT_EQ(TakeSeen(), (Names{"See", "other"}));
}

TEST(Commands, QueuedCommandsRunInOrderAndMayUseTheService)
{
    runGeneralCmd(); // an empty queue: nothing happens
    EmsGeneralCmd cmd = Cmd("See", "0");
    addGeneralCmd(cmd);
    cmd.nvtps.nvtps.front().value = "changed after the add";
    Add("Late", 0); // dropped
    Add("All", 0);
    Add("See", 1);
    Register("See", See);
    Register("All", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        Register("New", SeeOther);
        Add("See", 2);
        EmsGeneralCmd inner = Cmd("New");
        runGeneralCmd(inner);
        runGeneralCmd();
        Add("See", 3);
        return 0;
    });
    runGeneralCmd();
    Register("Late", See);
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), (Names{"See0", "other", "See1", "See2", "See3"}));
}

TEST(Commands, AnAddToAFullQueueWaitsExceptOnTheDrainingThread)
{
    faults::g_pOnConditionWait = [] { throw Waits(); };
    Register("See", See);
    Register("Burst", [](EmsGeneralCmd*, EmsGeneralCmd*) -> int {
        for (int i = CAPACITY; i < 2 * CAPACITY; ++i) {
            Add("See", i);
        }
        std::thread([] { EXPECT_THROW(Add("See", -1), Waits); }).join();
        throw std::string("thrown");
    });
    Add("Burst", 0);
    for (int i = 1; i < CAPACITY; ++i) {
        Add("See", i);
    }
    EXPECT_THROW(Add("See", -1), Waits);
    EXPECT_THROW(runGeneralCmd(), std::string); // which ends the drain, and leaves the rest queued
    EXPECT_THROW(Add("See", -1), Waits);
    // An attempt whose lock fails is the last. The earlier attempts must have unlocked the queue.
    for (const int n : {1, 2, 3}) {
        const faults::FailNth fail(faults::MUTEX_LOCK, n, EAGAIN);
        Add("See", -1);
        EXPECT_TRUE(fail.Happened());
    }
    runGeneralCmd();
    EXPECT_EQ(TakeSeen(), Numbered(1, 2 * CAPACITY - 1));
}

TEST(Commands, AWaitingAddContinuesAsSoonAsThereIsRoom)
{
    static std::latch waiting(1);
    static std::latch added(1);
    faults::g_pOnConditionWait = [] { waiting.count_down(); };
    Register("See", See);
    Register("AwaitAdd", [](EmsGeneralCmd*, EmsGeneralCmd*) {
        added.wait();
        return 0;
    });
    for (int i = 0; i < CAPACITY; ++i) {
        Add("AwaitAdd", i);
    }
    std::thread producer([] {
        Add("See", 1);
        added.count_down();
    });
    waiting.wait();
    runGeneralCmd();
    producer.join();
    EXPECT_EQ(TakeSeen(), Numbered(1, 1));
}

TEST(Commands, DestroyingTheRegistryFreesQueuedCommandsWithoutRunningThem)
{
    const long before = faults::LiveAllocations();
    {
        EmsGeneralCmdMgr registry;
        registry.Register("See", See);
        registry.Add(Cmd("See"));
        registry.Add(Cmd("See"));
    }
    EXPECT_EQ(faults::LiveAllocations(), before);
    EXPECT_EQ(TakeSeen(), Names{});
}
