#include <emsplatform/debug_interface.h>
#include <emsutil/diagnostics.h>
#include <emsutil/general_command.h>

using namespace NSQN_EMSUTIL_AGENT;

namespace {

int g_nRuns = 0;

int Print(EmsGeneralCmd* cmd, EmsGeneralCmd*)
{
    ++g_nRuns;
    GetEmsUtilAgentDebugInterface()->DebugPrint(1, "%s\n", cmd->ToString().c_str());
    return 0;
}

} // namespace

int main()
{
    EmsGeneralCmd cmd;
    cmd.name = string_format("%s%d", "print", 1);
    RegEmsUtilCmd registration(cmd.name, Print);
    addGeneralCmd(cmd);
    runGeneralCmd();
    return g_nRuns == 1 && g_nLines == 1 ? 0 : 1;
}
