// A plugin brings the library into a process and is closed while one of its timers runs. The
// library must stay, with all that it keeps. An exit handler that was registered before uses
// transaction logs when their registry has been destroyed, so every operation must do nothing.

#include <latch>

#include <dlfcn.h>

#include "emsutil/timer.h"
#include "tests/library/lifetime/support.h"

namespace {

std::latch g_Closed(1);
std::latch g_Freed(1);
void* g_pPlugin = nullptr;

/// Calls a function of the plugin.
template <class... Arguments>
void Call(const char* name, Arguments&... arguments)
{
    reinterpret_cast<void (*)(Arguments & ...)>(dlsym(g_pPlugin, name))(arguments...);
}

} // namespace

int main(int, char** argv)
{
    std::atexit([] { Call("FindNoLogs"); });
    g_pPlugin = dlopen(argv[1], RTLD_NOW);
    REQUIRE(g_pPlugin != nullptr);
    NSQN_EMSUTIL_AGENT::EmsUtilTimerInterface timer = {[](void*) { g_Closed.wait(); },
                                                       [](void* param) { return param; },
                                                       [](void*) { g_Freed.count_down(); }};
    Call("ScheduleTimer", timer);
    const int first = 1;
    Call("LogAndEnter", first);

    dlclose(g_pPlugin);
    REQUIRE(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr);
    g_Closed.count_down();
    g_Freed.wait();

    g_pPlugin = dlopen(argv[1], RTLD_NOW);
    const int second = 2;
    Call("LogAndEnter", second);
    Call("CreateLog");
}
