#include <map>
#include <random>
#include <thread>
#include <vector>

#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not declare the thread-safe queue.
#include <ace/Message_Queue.h>

#ifdef BENCH_HAS_POCO
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#endif
#ifdef BENCH_HAS_TBB
#include <tbb/concurrent_queue.h>
#endif

#include "bench/measure.h"
#include "emsutil/general_command.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace {

constexpr int WATER_MARK_BYTES = 16384;
constexpr int ROUND = 2000; // commands of a producer

int g_nHandled = 0; // changed only by the thread that runs the handlers

int Handle(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    benchmark::DoNotOptimize(cmd);
    return ++g_nHandled;
}

EmsGeneralCmd Command(int number, int pairs)
{
    EmsNameAndValueStringTypePair pair;
    pair.name = "label";
    pair.value = "two words";
    EmsGeneralCmd cmd;
    cmd.name = "Command" + std::to_string(number);
    cmd.nvtps.nvtps.assign(static_cast<std::size_t>(pairs), pair);
    return cmd;
}

std::map<std::string, EmsGeneralCmdHandler> g_Handlers;
ACE_Thread_Mutex g_HandlerLock;

/// Returns commands of different names, registered with the library and in the floor's map.
std::vector<EmsGeneralCmd> Register(int count)
{
    std::vector<EmsGeneralCmd> commands;
    for (int number = 0; number < count; ++number) {
        commands.push_back(Command(number, 0));
        const RegEmsUtilCmd registration(commands.back().name, Handle);
        g_Handlers.emplace(commands.back().name, Handle);
    }
    return commands;
}

void RunHandler(EmsGeneralCmd& cmd)
{
    EmsGeneralCmdHandler handler = nullptr;
    {
        const ACE_Guard<ACE_Thread_Mutex> guard(g_HandlerLock);
        handler = g_Handlers.find(cmd.name)->second;
    }
    handler(&cmd, nullptr);
}

struct OurQueue
{
    void Add(EmsGeneralCmd& cmd) { addGeneralCmd(cmd); }
    void Drain() { runGeneralCmd(); }
};

/// Deep copies in a `Queue` of pointers, which has the names of TBB's.
template <class Queue>
struct Copies
{
    void Add(EmsGeneralCmd& cmd) { queue.push(new EmsGeneralCmd(cmd)); }

    void Drain()
    {
        EmsGeneralCmd* cmd = nullptr;
        while (queue.try_pop(cmd)) {
            RunHandler(*cmd);
            delete cmd;
        }
    }

    Queue queue;
};

struct AceQueue
{
    void push(EmsGeneralCmd* cmd)
    {
        queue.enqueue(new ACE_Message_Block(reinterpret_cast<const char*>(cmd), sizeof *cmd, 0),
                      nullptr);
    }

    bool try_pop(EmsGeneralCmd*& cmd)
    {
        if (queue.is_empty()) {
            return false;
        }
        ACE_Message_Block* block = nullptr;
        queue.dequeue(block, nullptr);
        cmd = reinterpret_cast<EmsGeneralCmd*>(block->base());
        delete block;
        return true;
    }

    ACE_Message_Queue<ACE_MT_SYNCH> queue{WATER_MARK_BYTES, WATER_MARK_BYTES, nullptr};
};

using BareQueue = Copies<AceQueue>;

#ifdef BENCH_HAS_POCO
struct PocoQueue
{
    struct Command : Poco::Notification
    {
        explicit Command(const EmsGeneralCmd& source) : cmd(source) {}

        EmsGeneralCmd cmd;
    };

    void Add(EmsGeneralCmd& cmd) { queue.enqueueNotification(new Command(cmd)); }

    void Drain()
    {
        while (auto* next = static_cast<Command*>(queue.dequeueNotification())) {
            RunHandler(next->cmd);
            next->release();
        }
    }

    Poco::NotificationQueue queue;
};
#endif

#ifdef BENCH_HAS_TBB
struct BoundedPointers : tbb::concurrent_bounded_queue<EmsGeneralCmd*>
{
    BoundedPointers() { set_capacity(WATER_MARK_BYTES / sizeof(EmsGeneralCmd) + 1); }
};

using BoundedQueue = Copies<BoundedPointers>;
#endif

