#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not declare the thread-safe queue.
#include <ace/Message_Queue.h>

#ifdef BENCH_HAS_BOOST
#include <boost/signals2.hpp>
#endif
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

namespace bench {

namespace {

constexpr int WATER_MARK_BYTES = 16384;
constexpr int ROUND = 2000; // commands of a producer

int g_nHandled = 0; // changed only by the thread that runs the handlers

int Handle(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    benchmark::DoNotOptimize(cmd);
    return ++g_nHandled;
}

EmsGeneralCmd Command(int pairs)
{
    EmsGeneralCmd cmd;
    cmd.name = "Command0";
    EmsNameAndValueStringTypePair pair;
    pair.name = "label";
    pair.value = "two words";
    cmd.nvtps.nvtps.assign(static_cast<std::size_t>(pairs), pair);
    return cmd;
}

std::map<std::string, EmsGeneralCmdHandler> g_Handlers;
ACE_Thread_Mutex g_HandlerLock;

/// "Command0", "Command1" and so on, registered with the library and in the floor's map.
void RegisterHandlers(int count)
{
    for (int number = 0; number < count; ++number) {
        std::string name = "Command" + std::to_string(number);
        const RegEmsUtilCmd registration(name, Handle);
        g_Handlers.emplace(name, Handle);
    }
}

void RunHandler(EmsGeneralCmd& cmd)
{
    EmsGeneralCmdHandler handler = nullptr;
    {
        const ACE_Guard<ACE_Thread_Mutex> guard(g_HandlerLock);
        const auto found = g_Handlers.find(cmd.name);
        handler = found != g_Handlers.end() ? found->second : nullptr;
    }
    if (handler != nullptr) {
        handler(&cmd, nullptr);
    }
}

struct OurQueue
{
    void Add(EmsGeneralCmd& cmd) { addGeneralCmd(cmd); }
    void Drain() { runGeneralCmd(); }
};

struct BareQueue
{
    void Add(EmsGeneralCmd& cmd)
    {
        auto* copy = new EmsGeneralCmd;
        *copy = cmd;
        auto* block =
            new ACE_Message_Block(reinterpret_cast<const char*>(copy), sizeof(EmsGeneralCmd), 0);
        if (queue.enqueue(block, nullptr) == -1) {
            delete copy;
            delete block;
        }
    }

    void Drain()
    {
        while (!queue.is_empty()) {
            ACE_Message_Block* block = nullptr;
            queue.dequeue(block, nullptr);
            auto* copy = reinterpret_cast<EmsGeneralCmd*>(block->base());
            RunHandler(*copy);
            delete copy;
            delete block;
        }
    }

    ACE_Message_Queue<ACE_MT_SYNCH> queue{WATER_MARK_BYTES, WATER_MARK_BYTES, nullptr};
};

#ifdef BENCH_HAS_POCO
struct CmdNotification : Poco::Notification
{
    explicit CmdNotification(const EmsGeneralCmd& source) : cmd(source) {}

    EmsGeneralCmd cmd;
};

struct UnboundedQueue
{
    void Add(EmsGeneralCmd& cmd) { queue.enqueueNotification(new CmdNotification(cmd)); }

    void Drain()
    {
        for (;;) {
            const Poco::AutoPtr<Poco::Notification> next(queue.dequeueNotification());
            if (next.isNull()) {
                return;
            }
            RunHandler(
                static_cast<CmdNotification&>(*const_cast<Poco::Notification*>(next.get())).cmd);
        }
    }

    Poco::NotificationQueue queue;
};
#endif

#ifdef BENCH_HAS_TBB
struct BoundedQueue
{
    /// Has room for as many commands as ours.
    BoundedQueue()
    {
        queue.set_capacity((WATER_MARK_BYTES + sizeof(EmsGeneralCmd) - 1) / sizeof(EmsGeneralCmd));
    }

    void Add(EmsGeneralCmd& cmd) { queue.push(std::make_unique<EmsGeneralCmd>(cmd)); }

    void Drain()
    {
        std::unique_ptr<EmsGeneralCmd> cmd;
        while (queue.try_pop(cmd)) {
            RunHandler(*cmd);
        }
    }

