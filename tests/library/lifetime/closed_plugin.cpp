// A plugin brings the library into a process and is closed while one of its timers runs. The
// library must stay, with all that it keeps.

#include <latch>

#include <dlfcn.h>

#include "tests/library/lifetime/plugin.h"
#include "tests/library/lifetime/require.h"

namespace {

std::latch g_Closed(1);
std::latch g_Freed(1);

const Plugin& Loaded(void* library)
{
    REQUIRE(library != nullptr);
    return *static_cast<const Plugin*>(dlsym(library, "g_Plugin"));
}

} // namespace

int main(int, char** argv)
{
    void* library = dlopen(argv[1], RTLD_NOW);
    NSQN_EMSUTIL_AGENT::EmsUtilTimerInterface timer = {[](void*) { g_Closed.wait(); },
                                                       [](void* param) { return param; },
                                                       [](void*) { g_Freed.count_down(); }};
    Loaded(library).scheduleTimer(timer, &timer);
    REQUIRE(Loaded(library).takeHandleValue() == 1);
    REQUIRE(Loaded(library).countEvents() == 2);

    dlclose(library);
    REQUIRE(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == nullptr);
    g_Closed.count_down();
    g_Freed.wait();

    library = dlopen(argv[1], RTLD_NOW);
    REQUIRE(Loaded(library).takeHandleValue() == 2);
    REQUIRE(Loaded(library).countEvents() == 4);
}
