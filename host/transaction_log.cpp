#include "emsutil/transaction_log.h"

#include <climits>
#include <map>
#include <memory>
#include <mutex>
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
    // Held for a whole command or job: its lines stay together, and no handle is attached that is
    // not among those held. Guards the following.
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<QNTransactionLog>> held;
    unsigned long latest = 0; // handle value

    /// Never destroyed: what is open at the end of the process stays open.
    static Handles& Instance()
    {
        static auto* const handles = new Handles;
        return *handles;
    }
};

/// Prints when it is deleted. That may be under locks of the library, where no log may be used.
class TextBuffer final : public QNTransactionBuffer
{
public:
    TextBuffer(const std::string& key, std::string text) : m_strText(std::move(text)), m_strKey(key)
    {}
    ~TextBuffer() override { Console::Instance().Print("buffer " + m_strKey + ": deleted"); }

    const std::string m_strText;

private:
    const std::string m_strKey;
};

/// What a command on a log names. All buffers of this process are texts.
struct Buffer
{
    explicit Buffer(const Call& call)
        : name(call.Text("name")), number(call.Number<unsigned long>("number"))
    {}

    std::string Key() const { return Quoted(name) + ' ' + std::to_string(number); }

    void PrintFound(const std::string& log, const char* action,
                    const QNTransactionBuffer* buffer) const
    {
        if (buffer == nullptr) {
            throw std::runtime_error(log + "has no buffer " + Key());
        }
        Console::Instance().Print(log + action + ' ' + Key() + ": " +
                                  Quoted(static_cast<const TextBuffer*>(buffer)->m_strText));
    }

    std::string name;
    unsigned long number;
};

std::string NameOf(unsigned long value)
{
    return "log " + std::to_string(value) + ": ";
}

std::string NameOf(QNTransactionLog& log)
{
    return NameOf(log.GetHandle());
}

void Print(QNTransactionLog& log, const std::string& text)
{
    Console::Instance().Print(NameOf(log) + text);
}

std::string References(int count)
{
    return string_format("%d extra reference%s", count, count == 1 ? "" : "s");
}

/// The handle that the call names.
auto Find(const Call& call)
{
    auto& held = Handles::Instance().held;
    const auto found = held.find(call.Text("log"));
    if (found == held.end()) {
        throw std::runtime_error("no handle has the name " + Quoted(call.Text("log")));
    }
    return found;
}

/// Prints what has become of a log when a handle on it is destroyed.
void PrintDestroyed(unsigned long value)
{
    const bool exists = QNTransactionLog(value).IsValid();
    Console::Instance().Print(NameOf(value) +
                              (exists ? "handle destroyed" : "handle and log destroyed"));
}

void Hold(const Call& call, std::unique_ptr<QNTransactionLog> log, const char* action)
{
    const std::string name = call.Text("name");
    Print(*log, action + std::string(" as ") + Quoted(name));
    Handles::Instance().held[name] = std::move(log);
}

void CheckFree(const Call& call)
{
    if (Handles::Instance().held.contains(call.Text("name"))) {
        throw std::runtime_error("a handle has the name " + Quoted(call.Text("name")) + " already");
    }
}

std::unique_ptr<QNTransactionLog> AttachTo(unsigned long value)
{
    auto log = std::make_unique<QNTransactionLog>(value);
    if (!log->IsValid()) {
        throw std::runtime_error(string_format("log %lu does not exist", value));
    }
    return log;
}

void Open(const Call& call)
{
    CheckFree(call);
    auto log = std::make_unique<QNTransactionLog>();
    Handles::Instance().latest = log->GetHandle();
    Hold(call, std::move(log), "created");
}

void Attach(const Call& call)
{
    CheckFree(call);
    Hold(call, AttachTo(call.Number<unsigned long>("handle")), "attached");
}

void Close(const Call& call)
{
    const auto found = Find(call);
    const unsigned long value = found->second->GetHandle();
    Handles::Instance().held.erase(found);
    PrintDestroyed(value);
}

void Add(const Call& call)
{
    QNTransactionLog& log = *Find(call)->second;
    const Buffer key(call);
    auto buffer = std::make_unique<TextBuffer>(key.Key(), call.Text("text"));
    log.AddBuffer(key.name, key.number, buffer.get());
    if (log.GetBuffer(key.name, key.number) != buffer.get()) {
        throw std::runtime_error(NameOf(log) + "the key " + key.Key() + " is in use");
    }
    static_cast<void>(buffer.release()); // the log owns it now
    Print(log, "added " + key.Key());
}

void Get(const Call& call)
{
    QNTransactionLog& log = *Find(call)->second;
    const Buffer key(call);
    key.PrintFound(NameOf(log), "has", log.GetBuffer(key.name, key.number));
}