    tbb::concurrent_bounded_queue<std::unique_ptr<EmsGeneralCmd>> queue;
};
#endif

/// One command is added and drained, again and again.
template <class Queue>
Body OnOneThread(int pairs)
{
    return [pairs](benchmark::State& state) {
        RegisterHandlers(1);
        EmsGeneralCmd cmd = Command(pairs);
        Queue queue;
        g_nHandled = 0;
        Measure(
            state,
            [&] {
                queue.Add(cmd);
                queue.Drain();
            },
            [] { return g_nHandled == 1; });
    };
}

/// Each producer adds a round of commands while this thread drains.
template <class Queue>
Body AcrossThreads(int producers)
{
    return [producers](benchmark::State& state) {
        RegisterHandlers(1);
        Queue queue;
        const int commands = producers * ROUND;
        Measure(
            state,
            [&] {
                g_nHandled = 0;
                std::vector<std::jthread> threads;
                for (int producer = 0; producer < producers; ++producer) {
                    threads.emplace_back([&queue] {
                        EmsGeneralCmd cmd = Command(4);
                        for (int i = 0; i < ROUND; ++i) {
                            queue.Add(cmd);
                        }
                    });
                }
                while (g_nHandled < commands) {
                    queue.Drain();
                    std::this_thread::yield();
                }
            },
            [&] { return g_nHandled == commands; }, commands);
    };
}

void AddQueue()
{
    for (const int pairs : {0, 4, 16}) {
        const std::string operation =
            "add and drain, one thread, " + std::to_string(pairs) + " pairs";
        Ours(operation, OnOneThread<OurQueue>(pairs));
        Floor(operation, 1.1, OnOneThread<BareQueue>(pairs));
#ifdef BENCH_HAS_TBB
        Peer(operation, "tbb::concurrent_bounded_queue", 0, OnOneThread<BoundedQueue>(pairs));
#endif
    }
    for (const int producers : {1, 4, 16}) {
        const std::string operation = "add and drain, " + std::to_string(producers) +
                                      (producers == 1 ? " producer" : " producers");
        std::vector<Row*> rows = {
            Ours(operation, AcrossThreads<OurQueue>(producers)),
            Floor(operation, producers == 1 ? 1.1 : 0.7, AcrossThreads<BareQueue>(producers)),
        };
#ifdef BENCH_HAS_TBB
        rows.push_back(Peer(operation, "tbb::concurrent_bounded_queue", 1,
                            AcrossThreads<BoundedQueue>(producers)));
#endif
#ifdef BENCH_HAS_POCO
        rows.push_back(Peer(operation, "Poco::NotificationQueue, unbounded", 1.4,
                            AcrossThreads<UnboundedQueue>(producers)));
#endif
        for (Row* row : rows) {
            row->UseRealTime();
        }
    }
}

/// Runs commands in an order that the processor cannot learn.
template <class Run>
Body RunAtOnce(int handlers, Run run)
{
    return [handlers, run](benchmark::State& state) {
        RegisterHandlers(handlers);
        std::vector<EmsGeneralCmd> commands;
        for (int number = 0; number < handlers; ++number) {
            commands.push_back(Command(0));
            commands.back().name = "Command" + std::to_string(number);
        }
        std::mt19937 random(20);
        std::vector<EmsGeneralCmd*> order(65536);
        for (EmsGeneralCmd*& cmd : order) {
            cmd = &commands[random() % commands.size()];
        }
        std::size_t next = 0;
        g_nHandled = 0;
        Measure(
            state, [&] { run(*order[next++ % order.size()]); }, [] { return g_nHandled == 1; });
    };
}

void AddHandlers()
{
    for (const auto& [handlers, text] :
         {std::pair(10, "10"), std::pair(100, "100"), std::pair(1000, "1,000")}) {
        const std::string operation = std::string("run a command at once, ") + text + " handlers";
        Ours(operation, RunAtOnce(handlers, [](EmsGeneralCmd& cmd) { runGeneralCmd(cmd); }));
        Floor(operation, 1.1, RunAtOnce(handlers, RunHandler));
#ifdef BENCH_HAS_BOOST
        using Signal = boost::signals2::signal<int(EmsGeneralCmd*, EmsGeneralCmd*)>;
        Peer(operation, "Boost.Signals2", 1, [handlers = handlers](benchmark::State& state) {
            std::map<std::string, Signal> signals;
            for (int number = 0; number < handlers; ++number) {
                signals["Command" + std::to_string(number)].connect(Handle);
            }
            RunAtOnce(handlers, [&signals](EmsGeneralCmd& cmd) {
                signals.find(cmd.name)->second(&cmd, nullptr);
            })(state);
        });
#endif
    }
}

void AddTextForm()
{
    Ours("text form of 10 objects", [](benchmark::State& state) {
        EmsNameAndValueStringTypePair number;
        number.name = "identifier";
        number.value = "4711";
        number.rtype = NVTP_TYPE_LONG;
        EmsGeneralCmd cmd = Command(1);
        EmsGeneralObj obj;
        obj.nvtps = cmd.nvtps;
        obj.nvtps.nvtps.push_back(number);
        cmd.objs.objs.assign(10, obj);
        std::string text;
        Measure(
            state, [&] { text = cmd.ToString(); },
            [&] {
                return text.find("name=identifier,value=4711,rtype=Long") != std::string::npos;
            });
    });
}

} // namespace

void AddGeneralCommands()
{
    AddTextForm();
    AddQueue();
    AddHandlers();
}

} // namespace bench
