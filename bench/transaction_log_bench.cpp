#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "bench/measure.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_util;

namespace bench {

namespace {

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;
using CountGuard = ACE_Guard<ACE_Thread_Mutex>;

const std::string NAME = "request";

/// What a log consists of, with nothing around it.
struct BareLog
{
    unsigned long handle = 0;
    int count = 1;
    int countOfExtra = 0;
    ACE_Thread_Mutex countLock;
    std::map<std::pair<std::string, unsigned long>, QNTransactionBuffer*> buffers;
    ACE_RW_Thread_Mutex bufferLock;
};

std::map<unsigned long, std::unique_ptr<BareLog>> g_Logs;
ACE_RW_Thread_Mutex g_LogsLock;
unsigned long g_nNextHandle = 1;

BareLog& Create()
{
    auto log = std::make_unique<BareLog>();
    const WriteGuard guard(g_LogsLock);
    log->handle = g_nNextHandle++;
    return *g_Logs.emplace(log->handle, std::move(log)).first->second;
}

BareLog& Attach(unsigned long handle)
{
    const ReadGuard guard(g_LogsLock);
    BareLog& log = *g_Logs.find(handle)->second;
    const CountGuard counting(log.countLock);
    ++log.count;
    return log;
}

void Detach(BareLog& log)
{
    const WriteGuard guard(g_LogsLock);
    {
        const CountGuard counting(log.countLock);
        if (--log.count > 0) {
            return;
        }
    }
    {
        const WriteGuard emptying(log.bufferLock);
        log.buffers.clear();
    }
    g_Logs.erase(log.handle);
}

void AddCreation()
{
    const std::string operation = "create and destroy a log";
    Ours(operation, [](benchmark::State& state) {
        unsigned long handle = 0;
        Measure(
            state, [&] { handle = QNTransactionLog().GetHandle(); }, [&] { return handle > 0; });
    });
    Floor(operation, 1.1, [](benchmark::State& state) {
        unsigned long handle = 0;
        Measure(
            state,
            [&] {
                BareLog& log = Create();
                handle = log.handle;
                Detach(log);
            },
            [&] { return handle > 0 && g_Logs.empty(); });
    });
}

/// Attaches to each log in turn, in an order that jumps.
template <class AttachAndDetach>
void MeasureAttaching(benchmark::State& state, const std::vector<unsigned long>& handles,
                      AttachAndDetach attachAndDetach)
{
    std::size_t index = 0;
    bool isAttached = false;
    Measure(
        state,
        [&] {
            isAttached = attachAndDetach(handles[index]);
            index = (index + 7919) % handles.size();
        },
        [&] { return isAttached; });
}

void AddAttaching(std::size_t count, const std::string& text)
{
    const std::string operation = "attach to a log and detach, " + text + " logs";
    Ours(operation, [count](benchmark::State& state) {
        std::vector<std::unique_ptr<QNTransactionLog>> logs;
        std::vector<unsigned long> handles;
        while (logs.size() < count) {
            logs.push_back(std::make_unique<QNTransactionLog>());
            handles.push_back(logs.back()->GetHandle());
        }
        MeasureAttaching(state, handles, [](unsigned long handle) {
            const QNTransactionLog log(handle);
            return log.IsValid();
        });
    });
    Floor(operation, 1.1, [count](benchmark::State& state) {
        std::vector<unsigned long> handles;
        while (handles.size() < count) {
            handles.push_back(Create().handle);
        }
        MeasureAttaching(state, handles, [](unsigned long handle) {
            BareLog& log = Attach(handle);
            Detach(log);
            return log.count == 1;
        });
        g_Logs.clear();
    });
}

void AddBuffers()
{
    const std::string operation = "look up one of 10 buffers";
    // `add(number, buffer)` and `get(number)`; all ten are one buffer.
    const auto measure = [](benchmark::State& state, auto add, auto get) {
        QNTransactionBuffer buffer;
        for (unsigned long number = 0; number < 10; ++number) {
            add(number, &buffer);
        }
        unsigned long number = 0;
        QNTransactionBuffer* got = nullptr;
        Measure(
            state, [&] { benchmark::DoNotOptimize(got = get(number++ % 10)); },
            [&] { return got == &buffer; });
    };
    Ours(operation, [measure](benchmark::State& state) {
        QNTransactionLog log;
        measure(
            state, [&](unsigned long number, auto* buffer) { log.AddBuffer(NAME, number, buffer); },
            [&](unsigned long number) { return log.GetBuffer(NAME, number); });
        for (unsigned long number = 0; number < 10; ++number) {
            log.RemoveBuffer(NAME, number);
        }
    });
    Floor(operation, 1.1, [measure](benchmark::State& state) {
        BareLog log;
        measure(
            state,
            [&](unsigned long number, auto* buffer) {
                log.buffers.emplace(std::pair(NAME, number), buffer);
            },
            [&](unsigned long number) {
                const ReadGuard guard(log.bufferLock);
                const auto found = log.buffers.find(std::pair(NAME, number));
                return found != log.buffers.end() ? found->second : nullptr;
            });
    });
    Ours("add and remove a buffer", [](benchmark::State& state) {
        QNTransactionLog log;
        QNTransactionBuffer buffer;
        QNTransactionBuffer* removed = nullptr;
        Measure(
            state,
            [&] {
                log.AddBuffer(NAME, 1, &buffer);
                removed = log.RemoveBuffer(NAME, 1);
            },
            [&] { return removed == &buffer; });
    });
}

} // namespace

void AddTransactionLogs()
{
    AddCreation();
    AddBuffers();
    AddAttaching(10, "10");
    AddAttaching(1000, "1,000");
    AddAttaching(100000, "100,000");
}

} // namespace bench