void Remove(const Call& call)
{
    QNTransactionLog& log = *Find(call)->second;
    const Buffer key(call);
    const std::unique_ptr<QNTransactionBuffer> removed(log.RemoveBuffer(key.name, key.number));
    key.PrintFound(NameOf(log), "removed", removed.get());
}

void AddReferences(const Call& call)
{
    QNTransactionLog& log = *Find(call)->second;
    Print(log, References(log.AddRef(call.Number<int>("count"))));
}

void Release(const Call& call)
{
    QNTransactionLog& log = *Find(call)->second;
    Print(log, References(log.Release()));
}

void WorkOnLog(const Call& call)
{
    call.m_Host.Submit(
        call, "log-work", [value = call.Number<unsigned long>("handle"), key = Buffer(call)] {
            const std::lock_guard guard(Handles::Instance().mutex);
            auto log = AttachTo(value);
            Print(*log, "attached by a worker");
            key.PrintFound(NameOf(*log), "has", log->GetBuffer(key.name, key.number));
            Print(*log, References(log->Release()));
            log.reset();
            PrintDestroyed(value);
        });
}

/// The library does not list its logs, but it says which handle value has one.
template <class Visit>
void ForEachLog(Visit visit)
{
    for (unsigned long value = 1; value <= Handles::Instance().latest; ++value) {
        QNTransactionLog log(value);
        if (log.IsValid()) {
            visit(log, value);
        }
    }
}

/// Nor does it say how many references a log has, except when one is added or released.
void List(const Call& call)
{
    bool any = false;
    ForEachLog([&](QNTransactionLog& log, unsigned long value) {
        any = true;
        log.AddRef(1);
        const int extra = log.Release();
        Json names = Json::array();
        std::string text;
        for (const auto& [name, handle] : Handles::Instance().held) {
            if (handle->GetHandle() == value) {
                names.push_back(name);
                text += ", " + Quoted(name);
            }
        }
        if (call.m_Host.IsJson()) {
            PrintJson({{"log", value}, {"handles", names}, {"extra_references", extra}});
        } else {
            Print(log, References(extra) +
                           (text.empty() ? ", no handle" : ", handles" + text.substr(1)));
        }
    });
    if (!any && !call.m_Host.IsJson()) {
        Console::Instance().Print("there is no log");
    }
}

void Clear(const Call&)
{
    const std::size_t handles = Handles::Instance().held.size();
    if (handles > 0) { // they would point to logs that are gone
        throw std::runtime_error(handles == 1
                                     ? "1 handle is still attached"
                                     : std::to_string(handles) + " handles are still attached");
    }
    int count = 0;
    ForEachLog([&count](QNTransactionLog&, unsigned long) { ++count; });
    QNTransactionLog::ClearAllLog();
    Console::Instance().Print("logs destroyed: " + std::to_string(count));
}

template <void (*Function)(const Call&)>
void Locked(const Call& call)
{
    const std::lock_guard guard(Handles::Instance().mutex);
    Function(call);
}

const Argument LOG = Text("log", "the name of a handle on it");
const Argument NEW_NAME = Text("name", "a name for the handle");
const Argument HANDLE = Number("handle", 0, ULONG_MAX, "the handle value of the log");
const Argument NAME = Text("name", "the name in the buffer's key");
const Argument NUMBER = Number("number", 0, ULONG_MAX, "the number in the buffer's key");

const Service g_Service(
    "Transaction logs",
    {{"log-add",
      "Add a buffer with a text to a log.",
      Locked<Add>,
      {LOG, NAME, NUMBER, Text("text", "the text")}},
     {"log-attach", "Attach a handle to a log.", Locked<Attach>, {NEW_NAME, HANDLE}},
     {"log-clear", "Destroy all logs, unless a handle is attached.", Locked<Clear>},
     {"log-close", "Destroy a handle; the last reference destroys the log.", Locked<Close>, {LOG}},
     {"log-get", "Print the text of a buffer.", Locked<Get>, {LOG, NAME, NUMBER}},
     {"log-list", "Print the logs, with their extra references and handles.", Locked<List>},
     {"log-open", "Create a log, with a handle.", Locked<Open>, {NEW_NAME}},
     {"log-ref",
      "Add extra references to a log.",
      Locked<AddReferences>,
      {LOG, Number("count", INT_MIN, INT_MAX, "how many")}},
     {"log-release", "Release an extra reference to a log.", Locked<Release>, {LOG}},
     {"log-remove",
      "Remove a buffer from a log, print its text and delete it.",
      Locked<Remove>,
      {LOG, NAME, NUMBER}},
     {"log-work",
      "Make a worker attach to a log, get a buffer and release an extra reference.",
      WorkOnLog,
      {HANDLE, NAME, NUMBER}}});

} // namespace

} // namespace emshost
