#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include "emsutil/general_command.h"
#include "host/command.h"
#include "host/line_reader.h"
#include "host/workers.h"

namespace emshost {

struct HostOptions
{
    bool direct = false; // run each command as it is read, without the queue
    bool strict = false; // stop at the first error
    bool json = false;   // print tables as lines of JSON
    int workers = 2;
};

/// The process: reads scripts, and the library runs their commands.
///
/// A thread reads and adds commands to the library's queue; the main thread drains it, so that
/// every command runs there, in order. Commands of a nested script, and all with the option
/// "direct", run at once instead. At a terminal the main thread does both in turn.
class Host
{
public:
    /// For the library, which calls handlers without a context.
    static int Dispatch(EmsGeneralCmd* cmd, EmsGeneralCmd*);

    /// `stop` is requested by a signal or by the host itself.
    Host(const HostOptions& options, std::stop_source stop);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Reads the scripts, and returns when all their commands are done and the summary is written:
    /// the exit status.
    int Run(const std::vector<std::string>& scripts);

    // For the functions of commands, on the main thread.

    /// Reads another script and runs its commands at once.
    void RunScript(const Call& call, const std::string& path);
    /// Adds a command on behalf of the one that runs.
    void Add(EmsGeneralCmd& cmd);
    /// Ends the process: no more is read, and what is queued is skipped.
    void Quit(int status);
    /// Passes a job to a worker. What it throws is a failure of the call.
    void Submit(const Call& call, const std::string& name, const std::function<void()>& job);
    /// Runs an action when all commands and jobs are done; the latest comes first.
    void AtEnd(std::function<void()> action) { m_AtEnd.push_back(std::move(action)); }
    /// Waits, or less when the process is to stop; results are written before.
    void Sleep(std::chrono::milliseconds time);
    std::stop_token StopToken() const { return m_Stop.get_token(); }
    std::string Summary() const;

    // For the functions of commands and for jobs, on any thread.

    /// Reports that a command has failed. `where` begins the message.
    void Fail(const std::string& where, const std::string& what);
    bool IsJson() const { return m_Options.json; }

    Workers m_Workers;

private:
    using Position = Call::Position;

    struct Counts
    {
        std::atomic<std::uint64_t> read, added, run, withoutHandler, badLines, failed, unread,
            skipped;
    };

    void ReadAll(const std::vector<std::string>& scripts);
    bool ReadScript(LineReader& reader, bool nested);
    void Deliver(EmsGeneralCmd& cmd, const Position& position, bool nested);
    void RunCommand(EmsGeneralCmd& cmd);
    void ReportFault(const Position& fault, const std::string& where);
    void Drain();
    void Announce(bool& news);

    const HostOptions m_Options;
    std::stop_source m_Stop;
    const std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
    const Interrupt m_Interrupt;
    bool m_bInteractive = false;
    Counts m_Counts = {};

    // Used by the main thread only.
    int m_nQuitStatus = 0;
    std::list<Position> m_Running; // the commands that run, one inside another
    std::vector<std::function<void()>> m_AtEnd;

    std::mutex m_NewsMutex; // guards the following
    std::condition_variable_any m_News;
    bool m_bAdded = false;
    bool m_bAllRead = false;
};

} // namespace emshost

#endif
