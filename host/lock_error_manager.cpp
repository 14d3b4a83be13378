#include "emsutil/lock_error_manager.h"

#include <climits>
#include <stdexcept>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "host/host.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;

namespace {

using NSQN_util::QNMitLockErrMgr;

QNMitLockErrMgr& Manager()
{
    if (QNMitLockErrMgr* const manager = QNMitLockErrMgr::Instance()) {
        return *manager;
    }
    throw std::runtime_error("the lock error manager cannot be created");
}

void SetSwitch(const Call& call)
{
    NSQN_util::g_bEnableMitLockErrMgr = call.Text("state") == "on"; // only the main thread uses it
    Print("lock errors: " + call.Text("state"));
}

/// Prints what was asked: the library has no operation that reads the records.
void PrintAsked(const Call& call, const std::string& what)
{
    const char* const state = NSQN_util::g_bEnableMitLockErrMgr ? "on" : "off";
    Print(std::string("lock errors ") + state + ": asked to " + what + " for thread " +
          call.Text("thread"));
}

void Insert(const Call& call)
{
    const std::string text = call.Text("text");
    Manager().InsertThrIDandInfo(call.Number<int>("thread"), text.c_str());
    PrintAsked(call, "record " + Quoted(text));
}

void Erase(const Call& call)
{
    Manager().EraseThrIDandInfo(call.Number<int>("thread"));
    PrintAsked(call, "erase the record");
}

const Argument THREAD = Number("thread", INT_MIN, INT_MAX, "the thread id");

const Service g_Service("Lock error manager",
                        {{"lock-erase", "Erase the record of a thread.", Erase, {THREAD}},
                         {"lock-errors",
                          "Switch the lock error manager; it is off at first.",
                          SetSwitch,
                          {Choice("state", {"on", "off"}, "the state")}},
                         {"lock-insert",
                          "Insert a record for a thread.",
                          Insert,
                          {THREAD, Text("text", "the information")}}});

} // namespace
