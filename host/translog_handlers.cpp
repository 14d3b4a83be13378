#include <climits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "emsutil/diagnostics.h"
#include "emsutil/transaction_log.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/handlers.h"
#include "host/log_book.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

/// The handles that commands hold, by names of the host's own. Of the main thread.
std::map<std::string, std::unique_ptr<Handle>>& HeldHandles()
{
    static auto* const held = new std::map<std::string, std::unique_ptr<Handle>>;
    return *held;
}

// What a command names. Where it names nothing or something wrong, that is reported.

Handle* HandleOf(Host& host, const EmsGeneralCmd& cmd)
{
    const auto name = TextOf(FindPair(cmd, "log"));
    if (!name) {
        host.ReportBadCommand(cmd, "needs log=NAME");
        return nullptr;
    }
    const auto found = HeldHandles().find(*name);
    if (found == HeldHandles().end()) {
        host.ReportBadCommand(cmd, "no handle has the name " + Quoted(*name));
        return nullptr;
    }
    return found->second.get();
}

std::optional<BufferKey> KeyOf(Host& host, const EmsGeneralCmd& cmd)
{
    const auto name = TextOf(FindPair(cmd, "name"));
    const auto number = UnsignedOf(FindPair(cmd, "number"));
    if (!name || !number) {
        host.ReportBadCommand(cmd, "needs name=BUFFER number:long=N");
        return std::nullopt;
    }
    return BufferKey{*name, *number};
}

std::optional<unsigned long> HandleValueOf(Host& host, const EmsGeneralCmd& cmd)
{
    const auto value = UnsignedOf(FindPair(cmd, "handle"));
    if (!value) {
        host.ReportBadCommand(cmd, "needs handle:long=H");
    }
    return value;
}

/// For a new handle.
std::optional<std::string> FreeNameOf(Host& host, const EmsGeneralCmd& cmd)
{
    auto name = TextOf(FindPair(cmd, "name"));
    if (!name) {
        host.ReportBadCommand(cmd, "needs name=NAME");
    } else if (HeldHandles().contains(*name)) {
        host.ReportBadCommand(cmd, "a handle has the name " + Quoted(*name) + " already");
        name.reset();
    }
    return name;
}

void Hold(const std::string& name, std::unique_ptr<Handle> handle)
{
    if (handle->IsValid()) {
        HeldHandles()[name] = std::move(handle);
    }
}

void Open(Host& host, EmsGeneralCmd& cmd)
{
    if (const auto name = FreeNameOf(host, cmd)) {
        Hold(*name, std::make_unique<Handle>("opened as " + Quoted(*name)));
    }
}

void Attach(Host& host, EmsGeneralCmd& cmd)
{
    const auto value = HandleValueOf(host, cmd);
    if (!value) {
        return;
    }
    if (const auto name = FreeNameOf(host, cmd)) {
        Hold(*name, std::make_unique<Handle>(*value, "attached as " + Quoted(*name)));
    }
}

void Close(Host& host, EmsGeneralCmd& cmd)
{
    if (HandleOf(host, cmd) != nullptr) {
        HeldHandles().erase(*TextOf(FindPair(cmd, "log")));
    }
}

void FileBuffer(Host& host, EmsGeneralCmd& cmd)
{
    Handle* const handle = HandleOf(host, cmd);
    if (handle == nullptr) {
        return;
    }
    const auto key = KeyOf(host, cmd);
    if (!key) {
        return;
    }
    if (const auto text = TextOf(FindPair(cmd, "text"))) {
        handle->File(*key, *text);
    } else {
        host.ReportBadCommand(cmd, "needs text=TEXT");
    }
}

template <void (Handle::*Operation)(const BufferKey&)>
void LookUp(Host& host, EmsGeneralCmd& cmd)
{
    Handle* const handle = HandleOf(host, cmd);
    if (handle == nullptr) {
        return;
    }
    if (const auto key = KeyOf(host, cmd)) {
        (handle->*Operation)(*key);
    }
}

void AddReferences(Host& host, EmsGeneralCmd& cmd)
{
    Handle* const handle = HandleOf(host, cmd);
    if (handle == nullptr) {
        return;
    }
    if (const auto count = IntOf(FindPair(cmd, "count"), INT_MIN, INT_MAX)) {
        handle->AddReferences(*count);
    } else {
        host.ReportBadCommand(cmd, "needs count:long=N");
    }
}

void Release(Host& host, EmsGeneralCmd& cmd)
{
    if (Handle* const handle = HandleOf(host, cmd)) {
        handle->Release();
    }
}

void WorkOnLog(Host& host, EmsGeneralCmd& cmd)
{
    const auto value = HandleValueOf(host, cmd);
    if (!value) {
        return;
    }
    if (const auto key = KeyOf(host, cmd)) {
        host.Submit("log-work", [value = *value, key = *key] {
            Handle handle(value, "attached by a worker");
            if (handle.IsValid()) {
                handle.Read(key);
                handle.Release();
            }
        });
    }
}

void List(Host&, EmsGeneralCmd&)
{
    LogBook& book = LogBook::Instance();
    const std::lock_guard guard(book.m_Mutex);
    for (const auto& [value, references] : book.m_References) {
        const auto& [handles, extra] = references;
        Console::Instance().Print(string_format("log %lu: handles %d, extra references %d%s", value,
                                                handles, extra, handles == 0 ? ", orphan" : ""));
    }
    if (book.m_References.empty()) {
        Console::Instance().Print("no log is open");
    }
}

void Clear(Host& host, EmsGeneralCmd& cmd)
{
    LogBook& book = LogBook::Instance();
    int handles = 0;
    {
        const std::lock_guard guard(book.m_Mutex); // no worker attaches meanwhile
        for (const auto& [value, references] : book.m_References) {
            handles += references.m_nHandles;
        }
        if (handles == 0) {
            NSQN_util::QNTransactionLog::ClearAllLog();
            Console::Instance().Print(
                string_format("logs destroyed: %zu", book.m_References.size()));
            book.m_References.clear();
        }
    }
    if (handles > 0) { // they would point to logs that are gone
        host.ReportBadCommand(cmd, string_format("handles are attached: %d", handles));
    }
}

const HandlerTable g_Handlers = {
    {"log-attach", Handler<Attach>,
     "name=NAME handle:long=H: attaches a handle to log H, and holds it under a name"},
    {"log-clear", Handler<Clear>, "destroys all logs, unless a handle is attached"},
    {"log-close", Handler<Close>, "log=NAME: destroys the handle of this name"},
    {"log-file", Handler<FileBuffer>,
     "log=NAME name=BUFFER number:long=N text=TEXT: files a text in the handle's log"},
    {"log-list", Handler<List>, "prints the logs that there are"},
    {"log-open", Handler<Open>,
     "name=NAME: makes a log, and holds its handle under a name; logs print (all, extra "
     "references)"},
    {"log-read", Handler<LookUp<&Handle::Read>>,
     "log=NAME name=BUFFER number:long=N: prints a text that is filed"},
    {"log-ref", Handler<AddReferences>, "log=NAME count:long=N: adds N extra references"},
    {"log-release", Handler<Release>, "log=NAME: drops an extra reference"},
    {"log-take", Handler<LookUp<&Handle::Take>>,
     "log=NAME name=BUFFER number:long=N: takes a text out, prints and deletes it"},
    {"log-work", Handler<WorkOnLog>,
     "handle:long=H name=BUFFER number:long=N: has a worker attach, read and release log H"},
};

} // namespace

} // namespace emshost
