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

namespace emshost {

using namespace NSQN_EMSUTIL_AGENT;

namespace {

using NSQN_util::QNTransactionBuffer;
using NSQN_util::QNTransactionLog;

/// Says when it is deleted. That may be under locks of the library, where no log may be used.
class TextBuffer final : public QNTransactionBuffer
{
public:
    TextBuffer(const std::string& key, std::string text)
        : m_strText(std::move(text)), m_strLastWords("buffer " + key + ": deleted")
    {}
    ~TextBuffer() override { Console::Instance().Print(m_strLastWords); }

    const std::string m_strText;

private:
    const std::string m_strLastWords;
};

struct References
{
    int m_nHandles = 0; // that this host has attached
    int m_nExtra = 0;   // as the library said last
};

struct BufferKey
{
    std::string m_strName;
    unsigned long m_nNumber = 0;

    std::string Text() const { return Quoted(m_strName) + ' ' + std::to_string(m_nNumber); }
};

/// The library tells how many extra references a log has, when one is added or released. How many
/// handles it has this host knows, because all of them are its own.
struct LogBook
{
    // Makes an operation, its count and its line one, and keeps a buffer that is being read from
    // being taken. Guards the next.
    std::mutex m_Mutex;
    std::map<unsigned long, References> m_References; // of all logs, by their handle values

    /// Never destroyed: what is open at the end of the process stays open.
    static LogBook& Instance()
    {
        static auto* const book = new LogBook;
        return *book;
    }
};

/// A handle that the book knows. It prints what becomes of it and what is done with it.
class Handle
{
public:
    /// Makes a log.
    explicit Handle(const std::string& event)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        m_Log.emplace();
        Enter(event);
    }

    /// Attaches to a log; stays unattached when there is none.
    Handle(unsigned long value, const std::string& event)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        m_Log.emplace(value);
        Enter(event);
        if (!IsValid()) {
            Console::Instance().Print(string_format("log %lu: there is none", value));
        }
    }

    ~Handle()
    {
        if (!IsValid()) {
            return;
        }
        const std::lock_guard guard(m_Book.m_Mutex);
        m_Log.reset();
        const auto entry = m_Book.m_References.find(m_nValue);
        --entry->second.m_nHandles;
        const bool gone = entry->second.m_nHandles + entry->second.m_nExtra == 0;
        PrintEvent(gone ? "handle and log destroyed" : "handle destroyed");
        if (gone) {
            m_Book.m_References.erase(entry);
        }
    }

    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool IsValid() const { return m_Log->IsValid(); }

    void AddReferences(int count)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        int& extra = m_Book.m_References[m_nValue].m_nExtra;
        const int before = std::exchange(extra, m_Log->AddRef(count));
        PrintEvent(string_format("%d added", extra - before));
    }

    void Release()
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        int& extra = m_Book.m_References[m_nValue].m_nExtra;
        const int before = std::exchange(extra, m_Log->Release());
        PrintEvent(string_format("%d released", before - extra));
    }

    void File(const BufferKey& key, const std::string& text)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        auto buffer = std::make_unique<TextBuffer>(key.Text(), text);
        m_Log->AddBuffer(key.m_strName, key.m_nNumber, buffer.get());
        if (m_Log->GetBuffer(key.m_strName, key.m_nNumber) != buffer.get()) {
            Print(key.Text() + " is taken");
            return;
        }
        static_cast<void>(buffer.release()); // the log's from here on
        Print("filed " + key.Text());
    }

    void Read(const BufferKey& key)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        PrintFound("read ", key, m_Log->GetBuffer(key.m_strName, key.m_nNumber));
    }

    void Take(const BufferKey& key)
    {
        const std::lock_guard guard(m_Book.m_Mutex);
        const std::unique_ptr<QNTransactionBuffer> taken(
            m_Log->RemoveBuffer(key.m_strName, key.m_nNumber));
        PrintFound("took ", key, taken.get());
    }

private:
    // With the lock held.

    void Enter(const std::string& event)
    {
        if (IsValid()) {
            m_nValue = m_Log->GetHandle();
            ++m_Book.m_References[m_nValue].m_nHandles;
            PrintEvent(event);
        }
    }

    void Print(const std::string& line) const
    {
        Console::Instance().Print(string_format("log %lu: %s", m_nValue, line.c_str()));
    }

    void PrintEvent(const std::string& event) const
    {
        const auto& [handles, extra] = m_Book.m_References[m_nValue];
        Print(string_format("%s (%d, %d)", event.c_str(), handles + extra, extra));
    }

    /// All buffers of this process are texts.
    void PrintFound(const char* action, const BufferKey& key,
                    const QNTransactionBuffer* buffer) const
    {
        Print(buffer == nullptr ? "has no " + key.Text()
                                : action + key.Text() + ": " +
                                      Quoted(static_cast<const TextBuffer*>(buffer)->m_strText));
    }

    LogBook& m_Book = LogBook::Instance();
    std::optional<QNTransactionLog> m_Log; // there until the destructor
    unsigned long m_nValue = 0;
};

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
            QNTransactionLog::ClearAllLog();
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
