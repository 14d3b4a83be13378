#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include <emsstandin/setup.h>
#include <emsutil/diagnostics.h>

using namespace NSQN_EMSUTIL_AGENT;

void Load()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

int main()
{
    emsstandin::SetDebugStream(stdout); // standard error unless set
    const std::string who = "NE-17";

    {
        AgentTimeGuard guard("loading %s", who.c_str());
        Load();
    } // "loading ...\n", "used time(ms): 20\n"
}
