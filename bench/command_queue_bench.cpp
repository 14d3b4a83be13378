#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ace/Synch.h>
// After ace/Synch.h: without it the header does not declare the thread-safe queue.
#include <ace/Message_Queue.h>

#ifdef BENCH_HAS_CONCURRENTQUEUE
#include <concurrentqueue/concurrentqueue.h>
#endif
#ifdef BENCH_HAS_GLIB
#include <glib.h>
#endif
#ifdef BENCH_HAS_POCO
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#endif

#include "bench/compare.h"
#include "emsutil/general_command.h"

using namespace NSQN_EMSUTIL_AGENT;

namespace bench {

namespace {

constexpr int ROUND = 2000; // commands of a producer

int g_nHandled = 0; // handlers run on the thread that drains

int Handle(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    benchmark::DoNotOptimize(cmd);
    return ++g_nHandled;
}

EmsGeneralCmd Command(int pairs)
{
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel";
    EmsNameAndValueStringTypePair pair;
    pair.name = "label";
    pair.value = "two words";
    cmd.nvtps.nvtps.assign(static_cast<std::size_t>(pairs), pair);
    return cmd;
}

std::map<std::string, EmsGeneralCmdHandler> g_Handlers;
ACE_Thread_Mutex g_HandlerLock;

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

/// The library's queue, as its floor and its peers look too.
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

    ACE_Message_Queue<ACE_MT_SYNCH> queue{16384, 16384, nullptr};
};

#ifdef BENCH_HAS_POCO
struct CmdNotification : Poco::Notification
{
    explicit CmdNotification(const EmsGeneralCmd& source) : cmd(source) {}

    EmsGeneralCmd cmd;
};

struct PocoQueue
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

#ifdef BENCH_HAS_GLIB
struct GlibQueue
{
    ~GlibQueue() { g_async_queue_unref(queue); }

    void Add(EmsGeneralCmd& cmd) { g_async_queue_push(queue, new EmsGeneralCmd(cmd)); }

    void Drain()
    {
        while (void* next = g_async_queue_try_pop(queue)) {
            const std::unique_ptr<EmsGeneralCmd> cmd(static_cast<EmsGeneralCmd*>(next));
            RunHandler(*cmd);
        }
    }

    GAsyncQueue* queue = g_async_queue_new();
};
#endif

#ifdef BENCH_HAS_CONCURRENTQUEUE
struct LockFreeQueue
{
    void Add(EmsGeneralCmd& cmd) { queue.enqueue(std::make_unique<EmsGeneralCmd>(cmd)); }

    void Drain()
    {
        std::unique_ptr<EmsGeneralCmd> cmd;
        while (queue.try_dequeue(cmd)) {
            RunHandler(*cmd);
        }
    }

    moodycamel::ConcurrentQueue<std::unique_ptr<EmsGeneralCmd>> queue;
};
#endif

/// One command is added and drained, again and again.
template <class Queue>
void OnOneThread(benchmark::State& state, EmsGeneralCmd& cmd)
{
    Queue queue;
    for (auto _ : state) {
        queue.Add(cmd);
        queue.Drain();
    }
}

/// Each producer adds a round of commands while this thread drains.
template <class Queue>
void AcrossThreads(benchmark::State& state, EmsGeneralCmd& cmd, int producers)
{
    Queue queue;
    const int commands = producers * ROUND;
    while (state.KeepRunningBatch(commands)) {
        g_nHandled = 0;
        std::vector<std::jthread> threads;
        for (int producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&] {
                EmsGeneralCmd own = cmd;
                for (int i = 0; i < ROUND; ++i) {
                    queue.Add(own);
                }
            });
        }
        while (g_nHandled < commands) {
            queue.Drain();
            std::this_thread::yield();
        }
    }
}

/// `body(state, queue type)` for every kind of queue.
template <class MakeBody>
std::vector<Row> Rows(bool isAheadOfPoco, MakeBody makeBody)
{
    std::vector<Row> rows = {Ours(makeBody.template operator()<OurQueue>()),
                             Floor(makeBody.template operator()<BareQueue>())};
#ifdef BENCH_HAS_POCO
    const Body poco = makeBody.template operator()<PocoQueue>();
    rows.push_back(isAheadOfPoco ? Rival("Poco::NotificationQueue", poco)
                                 : Peer("Poco::NotificationQueue", poco));
#endif
#ifdef BENCH_HAS_GLIB
    rows.push_back(Peer("GAsyncQueue", makeBody.template operator()<GlibQueue>()));
#endif
#ifdef BENCH_HAS_CONCURRENTQUEUE
    rows.push_back(
        Peer("moodycamel::ConcurrentQueue", makeBody.template operator()<LockFreeQueue>()));
#endif
    return rows;
}

} // namespace

void MeasureCommandQueue()
{
    std::string name = "SetLevel";
    const RegEmsUtilCmd registration(name, Handle);
    g_Handlers.emplace(name, Handle);

    for (const int pairs : {0, 4, 16}) {
        EmsGeneralCmd cmd = Command(pairs);
        Compare({"add and drain, one thread, " + std::to_string(pairs) + " pairs", 1.1},
                Rows(pairs == 16, [&cmd]<class Queue>() -> Body {
                    return [&cmd](benchmark::State& state) { OnOneThread<Queue>(state, cmd); };
                }));
    }
    for (const int producers : {1, 4}) {
        EmsGeneralCmd cmd = Command(4);
        const std::string who = producers == 1 ? "1 producer" : "4 producers";
        Compare({"add and drain, " + who + ", 4 pairs", 1.1, Time::Wall},
                Rows(true, [&cmd, producers]<class Queue>() -> Body {
                    return [&cmd, producers](benchmark::State& state) {
                        AcrossThreads<Queue>(state, cmd, producers);
                    };
                }));
    }
}

} // namespace bench
