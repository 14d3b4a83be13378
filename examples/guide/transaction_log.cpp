#include <cstdio>
#include <string>
#include <thread>

#include <emsutil/transaction_log.h>

using namespace NSQN_util;

struct Text : QNTransactionBuffer
{
    std::string text;
};

unsigned long Begin(Text* request) // one thread
{
    QNTransactionLog log;
    log.AddBuffer("request", 1, request); // from here on the log owns it
    log.AddRef(1);                        // keeps the log after this handle is destroyed
    return log.GetHandle();
}

void End(unsigned long value) // another thread
{
    QNTransactionLog log(value);
    if (auto* request = static_cast<Text*>(log.GetBuffer("request", 1)))
        std::puts(request->text.c_str());
    log.Release();
} // the last reference: the log and its buffers are destroyed

int main()
{
    auto* request = new Text;
    request->text = "two valves";
    const unsigned long value = Begin(request);
    std::thread(End, value).join();

    const QNTransactionLog late(value);
    std::puts(late.IsValid() ? "the log is still there" : "the log is gone");
}
