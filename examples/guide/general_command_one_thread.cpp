#include <cstdio>

#include <emsutil/general_command.h>

using namespace NSQN_EMSUTIL_AGENT;

int g_nRuns = 0;

int Count(EmsGeneralCmd*, EmsGeneralCmd*)
{
    return ++g_nRuns;
}

int main()
{
    EmsGeneralCmd cmd;
    cmd.name = "Count";
    RegEmsUtilCmd registration(cmd.name, Count);

    for (int i = 0; i < 300; ++i) {
        addGeneralCmd(cmd);
        runGeneralCmd(); // drain before the queue is full
    }
    std::printf("%d commands were run\n", g_nRuns);
}
