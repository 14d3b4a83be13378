#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "emsutil/general_command.h"
#include "host/command.h"
#include "host/command_parser.h"
#include "host/console.h"
#include "host/line_reader.h"
#include "host/workers.h"

namespace emshost {

using Json = nlohmann::ordered_json;

struct HostOptions
{
    bool strict = false; // stop at the first error
    bool json = false;   // print tables as lines of JSON
    int workers = 2;
};

/// The process: reads scripts, and the library runs their commands.
///
/// The main thread reads a line, adds its command to the library's queue, and drains the queue
/// before it reads the next line.
class Host
{
public:
    /// The counts of the summary.
    enum Count { READ, ADDED, RUN, UNKNOWN, BAD_LINES, FAILED, UNREAD, COUNTS };

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

    /// Runs the commands of another script. Throws when it cannot be read to its end.
    void RunScript(const std::string& path);
    /// Throws if the running command is nested too deeply to run other commands.
    void CheckNesting() const;
    /// Counts a command. If it has a handler, adds it to the queue and drains the queue, else
    /// reports it.
    void Deliver(EmsGeneralCmd& cmd, Count count);
    /// Requests the stop: no further line is read and no further command runs.
    void Quit(int status);
    /// Calls an action when all commands and jobs are done; the latest comes first.
    void AtEnd(std::function<void()> action) { m_AtEnd.push_back(std::move(action)); }
    /// Writes all results, and waits, or less when the process is to stop.
    void Pause(int milliseconds);
    std::stop_token StopToken() const { return m_Stop.get_token(); }
    /// The script of the running command. There must be one.
    const LineReader& Script() const { return *m_Scripts.back(); }
    std::string Summary() const;
    bool IsJson() const { return m_Options.json; }
    /// Prints a row of a table, as JSON or as text. In JSON, bytes that are not UTF-8 are replaced.
    void PrintRow(const Json& row, const std::string& text) const;
    Workers& GetWorkers() { return m_Workers; }

private:
    void ReadLines(LineReader& script);
    void RunCommand(EmsGeneralCmd& cmd);
    void Report(Count kind, const std::string& message);

    const HostOptions m_Options;
    std::stop_source m_Stop;
    const std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
    bool m_bInteractive = false;
    std::array<std::uint64_t, COUNTS> m_Counts = {};
    int m_nQuitStatus = 0;
    std::vector<const LineReader*> m_Scripts; // the open scripts, each run by the one before it
    std::size_t m_nDepth = 0;                 // how many commands run, one inside another
    std::vector<std::function<void()>> m_AtEnd;
    Workers m_Workers;
};

} // namespace emshost

#endif
