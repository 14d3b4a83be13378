// A plugin brings the library into a process and is closed while one of its timers runs. The
// library must stay, with all that it keeps. An exit handler that was registered before uses
// transaction logs when their registry has been destroyed, so every operation must do nothing.

#include <cstdlib>
#include <latch>

#include <dlfcn.h>

#include "tests/library/lifetime/plugin.h"
#include "tests/library/lifetime/require.h"

namespace {

std::latch g_Closed(1);
std::latch g_Freed(1);
const Plugin* g_pPlugin = nullptr;

void* Load(const char* path)
{
    void* const library = dlopen(path, RTLD_NOW);
    REQUIRE(library != nullptr);
    g_pPlugin = static_cast<const Plugin*>(dlsym(library, "g_Plugin"));
    return library;
}

} // namespace

int main(int, char** argv)
{
    std::atexit([] { REQUIRE(g_pPlugin->findsNoLogs()); });
    void* const library = Load(argv[1]);
    NSQN_EMSUTIL_AGENT::EmsUtilTimerInterface timer = {[](void*) { g_Closed.wait(); },
                                                       [](void* param) { return param; },
                                                       [](void*) { g_Freed.count_down(); }};
    g_pPlugin->scheduleTimer(timer, &timer);
    REQUIRE(g_pPlugin->takeHandleValue() == 1);
    REQUIRE(g_pPlugin->countEvents() == 2);

    dlclose(library);
    REQUIRE(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr);
    g_Closed.count_down();
    g_Freed.wait();

    Load(argv[1]);
    REQUIRE(g_pPlugin->takeHandleValue() == 2);
    REQUIRE(g_pPlugin->countEvents() == 4);
    g_pPlugin->createLog();
}
