#include <cstdio>
#include <string>

#include <emsutil/general_command.h>

using namespace NSQN_EMSUTIL_AGENT;

int SetLevel(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    return std::puts(cmd->ToString().c_str());
}

std::string name = "SetLevel";
RegEmsUtilCmd registration(name, SetLevel);

int main()
{
    EmsGeneralCmd cmd;
    cmd.name = name;
    addGeneralCmd(cmd); // any thread: queue a copy
    runGeneralCmd();    // the draining thread: run what is queued

    EmsNameAndValueStringTypePair level;
    level.name = "level";
    level.value = "3";
    level.rtype = NVTP_TYPE_LONG;
    cmd.nvtps.nvtps.push_back(level);
    runGeneralCmd(cmd); // at once, on this thread
}
