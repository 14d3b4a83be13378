#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "bench/compare.h"
#include "emsutil/transaction_log.h"

using namespace NSQN_util;

namespace bench {

namespace {

using ReadGuard = ACE_Read_Guard<ACE_RW_Thread_Mutex>;
using WriteGuard = ACE_Write_Guard<ACE_RW_Thread_Mutex>;
using CountGuard = ACE_Guard<ACE_Thread_Mutex>;

/// A log, with nothing around it.
struct BareLog
{
    std::map<std::pair<std::string, unsigned long>, QNTransactionBuffer*> buffers;
    ACE_RW_Thread_Mutex bufferLock;
    int count = 1;
    int countOfExtra = 0;
    ACE_Thread_Mutex countLock;
    unsigned long handle = 0;
};

std::map<unsigned long, BareLog*> g_Logs;
ACE_RW_Thread_Mutex g_LogsLock;
unsigned long g_nNextHandle = 1;

BareLog* Make()
{
    auto* log = new BareLog;
    const WriteGuard guard(g_LogsLock);
    while (g_Logs.contains(g_nNextHandle)) {
        ++g_nNextHandle;
    }
    log->handle = g_nNextHandle++;
    g_Logs.emplace(log->handle, log);
    return log;
}

BareLog* Attach(unsigned long handle)
{
    const ReadGuard guard(g_LogsLock);
    const auto found = g_Logs.find(handle);
    if (found == g_Logs.end()) {
        return nullptr;
    }
    const CountGuard counting(found->second->countLock);
    ++found->second->count;
    return found->second;
}

void Detach(BareLog* log)
{
    const WriteGuard guard(g_LogsLock);
    int left = 0;
    {
        const CountGuard counting(log->countLock);
        left = --log->count;
    }
    if (left < 1) {
        g_Logs.erase(log->handle);
        {
            const WriteGuard emptying(log->bufferLock);
            for (auto& [key, buffer] : log->buffers) {
                delete buffer;
            }
            log->buffers.clear();
        }
        delete log;
    }
}

QNTransactionBuffer* Find(BareLog& log, const std::string& name, unsigned long number)
{
    const ReadGuard guard(log.bufferLock);
    const auto found = log.buffers.find(std::pair(name, number));
    return found != log.buffers.end() ? found->second : nullptr;
}

void MeasureMaking()
{
    Compare({"log made and destroyed", 1.1}, {Ours([](benchmark::State& state) {
                                                  for (auto _ : state) {
                                                      const QNTransactionLog log;
                                                  }
                                              }),
                                              Floor([](benchmark::State& state) {
                                                  for (auto _ : state) {
                                                      Detach(Make());
                                                  }
                                              })});
}

/// Attaches to each log in turn, in an order that jumps.
void MeasureAttaching(const std::string& count, const std::vector<unsigned long>& handles,
                      const std::vector<unsigned long>& bareHandles)
{
    const auto next = [](std::size_t index, std::size_t size) { return (index + 7919) % size; };
    Compare({"log attached and destroyed, " + count + " logs", 1.1},
            {Ours([&handles, next](benchmark::State& state) {
                 std::size_t index = 0;
                 for (auto _ : state) {
                     const QNTransactionLog log(handles[index]);
                     index = next(index, handles.size());
                 }
             }),
             Floor([&bareHandles, next](benchmark::State& state) {
                 std::size_t index = 0;
                 for (auto _ : state) {
                     Detach(Attach(bareHandles[index]));
                     index = next(index, bareHandles.size());
                 }
             })});
}

void MeasureBuffers()
{
    QNTransactionLog log;
    BareLog* const bare = Make();
    for (unsigned long number = 0; number < 10; ++number) {
        log.AddBuffer("request", number, new QNTransactionBuffer);
        bare->buffers.emplace(std::pair("request", number), new QNTransactionBuffer);
    }
    const std::string name = "request";
    Compare({"buffer look-up, 10 buffers", 1.1},
            {Ours([&](benchmark::State& state) {
                 unsigned long number = 0;
                 for (auto _ : state) {
                     benchmark::DoNotOptimize(log.GetBuffer(name, number++ % 10));
                 }
             }),
             Floor([&](benchmark::State& state) {
                 unsigned long number = 0;
                 for (auto _ : state) {
                     benchmark::DoNotOptimize(Find(*bare, name, number++ % 10));
                 }
             })});
    Detach(bare);
}

} // namespace

void MeasureTransactionLogs()
{
    MeasureMaking();
    MeasureBuffers();
    std::vector<std::unique_ptr<QNTransactionLog>> logs;
    std::vector<unsigned long> handles;
    std::vector<unsigned long> bareHandles;
    for (const auto& [count, name] :
         {std::pair(10u, "10"), std::pair(1000u, "1,000"), std::pair(100000u, "100,000")}) {
        while (logs.size() < count) {
            logs.push_back(std::make_unique<QNTransactionLog>());
            handles.push_back(logs.back()->GetHandle());
            bareHandles.push_back(Make()->handle);
        }
        MeasureAttaching(name, handles, bareHandles);
    }
    for (const unsigned long handle : bareHandles) {
        Detach(g_Logs.at(handle));
    }
}

} // namespace bench
