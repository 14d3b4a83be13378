#include <map>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "bench/measure.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_util;

namespace {

const std::string NAME = "request";

/// The floor: what attaching and detaching consist of.
struct References
{
    int count = 1;
    ACE_Thread_Mutex lock;
};

std::map<unsigned long, References> g_References; // by handle value
ACE_RW_Thread_Mutex g_Lock;

struct BareLog
{
    explicit BareLog(unsigned long value) : handle(value)
    {
        const ACE_Read_Guard<ACE_RW_Thread_Mutex> guard(g_Lock);
        references = &g_References.find(value)->second;
        const ACE_Guard<ACE_Thread_Mutex> counting(references->lock);
        ++references->count;
    }

    ~BareLog()
    {
        const ACE_Write_Guard<ACE_RW_Thread_Mutex> guard(g_Lock);
        const ACE_Guard<ACE_Thread_Mutex> counting(references->lock);
        --references->count;
    }

    unsigned long GetHandle() const { return handle; }

    const unsigned long handle;
    References* references = nullptr;
};

/// Attaches to each log in turn, in an order that jumps.
template <class Log>
void AttachAndDetach(benchmark::State& state, const std::vector<unsigned long>& handles)
{
    std::size_t index = 0;
    unsigned long attached = 0;
    Measure(state, [&] {
        attached = Log(handles[index]).GetHandle();
        index = (index + 7919) % handles.size();
    });
    Check(state, attached > 0);
}

void AddAttaching(std::size_t count, const std::string& text)
{
    const std::string operation = "attach to a log and detach, " + text + " logs";
    Ours(operation, [count](benchmark::State& state) {
        std::vector<unsigned long> handles;
        std::vector<QNTransactionLog> logs(count);
        for (QNTransactionLog& log : logs) {
            handles.push_back(log.GetHandle());
        }
        AttachAndDetach<QNTransactionLog>(state, handles);
    });
    Floor(operation, 1.1, [count](benchmark::State& state) {
        std::vector<unsigned long> handles;
        while (handles.size() < count) {
            handles.push_back(handles.size() + 1);
            g_References[handles.back()];
        }
        AttachAndDetach<BareLog>(state, handles);
    });
}

} // namespace

void AddTransactionLogs()
{
    Ours("create and destroy a log", [](benchmark::State& state) {
        unsigned long handle = 0;
        Measure(state, [&] { handle = QNTransactionLog().GetHandle(); });
        Check(state, handle > 0);
    });
    Ours("look up one of 10 buffers", [](benchmark::State& state) {
        QNTransactionLog log; // it deletes its buffers
        for (unsigned long number = 0; number < 10; ++number) {
            log.AddBuffer(NAME, number, new QNTransactionBuffer);
        }
        unsigned long number = 0;
        QNTransactionBuffer* got = nullptr;
        Measure(state, [&] { benchmark::DoNotOptimize(got = log.GetBuffer(NAME, number++ % 10)); });
        Check(state, got != nullptr);
    });
    Ours("add and remove a buffer", [](benchmark::State& state) {
        QNTransactionLog log;
        QNTransactionBuffer buffer;
        QNTransactionBuffer* removed = nullptr;
        Measure(state, [&] {
            log.AddBuffer(NAME, 1, &buffer);
            removed = log.RemoveBuffer(NAME, 1);
        });
        Check(state, removed == &buffer);
    });
    AddAttaching(1000, "1,000");
    AddAttaching(100000, "100,000");
}
