// An exit handler that was registered before the library was loaded uses transaction logs. It runs
// when their registry has been destroyed, so every operation must do nothing.

#include <cstdlib>

#include <dlfcn.h>

#include "tests/library/lifetime/plugin.h"
#include "tests/library/lifetime/require.h"

namespace {

const Plugin* g_pPlugin = nullptr;

void UseLogs()
{
    REQUIRE(g_pPlugin->findsNoLogs());
}

} // namespace

int main(int, char** argv)
{
    std::atexit(UseLogs);
    g_pPlugin = static_cast<const Plugin*>(dlsym(dlopen(argv[1], RTLD_NOW), "g_Plugin"));
    g_pPlugin->createLog();
}
