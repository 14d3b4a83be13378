#ifndef HOST_LOG_BOOK_H
#define HOST_LOG_BOOK_H

/// The handles that this host has on transaction logs, and what it knows of the logs' references.

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "emsutil/transaction_log.h"

namespace emshost {

struct References
{
    int m_nHandles = 0; // that this host has attached
    int m_nExtra = 0;   // as the library said last
};

struct BufferKey
{
    std::string m_strName;
    unsigned long m_nNumber = 0;

    std::string Text() const;
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
    static LogBook& Instance();
};

/// A handle that the book knows. It prints what becomes of it and what is done with it.
class Handle
{
public:
    /// Makes a log.
    explicit Handle(const std::string& event);
    /// Attaches to a log; stays unattached when there is none.
    Handle(unsigned long value, const std::string& event);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool IsValid() const { return m_Log->IsValid(); }

    void AddReferences(int count);
    void Release();
    void File(const BufferKey& key, const std::string& text);
    void Read(const BufferKey& key);
    void Take(const BufferKey& key);

private:
    // With the book's lock held.
    void Enter(const std::string& event);
    void Print(const std::string& line) const;
    void PrintEvent(const std::string& event) const;
    void PrintFound(const char* action, const BufferKey& key,
                    const NSQN_util::QNTransactionBuffer* buffer) const;

    LogBook& m_Book = LogBook::Instance();
    std::optional<NSQN_util::QNTransactionLog> m_Log; // there until the destructor
    unsigned long m_nValue = 0;
};

} // namespace emshost

#endif
