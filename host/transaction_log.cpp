#include "emsutil/transaction_log.h"

#include <climits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "emsutil/diagnostics.h"
#include "host/command.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/host.h"
#include "host/json.h"

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;
using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

namespace {

/// The handles that commands hold, by names of the host's own.
struct Handles
{
    // Held for a whole command or job: its lines stay together, and every handle that is attached
    // between two of them is among those held. Guards the following.
    std::mutex mutex;
    std::map<std::string, QNTransactionLog> held;
    unsigned long latest = 0; // handle value
};

/// Never destroyed: what is open at the end of the process stays open.
Handles& TheHandles()
{
    static auto* const handles = new Handles;
    return *handles;
}

/// Every buffer of this process is a text. It prints when it is deleted, which may be under locks
/// of the library, where no log may be used.
struct TextBuffer final : QNTransactionBuffer
{
    TextBuffer(std::string key, std::string text)
        : m_strKey(std::move(key)), m_strText(std::move(text))
    {}
    ~TextBuffer() override { Console::Instance().Print("buffer " + m_strKey + ": deleted"); }

    const std::string m_strKey;
    const std::string m_strText;
};

std::string KeyOf(const Call& call)
{
    return Quoted(call.Text("name")) + ' ' + call.Text("number");
}

void Print(unsigned long value, const std::string& text)
{
    Console::Instance().Print(string_format("log %lu: ", value) + text);
}

void PrintReferences(QNTransactionLog& log, int count, const std::string& more = "")
{
    Print(log.GetHandle(),
          string_format("%d extra reference%s", count, count == 1 ? "" : "s") + more);
}

/// Prints the text of a buffer that has been found, or not.
void PrintFound(QNTransactionLog& log, const char* action, const std::string& key,
                const QNTransactionBuffer* buffer)
{
    if (buffer == nullptr) {
        throw std::runtime_error(string_format("log %lu has no buffer ", log.GetHandle()) + key);
    }
    Print(log.GetHandle(),
          action + key + ": " + Quoted(static_cast<const TextBuffer*>(buffer)->m_strText));
}

/// Prints what has become of a log of which a handle has been destroyed.
void PrintDestroyed(unsigned long value)
{
    const bool exists = QNTransactionLog(value).IsValid();
    Print(value, exists ? "handle destroyed" : "handle and log destroyed");
}

/// Attaches to the log of the handle value, or creates one for none.
QNTransactionLog& Hold(const Call& call, std::optional<unsigned long> value, const char* action)
{
    const std::string name = call.Text("name");
    auto& held = TheHandles().held;
    if (held.contains(name)) {
        throw std::runtime_error("a handle has the name " + Quoted(name) + " already");
    }
    QNTransactionLog& log = value ? held.try_emplace(name, *value).first->second : held[name];
    if (!log.IsValid()) {
        held.erase(name);
        throw std::runtime_error(string_format("log %lu does not exist", value.value_or(0)));
    }
    Print(log.GetHandle(), action + Quoted(name));
    return log;
}

/// The handle that the call names.
auto Find(const Call& call)
{
    auto& held = TheHandles().held;
    const auto found = held.find(call.Text("log"));
    if (found == held.end()) {
        throw std::runtime_error("no handle has the name " + Quoted(call.Text("log")));
    }
    return found;
}

void Open(const Call& call)
{
    TheHandles().latest = Hold(call, std::nullopt, "created as ").GetHandle();
}

void Attach(const Call& call)
{
    Hold(call, call.Number<unsigned long>("handle"), "attached as ");
}

void Close(const Call& call)
{
    const auto found = Find(call);
    const unsigned long value = found->second.GetHandle();
    TheHandles().held.erase(found);
    PrintDestroyed(value);
}

void Add(const Call& call)
{
    QNTransactionLog& log = Find(call)->second;
    const std::string name = call.Text("name");
    const auto number = call.Number<unsigned long>("number");
    auto buffer = std::make_unique<TextBuffer>(KeyOf(call), call.Text("text"));
    log.AddBuffer(name, number, buffer.get());
    if (log.GetBuffer(name, number) != buffer.get()) {
        throw std::runtime_error("the key " + KeyOf(call) + " is in use");
    }
    static_cast<void>(buffer.release()); // the log owns it now
    Print(log.GetHandle(), "added " + KeyOf(call));
}

void Get(const Call& call)
{
    QNTransactionLog& log = Find(call)->second;
    PrintFound(log, "has ", KeyOf(call),
               log.GetBuffer(call.Text("name"), call.Number<unsigned long>("number")));
}

void Remove(const Call& call)
{
    QNTransactionLog& log = Find(call)->second;
    const std::unique_ptr<QNTransactionBuffer> removed(
        log.RemoveBuffer(call.Text("name"), call.Number<unsigned long>("number")));
    PrintFound(log, "removed ", KeyOf(call), removed.get());
}

void AddReferences(const Call& call)
{
    QNTransactionLog& log = Find(call)->second;
    PrintReferences(log, log.AddRef(call.Number<int>("count")));
}

void Release(const Call& call)
{
    QNTransactionLog& log = Find(call)->second;
    PrintReferences(log, log.Release());
}

void WorkOnLog(const Call& call)
{
    const auto work = [value = call.Number<unsigned long>("handle"), name = call.Text("name"),
                       number = call.Number<unsigned long>("number"), key = KeyOf(call)] {
        const std::lock_guard guard(TheHandles().mutex);
        {
            QNTransactionLog log(value);
            if (!log.IsValid()) {
                throw std::runtime_error(string_format("log %lu does not exist", value));
            }
            Print(value, "attached by a worker");
            PrintFound(log, "has ", key, log.GetBuffer(name, number));
            PrintReferences(log, log.Release());
        }
        PrintDestroyed(value);
    };
    call.m_Host.Submit(call, "log-work", work);
}

/// The library does not list its logs, but it says for a handle value whether there is one.
template <class Visit>
int ForEachLog(Visit visit)
{
    int count = 0;
    for (unsigned long value = 1; value <= TheHandles().latest; ++value) {
        if (QNTransactionLog log(value); log.IsValid()) {
            visit(log);
            ++count;
        }
    }
    return count;
}

/// The library says how many extra references there are when one is added or released.
void List(const Call& call)
{
    const int count = ForEachLog([&call](QNTransactionLog& log) {
        log.AddRef(1);
        const int extra = log.Release();
        Json names = Json::array();
        std::string text;
        for (auto& [name, handle] : TheHandles().held) {
            if (handle.GetHandle() == log.GetHandle()) {
                names.push_back(name);
                text += (text.empty() ? ", handles " : ", ") + Quoted(name);
            }
        }
        if (call.m_Host.IsJson()) {
            PrintJson({{"log", log.GetHandle()}, {"extra_references", extra}, {"handles", names}});
        } else {
            PrintReferences(log, extra, text.empty() ? ", no handle" : text);
        }
    });
    if (count == 0 && !call.m_Host.IsJson()) {
        Console::Instance().Print("there is no log");
    }
}

void Clear(const Call&)
{
    const std::size_t handles = TheHandles().held.size();
    if (handles > 0) { // they would point to logs that are gone
        throw std::runtime_error(string_format("handles that are still attached: %zu", handles));
    }
    const int count = ForEachLog([](QNTransactionLog&) {});
    QNTransactionLog::ClearAllLog();
    Console::Instance().Print("logs destroyed: " + std::to_string(count));
}

template <void (*Function)(const Call&)>
void Locked(const Call& call)
{
    const std::lock_guard guard(TheHandles().mutex);
    Function(call);
}

const Argument LOG = Text("log", "the name of a handle on it");
const Argument NEW = Text("name", "a name for the handle");
const Argument HANDLE = Number("handle", 0, ULONG_MAX, "the handle value of the log");
const Argument NAME = Text("name", "the name in the buffer's key");
const Argument NUMBER = Number("number", 0, ULONG_MAX, "the number in the buffer's key");
const Argument TEXT = Text("text", "the text");
const Argument COUNT = Number("count", INT_MIN, INT_MAX, "how many");

const Service g_Service(
    "Transaction logs",
    {{"log-add", "Add a buffer with a text to a log.", Locked<Add>, {LOG, NAME, NUMBER, TEXT}},
     {"log-attach", "Attach a handle to a log.", Locked<Attach>, {NEW, HANDLE}},
     {"log-clear", "Destroy all logs, unless a handle is attached.", Locked<Clear>},
     {"log-close", "Destroy a handle; the last reference destroys the log.", Locked<Close>, {LOG}},
     {"log-get", "Print the text of a buffer.", Locked<Get>, {LOG, NAME, NUMBER}},
     {"log-list", "Print the logs, with their extra references and handles.", Locked<List>},
     {"log-open", "Create a log, with a handle.", Locked<Open>, {NEW}},
     {"log-ref", "Add extra references to a log.", Locked<AddReferences>, {LOG, COUNT}},
     {"log-release", "Release an extra reference to a log.", Locked<Release>, {LOG}},
     {"log-remove",
      "Remove a buffer, print its text and delete it.",
      Locked<Remove>,
      {LOG, NAME, NUMBER}},
     {"log-work",
      "Make a worker attach, get a buffer and release an extra reference.",
      WorkOnLog,
      {HANDLE, NAME, NUMBER}}});

} // namespace

} // namespace emshost
