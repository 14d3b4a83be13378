#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "emsutil/general_command.h"
#include "host/line_reader.h"
#include "host/tally.h"
#include "host/worker_pool.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::EmsGeneralCmd;

struct HostOptions
{
    bool m_bDirect = false; // run each command as it is read, without the queue
    bool m_bStrict = false; // stop at the first error
    int m_nWorkers = 2;     // threads for jobs
};

/// The process: reads scripts and has the library run their commands.
///
/// A thread reads and queues; the main thread drains, so that every handler runs there. In direct
/// mode the main thread does both.
class Host
{
public:
    /// For handlers, which get no context. There is one host, and it is there while any runs.
    static Host& Instance();

    explicit Host(const HostOptions& options);
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Reads the scripts, or standard input if there are none, until all their commands are done.
    /// Writes the summary and returns the exit status.
    int Run(const std::vector<std::string>& scripts);

    // For handlers, on the main thread.

    using Function = void(Host&, EmsGeneralCmd&);

    /// Has `function` do a command, and counts that; or skips it when the process is to end.
    void RunCommand(EmsGeneralCmd& cmd, Function& function);
    /// Reads another script and runs its commands at once.
    void RunScript(const EmsGeneralCmd& by, const std::string& path);
    /// Queues a command; in direct mode, where nobody drains, runs it at once.
    void Add(const EmsGeneralCmd& by, EmsGeneralCmd& cmd);
    /// Says what `cmd` lacks.
    void ReportBadCommand(const EmsGeneralCmd& cmd, const std::string& what);
    /// Ends the process: nothing more is read, and what is queued is skipped.
    void Quit(int status);
    /// Hands a job to the worker threads. What it throws counts as a failed command.
    void Submit(const std::string& name, std::function<void()> job);
    /// Has something done when all commands and jobs are done; what is asked for last comes first.
    void AtEnd(std::function<void()> action);
    WorkerPool& Workers() { return m_Workers; }

private:
    /// Where a command was read: the path of the script, and the line as messages have it. It goes
    /// through the queue as the command's last pair.
    using Position = NSQN_EMSUTIL_AGENT::EmsNameAndValueStringTypePair;

    enum class Delivery { Queued, AtOnce };

    void ReadAll(const std::vector<std::string>& scripts, Delivery delivery);
    bool ReadScript(LineReader& reader, Delivery delivery, const std::string& askedBy = "");
    bool ReadLine(const LineReader& reader, Delivery delivery, EmsGeneralCmd& cmd);
    void Deliver(EmsGeneralCmd& cmd, const Position& position, Delivery delivery);
    void DrainUntilRead();
    void Announce(bool& news);
    bool MayNest(const EmsGeneralCmd& by);
    std::string Where(const EmsGeneralCmd& cmd) const;
    void FlushResults();
    template <class Body>
    bool Completes(Body body);
    void ShowProgress();
    void Stop();

    const HostOptions m_Options;
    const std::chrono::steady_clock::time_point m_Start = std::chrono::steady_clock::now();
    Tally m_Tally;
    Interrupt m_Interrupt;
    std::atomic<bool> m_bStopped = false;

    // Of the main thread.
    int m_nQuitStatus = 0;
    std::list<Position> m_Running; // the commands that run, one inside another
    std::vector<std::function<void()>> m_AtEnd;

    std::mutex m_NewsMutex; // guards the following
    std::condition_variable m_News;
    bool m_bAdded = false;
    bool m_bAllRead = false;

    WorkerPool m_Workers; // destroyed first: its jobs use the others
};

} // namespace emshost

#endif
