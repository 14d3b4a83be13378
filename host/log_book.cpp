#include "host/log_book.h"

#include <memory>
#include <utility>

#include "emsutil/diagnostics.h"
#include "host/command_parser.h"
#include "host/console.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;
using NSQN_util::QNTransactionBuffer;

namespace {

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

} // namespace

std::string BufferKey::Text() const
{
    return Quoted(m_strName) + ' ' + std::to_string(m_nNumber);
}

LogBook& LogBook::Instance()
{
    static auto* const book = new LogBook;
    return *book;
}

Handle::Handle(const std::string& event)
{
    const std::lock_guard guard(m_Book.m_Mutex);
    m_Log.emplace();
    Enter(event);
}

Handle::Handle(unsigned long value, const std::string& event)
{
    const std::lock_guard guard(m_Book.m_Mutex);
    m_Log.emplace(value);
    Enter(event);
    if (!IsValid()) {
        Console::Instance().Print(string_format("log %lu: there is none", value));
    }
}

Handle::~Handle()
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

void Handle::AddReferences(int count)
{
    const std::lock_guard guard(m_Book.m_Mutex);
    int& extra = m_Book.m_References[m_nValue].m_nExtra;
    const int before = std::exchange(extra, m_Log->AddRef(count));
    PrintEvent(string_format("%d added", extra - before));
}

void Handle::Release()
{
    const std::lock_guard guard(m_Book.m_Mutex);
    int& extra = m_Book.m_References[m_nValue].m_nExtra;
    const int before = std::exchange(extra, m_Log->Release());
    PrintEvent(string_format("%d released", before - extra));
}

void Handle::File(const BufferKey& key, const std::string& text)
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

void Handle::Read(const BufferKey& key)
{
    const std::lock_guard guard(m_Book.m_Mutex);
    PrintFound("read ", key, m_Log->GetBuffer(key.m_strName, key.m_nNumber));
}

void Handle::Take(const BufferKey& key)
{
    const std::lock_guard guard(m_Book.m_Mutex);
    const std::unique_ptr<QNTransactionBuffer> taken(
        m_Log->RemoveBuffer(key.m_strName, key.m_nNumber));
    PrintFound("took ", key, taken.get());
}

void Handle::Enter(const std::string& event)
{
    if (IsValid()) {
        m_nValue = m_Log->GetHandle();
        ++m_Book.m_References[m_nValue].m_nHandles;
        PrintEvent(event);
    }
}

void Handle::Print(const std::string& line) const
{
    Console::Instance().Print(string_format("log %lu: %s", m_nValue, line.c_str()));
}

void Handle::PrintEvent(const std::string& event) const
{
    const auto& [handles, extra] = m_Book.m_References[m_nValue];
    Print(string_format("%s (%d, %d)", event.c_str(), handles + extra, extra));
}

/// All buffers of this process are texts.
void Handle::PrintFound(const char* action, const BufferKey& key,
                        const QNTransactionBuffer* buffer) const
{
    Print(buffer == nullptr ? "has no " + key.Text()
                            : action + key.Text() + ": " +
                                  Quoted(static_cast<const TextBuffer*>(buffer)->m_strText));
}

} // namespace emshost
