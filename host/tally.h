#ifndef HOST_TALLY_H
#define HOST_TALLY_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace emshost {

/// What the process has done so far. Any thread may count.
class Tally
{
public:
    std::atomic<std::uint64_t> m_nRead = 0;
    std::atomic<std::uint64_t> m_nAdded = 0; // by handlers
    std::atomic<std::uint64_t> m_nRun = 0;
    std::atomic<std::uint64_t> m_nSkipped = 0; // by the end of the process
    std::atomic<std::uint64_t> m_nBadLines = 0;
    std::atomic<std::uint64_t> m_nBadCommands = 0;
    std::atomic<std::uint64_t> m_nUnreadScripts = 0;

    /// For when a command is handed to the library, which does not tell its turn: one that is
    /// queued behind the end of the process counts too.
    void CountWithoutHandler(const std::string& name);

    /// Whether everything could be done as it was written.
    bool IsAllWell() const;
    /// An aligned table, with what happens rarely only where it happened.
    std::string Summary(std::chrono::duration<double> elapsed) const;

private:
    mutable std::mutex m_Mutex; // guards the following
    std::uint64_t m_nWithoutHandler = 0;
    std::map<std::string, std::uint64_t> m_CountByName; // bounded: a script may hold any name
    bool m_bNamesLeftOut = false;
};

} // namespace emshost

#endif
