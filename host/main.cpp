#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <emsstandin/setup.h>

#include "host/console.h"
#include "host/host.h"
#include "host/soak.h"

namespace {

constexpr int WRONG_USE = 2;
constexpr int ENDED_BY_SIGNAL = 128; // plus its number
constexpr int MOST_WORKERS = 64;
constexpr int SHORTEST_SOAK = 4; // seconds: at least one sample in each part of it
constexpr int LONGEST_SOAK = 7 * 24 * 60 * 60;

std::atomic<int> g_nSignal = 0;

/// A standard descriptor that is closed at the start would be used again for something else. What
/// stands in for it cannot be written, so that results are not lost silently.
void OpenStandardDescriptors()
{
    int descriptor = ::open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = ::open("/dev/null", O_RDONLY);
    }
    ::close(descriptor);
}

/// The first SIGINT, SIGTERM or SIGHUP stops the process in order, a second one at once. A signal
/// that the parent has made ignored stays so. Others show the prompt again: the terminal has
/// another size, or the process goes on after a stop. Called before other threads are created,
/// which inherit the mask.
void HandleSignals(std::stop_source stop)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT}) {
        struct sigaction action = {};
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&signals, number);
        }
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, stop = std::move(stop)]() mutable {
        int number = 0;
        while (sigwait(&signals, &number) != 0 || number == SIGWINCH || number == SIGCONT) {
            emshost::LosePrompt();
        }
        g_nSignal = number;
        ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        if (::isatty(STDERR_FILENO) == 1) {
            // Ends the line of a prompt, or in which the terminal shows ^C. Message() may wait for
            // the reader of the standard output.
            std::fputs("\n", stderr);
        }
        stop.request_stop();
        for (;;) {
            ::pause();
        }
    }).detach();
    ::signal(SIGPIPE, SIG_IGN); // the write then fails with EPIPE
    ::signal(SIGXFSZ, SIG_IGN); // and with EFBIG
}

int Run(int argc, char** argv)
{
    emshost::HostOptions options;
    std::vector<std::string> scripts = {"-"};
    std::string debugFile;
    int soakSeconds = 0;

    CLI::App app("Reads commands from scripts, or from standard input, and the library runs them.\n"
                 "The command \"help\" lists the commands.",
                 "emshost");
    app.set_version_flag("--version", "emshost " EMSHOST_VERSION);
    app.footer(
        "The exit status is 0, or that of the command quit; 1 when a script could not be read in\n"
        "whole, a line or a command was wrong, output was lost, or a soak found a fault; 2 for\n"
        "wrong use; 128 + n when the signal n ended the process.");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "emshost: " + CLI::FailureMessage::simple(failed, error);
    });
    app.add_option("SCRIPT", scripts, "Files with one command per line; - is standard input")
        ->type_name("");
    app.add_flag("--strict", options.strict, "Stop at the first error");
    app.add_flag("--json", options.json,
                 "Print threads, overdue, log-list and the summary as lines of JSON");
    app.add_option("--workers", options.workers, "The number of worker threads, 2 unless set")
        ->check(CLI::Range(1, MOST_WORKERS))
        ->type_name("N");
    app.add_option("--debug-file", debugFile, "Append debug lines to FILE, not to standard error")
        ->type_name("FILE");
    app.add_option_function<std::string>("--install-path", emsstandin::SetInstallPath,
                                         "The install path of the platform")
        ->type_name("DIR");
    app.add_option_function<std::string>("--process-name", emsstandin::SetProcessName,
                                         "The name of the process")
        ->type_name("NAME");
    app.add_option_function<std::string>("--config", emsstandin::SetConfigFile,
                                         "The configuration file of the platform")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    app.add_option("--soak", soakSeconds,
                   "Run no script, but load all services for SECONDS, at least 4, and report\n"
                   "whether all totals are exact and memory, descriptors and threads flat")
        ->check(CLI::Range(SHORTEST_SOAK, LONGEST_SOAK))
        ->type_name("SECONDS");
    try {
        app.parse(argc, argv);
        for (const char* unused :
             {"SCRIPT", "--strict", "--json", "--workers", "--debug-file", "--install-path"}) {
            if (soakSeconds > 0 && app.count(unused) > 0) {
                throw CLI::ExcludesError(unused, "--soak");
            }
        }
    } catch (const CLI::ParseError& error) {
        const bool isHelp = app.exit(error) == 0;
        return !isHelp ? WRONG_USE : std::cout.flush() ? 0 : 1;
    }

    if (app.count("--debug-file") > 0 && !emshost::OpenDebugFile(debugFile)) {
        return WRONG_USE;
    }
    // For the line editor. NOLINTNEXTLINE(concurrency-mt-unsafe): before threads start
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::stop_source stop;
    emshost::StopWhenLost(stop);
    HandleSignals(stop);
    emsstandin::SetDebugCallback(
        [](emsstandin::DebugOperation, int, const std::string& text) { emshost::DebugLine(text); });
    const int status = soakSeconds > 0
                           ? emshost::Soak(std::chrono::seconds(soakSeconds), stop.get_token())
                           : emshost::Host(options, stop).Run(scripts);
    return g_nSignal == 0 ? status : ENDED_BY_SIGNAL + g_nSignal;
}

} // namespace

int main(int argc, char** argv)
{
    OpenStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        emshost::Message(std::string("emshost: ") + failure.what());
        return 1;
    }
}
