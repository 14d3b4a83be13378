// A transaction log at namespace scope in a host: made before main(), destroyed after it.

#include <cstdio>

#include <emsutil/transaction_log.h>

namespace {

struct Buffer : NSQN_util::QNTransactionBuffer
{
    ~Buffer() override { std::puts("the buffer is gone"); }
};

NSQN_util::QNTransactionLog g_Log;
NSQN_util::QNTransactionLog g_SameLog(g_Log.GetHandle());

} // namespace

int main()
{
    g_Log.AddBuffer("text", 1, new Buffer);
    const bool found = g_SameLog.GetBuffer("text", 1) != nullptr;
    std::puts(found ? "the buffer is there" : "the buffer is lost");
    return found ? 0 : 1;
}
