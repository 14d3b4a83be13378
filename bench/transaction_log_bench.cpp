#include <map>
#include <memory>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "bench/measure.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_util;

namespace {

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;
using CountGuard = ACE_Guard<ACE_Thread_Mutex>;

/// What a log consists of, with nothing around it.
struct BareRecord
{
    unsigned long handle = 0;
    int count = 1;
    ACE_Thread_Mutex countLock;
    std::map<std::pair<std::string, unsigned long>, std::unique_ptr<QNTransactionBuffer>> buffers;
    ACE_RW_Thread_Mutex bufferLock;
};

std::map<unsigned long, std::unique_ptr<BareRecord>> g_Records;
ACE_RW_Thread_Mutex g_RecordsLock;
unsigned long g_nNextHandle = 1;

/// The floor: a handle with the operations of ours that are measured.
struct BareLog
{
    BareLog()
    {
        auto created = std::make_unique<BareRecord>();
        record = created.get();
        const WriteGuard guard(g_RecordsLock);
        record->handle = g_nNextHandle++;
        g_Records.emplace(record->handle, std::move(created));
    }

    explicit BareLog(unsigned long handle)
    {
        const ReadGuard guard(g_RecordsLock);
        record = g_Records.find(handle)->second.get();
        const CountGuard counting(record->countLock);
        ++record->count;
    }

    ~BareLog()
    {
        const WriteGuard guard(g_RecordsLock);
        {
            const CountGuard counting(record->countLock);
            if (--record->count > 0) {
                return;
            }
        }
        {
            const WriteGuard emptying(record->bufferLock);
            record->buffers.clear();
        }
        g_Records.erase(record->handle);
    }

    unsigned long GetHandle() const { return record->handle; }

    void AddBuffer(const std::string& name, unsigned long number, QNTransactionBuffer* buffer)
    {
        record->buffers[std::pair(name, number)].reset(buffer);
    }

    QNTransactionBuffer* GetBuffer(const std::string& name, unsigned long number)
    {
        const ReadGuard guard(record->bufferLock);
        return record->buffers.find(std::pair(name, number))->second.get();
    }

    BareRecord* record = nullptr;
};

const std::string NAME = "request";

template <class Log>
void CreateAndDestroy(benchmark::State& state)
{
    unsigned long handle = 0;
    Measure(state, [&] { handle = Log().GetHandle(); });
    Check(state, handle > 0);
}

/// Attaches to each log in turn, in an order that jumps.
template <class Log>
Body AttachAndDetach(std::size_t count)
{
    return [count](benchmark::State& state) {
        std::vector<Log> logs(count);
        std::vector<unsigned long> handles;
        for (Log& log : logs) {
            handles.push_back(log.GetHandle());
        }
        std::size_t index = 0;
        unsigned long attached = 0;
        Measure(state, [&] {
            attached = Log(handles[index]).GetHandle();
            index = (index + 7919) % count;
        });
        Check(state, attached > 0);
    };
}

/// The log deletes its buffers.
template <class Log>
void LookUp(benchmark::State& state)
{
    Log log;
    for (unsigned long number = 0; number < 10; ++number) {
        log.AddBuffer(NAME, number, new QNTransactionBuffer);
    }
    unsigned long number = 0;
    QNTransactionBuffer* got = nullptr;
    Measure(state, [&] { benchmark::DoNotOptimize(got = log.GetBuffer(NAME, number++ % 10)); });
    Check(state, got != nullptr);
}

void AddAndRemove(benchmark::State& state)
{
    QNTransactionLog log;
    QNTransactionBuffer buffer;
    QNTransactionBuffer* removed = nullptr;
    Measure(state, [&] {
        log.AddBuffer(NAME, 1, &buffer);
        removed = log.RemoveBuffer(NAME, 1);
    });
    Check(state, removed == &buffer);
}

void AddAttaching(std::size_t count, const std::string& text)
{
    const std::string operation = "attach to a log and detach, " + text + " logs";
    Ours(operation, AttachAndDetach<QNTransactionLog>(count));
    Floor(operation, 1.1, AttachAndDetach<BareLog>(count));
}

} // namespace

void AddTransactionLogs()
{
    Ours("create and destroy a log", CreateAndDestroy<QNTransactionLog>);
    Floor("create and destroy a log", 1.1, CreateAndDestroy<BareLog>);
    Ours("look up one of 10 buffers", LookUp<QNTransactionLog>);
    Floor("look up one of 10 buffers", 1.1, LookUp<BareLog>);
    Ours("add and remove a buffer", AddAndRemove);
    AddAttaching(10, "10");
    AddAttaching(1000, "1,000");
    AddAttaching(100000, "100,000");
}
