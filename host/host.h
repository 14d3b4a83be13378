#ifndef HOST_HOST_H
#define HOST_HOST_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
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

    /// Counts a command. False when it is to be skipped, as the process is to end.
    bool BeginCommand();
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
    WorkerPool& Workers() { return m_Workers; }

private:
    enum class Delivery { Queued, AtOnce };

    void ReadAll(const std::vector<std::string>& scripts, Delivery delivery);
    bool ReadScript(LineReader& reader, Delivery delivery);
    bool ReadLine(const LineReader& reader, Delivery delivery, EmsGeneralCmd& cmd);
    void Deliver(EmsGeneralCmd& cmd, Delivery delivery);
    void DrainUntilRead();
    void Announce(bool& news);
    bool MayNest(const EmsGeneralCmd& by);
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
    int m_nNesting = 0;                    // of commands that run inside another
    const LineReader* m_pReader = nullptr; // where the command that runs now stands, if known

    std::mutex m_NewsMutex; // guards the following
    std::condition_variable m_News;
    bool m_bAdded = false;
    bool m_bAllRead = false;

    WorkerPool m_Workers; // destroyed first: its jobs use the others
};

} // namespace emshost

#endif
