#include <cstdio>
#include <emsutil/general_command.h>
using namespace NSQN_EMSUTIL_AGENT;

int SetLevel(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    return std::puts(cmd->ToString().c_str());
}

int main()
{
    EmsGeneralCmd cmd;
    cmd.name = "SetLevel";
    RegEmsUtilCmd registration(cmd.name, SetLevel);
    addGeneralCmd(cmd); // any thread
    runGeneralCmd();    // the draining thread: prints ":SetLevel={objs={},nvtps={}};"
}
