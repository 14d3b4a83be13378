// A program, and a plugin that is linked to no library. Each leaves something in every service, and
// the other must find it. Both are built from this source.

#include <list>

#include <dlfcn.h>

#include <emsstandin/setup.h>

#include "emsutil/diagnostics.h"
#include "emsutil/general_command.h"
#include "emsutil/lock_error_manager.h"
#include "emsutil/thread_monitor.h"
#include "tests/library/lifetime/support.h"

using namespace NSQN_EMSUTIL_AGENT;
using namespace NSQN_util;

namespace {

constinit int g_nHandled = 0; // commands

} // namespace

extern "C" {

EMSUTIL_API void Find(EmsGeneralCmd& cmd, unsigned long log, const QNMitLockErrMgr* locks)
{
    runGeneralCmd();
    runGeneralCmd(cmd);
    FinishLog(log);
    REQUIRE(QNMitLockErrMgr::Instance() == locks);
    std::list<EmsThreadInfo> records;
    GetEmsThreadInfo(records, 0);
    REQUIRE(records.size() == 1 && records.front().m_InfoMap.contains(cmd.name));
    // The process reads its mode once.
    emsstandin::SetConfigFile("");
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    EmsUtilTraced("found ");
}

EMSUTIL_API void Leave(decltype(&Find) find)
{
    EmsGeneralCmd cmd;
    cmd.name = string_format("%p", static_cast<void*>(&g_nHandled));
    RegEmsUtilCmd(cmd.name, [](EmsGeneralCmd*, EmsGeneralCmd*) { return ++g_nHandled; });
    addGeneralCmd(cmd);
    EmsThreadInfoMap values = {{cmd.name, {}}};
    const RegEmsThreadInfo inside(&values);
    REQUIRE(ReadMsgHandleModeSwitcher() == 0);
    EmsUtilTraced("left ");
    find(cmd, LeaveLog(), QNMitLockErrMgr::Instance());
    REQUIRE(g_nHandled == 2);
}

} // extern "C"

int main(int, char** argv)
{
    const Installation installation;
    void* const plugin = dlopen(argv[1], RTLD_NOW);
    REQUIRE(plugin != nullptr);
    Leave(reinterpret_cast<decltype(&Find)>(dlsym(plugin, "Find")));
    reinterpret_cast<decltype(&Leave)>(dlsym(plugin, "Leave"))(Find);
    REQUIRE(installation.Report() == "left found left found ");
}
