// Uses the services at one moment of the process's life, which the environment names.

#include <string_view>
#include <thread>

#include "tests/library/lifetime/support.h"

namespace {

bool Is(std::string_view moment)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread sets it
    const char* const name = std::getenv("MOMENT");
    return name != nullptr && name == moment;
}

const struct Module
{
    Module() : m_ulLog(Is("static_log") ? LeaveLog() : 0)
    {
        if (Is("static_constructor")) {
            UseEveryService();
        }
    }
    ~Module()
    {
        if (Is("static_destructor")) {
            UseEveryService();
        }
        if (Is("static_log")) {
            FinishLog(m_ulLog);
        }
    }

    const unsigned long m_ulLog;
} g_Module;

struct ThreadObject
{
    ~ThreadObject() { UseEveryService(); }
};

} // namespace

int main()
{
    if (Is("thread_destructor")) {
        std::thread([] { thread_local const ThreadObject object; }).join();
    }
}
