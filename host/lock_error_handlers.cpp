#include <atomic>
#include <climits>
#include <string>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "emsutil/lock_error_manager.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using NSQN_util::QNMitLockErrMgr;

std::atomic_ref<bool> Switch()
{
    return std::atomic_ref<bool>(NSQN_util::g_bEnableMitLockErrMgr);
}

void SetSwitch(Host& host, EmsGeneralCmd& cmd)
{
    const auto state = TextOf(FindPair(cmd, "state"));
    if (state != "on" && state != "off") {
        host.ReportBadCommand(cmd, "needs state=on or state=off");
        return;
    }
    Switch() = state == "on";
    Console::Instance().Print("lock errors: " + *state);
}

/// What was asked: nobody can tell what is recorded.
void PrintAsked(int thread, const std::string& what)
{
    Console::Instance().Print(string_format("lock errors %s: asked to %s for thread %d",
                                            Switch() ? "on" : "off", what.c_str(), thread));
}

void Insert(Host& host, EmsGeneralCmd& cmd)
{
    const auto thread = IntOf(FindPair(cmd, "thread"), INT_MIN, INT_MAX);
    const auto text = TextOf(FindPair(cmd, "text"));
    if (!thread || !text) {
        host.ReportBadCommand(cmd, "needs thread:long=N and text=TEXT");
    } else if (QNMitLockErrMgr* const locks = QNMitLockErrMgr::Instance()) {
        locks->InsertThrIDandInfo(*thread, text->c_str());
        PrintAsked(*thread, "record " + Quoted(*text));
    }
}

void Erase(Host& host, EmsGeneralCmd& cmd)
{
    const auto thread = IntOf(FindPair(cmd, "thread"), INT_MIN, INT_MAX);
    if (!thread) {
        host.ReportBadCommand(cmd, "needs thread:long=N");
    } else if (QNMitLockErrMgr* const locks = QNMitLockErrMgr::Instance()) {
        locks->EraseThrIDandInfo(*thread);
        PrintAsked(*thread, "erase the record");
    }
}

const HandlerTable g_Handlers = {
    {"lock-erase", Handler<Erase>, "thread:long=N: has the lock error of a thread erased"},
    {"lock-errors", Handler<SetSwitch>, "state=on|off: switches the lock error manager"},
    {"lock-insert", Handler<Insert>,
     "thread:long=N text=TEXT: has the lock error of a thread recorded"},
};

} // namespace

} // namespace emshost
