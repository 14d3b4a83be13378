#include "emsutil/lock_error_manager.h"

#include <atomic>
#include <climits>
#include <stdexcept>
#include <string>

#include <emsplatform/platform.h>

#include "emsutil/diagnostics.h"
#include "host/command.h"
#include "host/command_parser.h"
#include "host/console.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using NSQN_util::QNMitLockErrMgr;

std::atomic_ref<bool> Switch()
{
    return std::atomic_ref<bool>(NSQN_util::g_bEnableMitLockErrMgr);
}

QNMitLockErrMgr& Manager()
{
    if (QNMitLockErrMgr* const manager = QNMitLockErrMgr::Instance()) {
        return *manager;
    }
    throw std::runtime_error("the lock error manager cannot be created");
}

/// What was asked: the library has no operation that reads the records.
void PrintAsked(int thread, const std::string& what)
{
    Console::Instance().Print(string_format("lock errors %s: asked to %s for thread %d",
                                            Switch() ? "on" : "off", what.c_str(), thread));
}

void SetSwitch(const Call& call)
{
    Switch() = call.Text("state") == "on";
    Console::Instance().Print("lock errors: " + call.Text("state"));
}

void Insert(const Call& call)
{
    Manager().InsertThrIDandInfo(call.Number<int>("thread"), call.Text("text").c_str());
    PrintAsked(call.Number<int>("thread"), "record " + Quoted(call.Text("text")));
}

void Erase(const Call& call)
{
    Manager().EraseThrIDandInfo(call.Number<int>("thread"));
    PrintAsked(call.Number<int>("thread"), "erase the record");
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

} // namespace emshost
