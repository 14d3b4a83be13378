// Registers a command, runs it, and watches the thread that does. It compiles as C++11.

#include <cstdio>
#include <cstring>

#include <emsstandin/setup.h>
#include <emsutil/general_command.h>
#include <emsutil/thread_monitor.h>
#include <emsutil/version.h>

using namespace NSQN_EMSUTIL_AGENT;

int SetLevel(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    EmsThreadInfoMap values;
    AddEmsThreadInfo(values, "command", cmd->name.c_str());
    RegEmsThreadInfo inside(&values);
    return std::puts(cmd->ToString().c_str());
}

int main()
{
    if (std::strcmp(EmsUtilVersion(), EMSUTIL_VERSION) != 0)
        std::puts("compiled with the headers of another version");

    emsstandin::SetDebugStream(stdout);
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel";
    RegEmsUtilCmd registration(cmd.name, SetLevel);
    addGeneralCmd(cmd); // any thread
    runGeneralCmd();    // the draining thread

    StatEmsThreadInfo();
    std::list<EmsThreadInfo> threads;
    GetEmsThreadInfo(threads, 0);
    return threads.size() == 1 && threads.front().m_llRecvs == 2 ? 0 : 1;
}
