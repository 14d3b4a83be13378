#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <array>
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

#include <nlohmann/json.hpp>

#include "emsutil/general_command.h"
#include "host/command.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/workers.h"

namespace emshost {

using Json = nlohmann::ordered_json;

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
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Reads the scripts, and returns the exit status when all their commands are done and the
    /// summary is written.
    int Run(const std::vector<std::string>& scripts);

    // For the functions of commands, on the main thread.

    /// Reads another script and runs its commands at once.
    void RunScript(const std::string& path);
    /// Adds a command on behalf of the one that runs.
    void Add(EmsGeneralCmd& cmd);
    /// Ends the process: no more is read, and what is queued is skipped.
    void Quit(int status);
    /// Passes a job to a worker. What it throws is a failure of the call.
    void Submit(const Call& call, const std::string& name, const Workers::Job& job);
    /// Calls an action when all commands and jobs are done; the latest comes first.
    void AtEnd(std::function<void()> action) { m_AtEnd.push_back(std::move(action)); }
    /// Writes all results, and waits, or less when the process is to stop.
    void Pause(int milliseconds);
    std::stop_token StopToken() const { return m_Stop.get_token(); }
    std::string Summary() const;
    bool IsJson() const { return m_Options.json; }
    /// Prints a row of a table, as JSON or as text. In JSON, bytes that are not UTF-8 are replaced.
    void PrintRow(const Json& row, const std::string& text) const;
    Workers& GetWorkers() { return m_Workers; }

private:
    using Position = Call::Position;

    /// As the kind of fault in a position, READ says that there is none.
    enum Count { READ, ADDED, RUN, UNKNOWN, BAD_LINES, FAILED, UNREAD, SKIPPED, COUNTS };

    void ReadAll(const std::vector<std::string>& scripts);
    void ReadScript(const std::string& path, bool nested);
    void Deliver(EmsGeneralCmd& cmd, const Position& position, bool nested);
    void DeliverFault(Count kind, const std::string& message, bool nested);
    void RunCommand(EmsGeneralCmd& cmd);
    void Report(Count kind, const std::string& message);
    void CheckNesting() const;
    void Drain();
    void Announce(bool& news);

    const HostOptions m_Options;
    std::stop_source m_Stop;
    const std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
    bool m_bInteractive = false;
    bool m_bReadsInput = false;              // standard input is a script of its own
    std::atomic<bool> m_bReadEnough = false; // an error that is to stop the process is delivered
    std::array<std::atomic<std::uint64_t>, COUNTS> m_Counts = {};

    // Used by the main thread only.
    int m_nQuitStatus = 0;
    std::list<Position> m_Running; // the commands that run, one inside another
    std::vector<std::function<void()>> m_AtEnd;

    std::mutex m_NewsMutex; // guards the following
    std::condition_variable m_News;
    bool m_bAdded = false;
    bool m_bAllRead = false;

    Workers m_Workers; // the last: their jobs use the other members
};

} // namespace emshost

#endif
