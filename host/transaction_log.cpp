#include "emsutil/transaction_log.h"

#include <future>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "emsutil/diagnostics.h"
#include "host/host.h"

using namespace emshost;
using namespace NSQN_EMSUTIL_AGENT;
using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

namespace {

/// The handles that commands hold, by names of the host's own; for the main thread. Never
/// destroyed: what is open at the end of the process stays open.
std::map<std::string, QNTransactionLog>& g_Held = *new std::map<std::string, QNTransactionLog>;
unsigned long g_ulLatest = 0; // handle value

/// Every buffer of this process is a text. It prints when it is deleted, which may be under locks
/// of the library, where no log may be used.
struct TextBuffer final : QNTransactionBuffer
{
    TextBuffer(std::string key, std::string text)
        : m_strKey(std::move(key)), m_strText(std::move(text))
    {}
    ~TextBuffer() override { Print("buffer " + m_strKey + ": deleted"); }

    const std::string m_strKey;
    const std::string m_strText;
};

struct Key
{
    explicit Key(const Call& call)
        : name(call.Text("name")), number(call.Number<unsigned long>("number")),
          text(Quoted(name) + ' ' + std::to_string(number))
    {}

    std::string name;
    unsigned long number;
    std::string text;
};

std::string Log(unsigned long value)
{
    return string_format("log %lu", value);
}

std::string References(int count)
{
    return string_format(": %d extra reference%s", count, count == 1 ? "" : "s");
}

void PrintFound(QNTransactionLog& log, const char* action, const Key& key,
                const QNTransactionBuffer* buffer)
{
    if (buffer == nullptr) {
        throw std::runtime_error(Log(log.GetHandle()) + " has no buffer " + key.text);
    }
    Print(Log(log.GetHandle()) + action + key.text + ": " +
          Quoted(static_cast<const TextBuffer*>(buffer)->m_strText));
}

/// Prints what has become of a log of which a handle has been destroyed.
void PrintDestroyed(unsigned long value)
{
    const bool exists = QNTransactionLog(value).IsValid();
    Print(Log(value) + (exists ? ": handle destroyed" : ": handle and log destroyed"));
}

/// Attaches to the log of the handle value, or creates one for none.
QNTransactionLog& Hold(const Call& call, std::optional<unsigned long> value, const char* action)
{
    const std::string name = call.Text("name");
    if (g_Held.contains(name)) {
        throw std::runtime_error("a handle has the name " + Quoted(name) + " already");
    }
    QNTransactionLog& log = value ? g_Held.try_emplace(name, *value).first->second : g_Held[name];
    if (!log.IsValid()) {
        g_Held.erase(name);
        throw std::runtime_error(Log(value.value_or(0)) + " does not exist");
    }
    Print(Log(log.GetHandle()) + action + Quoted(name));
    return log;
}

/// The handle that the call names.
QNTransactionLog& Find(const Call& call)
{
    const auto found = g_Held.find(call.Text("log"));
    if (found == g_Held.end()) {
        throw std::runtime_error("no handle has the name " + Quoted(call.Text("log")));
    }
    return found->second;
}

void Open(const Call& call)
{
    g_ulLatest = Hold(call, std::nullopt, ": created as ").GetHandle();
}

void Attach(const Call& call)
{
    Hold(call, call.Number<unsigned long>("handle"), ": attached as ");
}

void Close(const Call& call)
{
    const unsigned long value = Find(call).GetHandle();
    g_Held.erase(call.Text("log"));
    PrintDestroyed(value);
}

void Add(const Call& call)
{
    QNTransactionLog& log = Find(call);
    const Key key(call);
    auto buffer = std::make_unique<TextBuffer>(key.text, call.Text("text"));
    log.AddBuffer(key.name, key.number, buffer.get());
    if (log.GetBuffer(key.name, key.number) != buffer.get()) {
        throw std::runtime_error("the key " + key.text + " is in use");
    }
    static_cast<void>(buffer.release()); // the log owns it now
    Print(Log(log.GetHandle()) + ": added " + key.text);
}

void Get(const Call& call)
{
    QNTransactionLog& log = Find(call);
    const Key key(call);
    PrintFound(log, ": has ", key, log.GetBuffer(key.name, key.number));
}

void Remove(const Call& call)
{
    QNTransactionLog& log = Find(call);
    const Key key(call);
    const std::unique_ptr<QNTransactionBuffer> removed(log.RemoveBuffer(key.name, key.number));
    PrintFound(log, ": removed ", key, removed.get());
}

void AddReferences(const Call& call)
{
    QNTransactionLog& log = Find(call);
    Print(Log(log.GetHandle()) + References(log.AddRef(call.Number<int>("count"))));
}

void Release(const Call& call)
{
    QNTransactionLog& log = Find(call);
    Print(Log(log.GetHandle()) + References(log.Release()));
}

void WorkOnLog(const Call& call)
{
    const auto value = call.Number<unsigned long>("handle");
    const auto work = [value, key = Key(call)] {
        {
            QNTransactionLog log(value);
            if (!log.IsValid()) {
                throw std::runtime_error(Log(value) + " does not exist");
            }
            Print(Log(value) + ": attached by another thread");
            Print(Log(value) + References(log.Release()));
            PrintFound(log, ": has ", key, log.GetBuffer(key.name, key.number));
        }
        PrintDestroyed(value);
    };
    std::async(std::launch::async, work).get();
}

/// The handle values of all logs. The library does not list them, but a handle attaches only to a
/// log that there is.
std::vector<unsigned long> Logs()
{
    std::vector<unsigned long> values(g_ulLatest);
    std::iota(values.begin(), values.end(), 1UL);
    std::erase_if(values, [](unsigned long value) { return !QNTransactionLog(value).IsValid(); });
    return values;
}

void List(const Call& call)
{
    const std::vector<unsigned long> logs = Logs();
    for (const unsigned long value : logs) {
        QNTransactionLog log(value);
        log.AddRef(1); // the library says how many there are when one is added or released
        const int extra = log.Release();
        Json names = Json::array();
        std::string text;
        for (auto& [name, handle] : g_Held) {
            if (handle.GetHandle() == value) {
                names.push_back(name);
                text += (text.empty() ? ", handles " : ", ") + Quoted(name);
            }
        }
        call.m_Host.PrintRow({{"log", value}, {"extra_references", extra}, {"handles", names}},
                             Log(value) + References(extra) +
                                 (text.empty() ? ", no handle" : text));
    }
    if (logs.empty() && !call.m_Host.IsJson()) {
        Print("there is no log");
    }
}

void Clear(const Call&)
{
    if (!g_Held.empty()) { // they would point to logs that are destroyed
        throw std::runtime_error(
            string_format("handles that are still attached: %zu", g_Held.size()));
    }
    const std::size_t count = Logs().size();
    QNTransactionLog::ClearAllLog();
    Print("logs destroyed: " + std::to_string(count));
}

const Argument LOG = Text("log", "the name of a handle");
const Argument NEW = Text("name", "a name for the handle");
const Argument HANDLE = Number("handle", 0, INT64_MAX, "the handle value of the log");
const Argument NAME = Text("name", "the name in the buffer's key");
const Argument NUMBER = Number("number", 0, INT64_MAX, "the number in the buffer's key");
const Argument TEXT = Text("text", "the text");
const Argument COUNT = Number("count", -1000000, 1000000, "how many");

const Service g_Service(
    "Transaction logs",
    {{"log-add", "Add a buffer with a text to a log.", Add, {LOG, NAME, NUMBER, TEXT}},
     {"log-attach", "Attach a handle to a log.", Attach, {NEW, HANDLE}},
     {"log-clear", "Destroy all logs; an error while a handle is attached.", Clear},
     {"log-close", "Destroy a handle; the last reference destroys the log.", Close, {LOG}},
     {"log-get", "Print the text of a buffer.", Get, {LOG, NAME, NUMBER}},
     {"log-list", "Print the logs, with their extra references and handles.", List},
     {"log-open", "Create a log, with a handle.", Open, {NEW}},
     {"log-ref", "Add extra references to a log.", AddReferences, {LOG, COUNT}},
     {"log-release", "Release an extra reference to a log.", Release, {LOG}},
     {"log-remove", "Remove a buffer, print its text and delete it.", Remove, {LOG, NAME, NUMBER}},
     {"log-work",
      "Make another thread attach, release an extra reference and get a buffer.",
      WorkOnLog,
      {HANDLE, NAME, NUMBER}}});

} // namespace