/// One command is added and drained, again and again.
template <class Queue>
void OnOneThread(benchmark::State& state, int pairs)
{
    Register(1);
    EmsGeneralCmd cmd = Command(0, pairs);
    Queue queue;
    g_nHandled = 0;
    Measure(state, [&] {
        queue.Add(cmd);
        queue.Drain();
    });
    Check(state, g_nHandled > state.iterations());
}

/// Each producer adds a round of commands while this thread drains.
template <class Queue>
void AcrossThreads(benchmark::State& state, int producers)
{
    Register(1);
    Queue queue;
    const int commands = producers * ROUND;
    const auto produce = [&queue] {
        EmsGeneralCmd cmd = Command(0, 4);
        for (int i = 0; i < ROUND; ++i) {
            queue.Add(cmd);
        }
    };
    const auto run = [&] {
        g_nHandled = 0;
        std::vector<std::jthread> threads;
        for (int producer = 0; producer < producers; ++producer) {
            threads.emplace_back(produce);
        }
        while (g_nHandled < commands) {
            queue.Drain();
            std::this_thread::yield();
        }
    };
    Measure(state, run, commands);
    Check(state, g_nHandled == commands);
}

/// Runs commands in an order that the processor cannot learn.
template <class Run>
void RunAtOnce(benchmark::State& state, int handlers, Run run)
{
    std::vector<EmsGeneralCmd> commands = Register(handlers);
    std::mt19937 random(20);
    std::vector<EmsGeneralCmd*> order(65536);
    for (EmsGeneralCmd*& cmd : order) {
        cmd = &commands[random() % commands.size()];
    }
    std::size_t next = 0;
    g_nHandled = 0;
    Measure(state, [&] { run(*order[next++ % order.size()]); });
    Check(state, g_nHandled > state.iterations());
}

void AddProducers(int count, const std::string& text, double goal)
{
    const std::string operation = "add and drain, " + text;
    const std::vector<Row*> rows = {
        Ours(operation, [=](auto& state) { AcrossThreads<OurQueue>(state, count); }),
        Floor(operation, goal, [=](auto& state) { AcrossThreads<BareQueue>(state, count); }),
#ifdef BENCH_HAS_POCO
        Peer(operation, "Poco::NotificationQueue, unbounded", 1.4,
             [=](auto& state) { AcrossThreads<PocoQueue>(state, count); }),
#endif
#ifdef BENCH_HAS_TBB
        Add(operation + "/bounded peer", "tbb::concurrent_bounded_queue", 1,
            [=](auto& state) { AcrossThreads<BoundedQueue>(state, count); }),
#endif
    };
    for (Row* row : rows) {
        row->UseRealTime();
    }
}

} // namespace

void AddGeneralCommands()
{
    Ours("text form of 10 objects", [](benchmark::State& state) {
        EmsGeneralObj obj;
        obj.nvtps = Command(0, 2).nvtps;
        EmsNameAndValueStringTypePair& number = obj.nvtps.nvtps.back();
        number.name = "identifier";
        number.value = "4711";
        number.rtype = NVTP_TYPE_LONG;
        EmsGeneralCmd cmd = Command(0, 1);
        cmd.objs.objs.assign(10, obj);
        std::string text;
        Measure(state, [&] { text = cmd.ToString(); });
        Check(state, text.find("name=identifier,value=4711,rtype=Long") != std::string::npos);
    });
    for (const int pairs : {4, 16}) {
        const std::string operation =
            "add and drain, one thread, " + std::to_string(pairs) + " pairs";
        Ours(operation, [=](auto& state) { OnOneThread<OurQueue>(state, pairs); });
        Floor(operation, 1.1, [=](auto& state) { OnOneThread<BareQueue>(state, pairs); });
    }
    AddProducers(1, "1 producer", 1.1);
    AddProducers(4, "4 producers", 0.7);
    AddProducers(16, "16 producers", 0.7);
    Ours("run a command at once, 100 handlers", [](auto& state) {
        RunAtOnce(state, 100, [](EmsGeneralCmd& cmd) { runGeneralCmd(cmd); });
    });
    Floor("run a command at once, 100 handlers", 1.1,
          [](auto& state) { RunAtOnce(state, 100, RunHandler); });
}
