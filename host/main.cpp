#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <emsstandin/setup.h>

#include "host/console.h"
#include "host/host.h"
#include "host/soak/soak.h"

namespace {

constexpr int WRONG_USE = 2;
constexpr int MOST_WORKERS = 64;
constexpr int SHORTEST_SOAK = 4; // seconds: one sample at least in each part of it
constexpr int LONGEST_SOAK = 7 * 24 * 60 * 60;

/// A standard descriptor that came closed would be handed out again for something else. Nothing can
/// be written to what stands in for it, so that results do not get lost silently.
void OpenStandardDescriptors()
{
    int descriptor = ::open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = ::open("/dev/null", O_RDONLY);
    }
    ::close(descriptor);
}

/// Debug lines on standard error keep clear of the progress there.
void WriteDebugLine(emsstandin::DebugOperation, int, const std::string& text)
{
    emshost::Console::Instance().Message(text);
}

int Run(int argc, char** argv)
{
    emshost::HostOptions options;
    std::vector<std::string> scripts;
    std::string debugFile;
    int soakSeconds = 0;

    CLI::App app(
        "Reads commands from scripts, or from standard input, and has the library run them.\n"
        "The command \"help\" lists the commands.",
        "emshost");
    app.set_version_flag("--version", "emshost " EMSHOST_VERSION);
    app.footer(
        "The exit status is 0, or what quit gives; 1 when a script could not be read in whole, a\n"
        "command was wrong, results were lost, or a soak found a fault; 2 for wrong use.");
    app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
        return "emshost: " + CLI::FailureMessage::simple(failed, error);
    });
    app.add_option("SCRIPT", scripts, "Files of commands, one a line")->type_name("");
    app.add_flag("--direct", options.m_bDirect,
                 "Run each command as it is read, without the queue");
    app.add_flag("--strict", options.m_bStrict, "Stop at the first error");
    app.add_option("--workers", options.m_nWorkers, "The number of worker threads, 2 unless set")
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
    CLI::Option* const soak =
        app.add_option("--soak", soakSeconds,
                       "Run no script, but load all services for SECONDS, 4 at least, and tell\n"
                       "whether all totals are exact and memory, descriptors and threads flat")
            ->check(CLI::Range(SHORTEST_SOAK, LONGEST_SOAK))
            ->type_name("SECONDS");
    for (const char* unused :
         {"SCRIPT", "--direct", "--strict", "--workers", "--debug-file", "--install-path"}) {
        soak->excludes(app.get_option(unused));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : WRONG_USE;
    }

    if (soakSeconds > 0) {
        return emshost::Soak(std::chrono::seconds(soakSeconds));
    }
    emsstandin::SetDebugCallback(WriteDebugLine);
    if (!debugFile.empty() && !emsstandin::SetDebugFile(debugFile)) {
        const std::string reason = std::generic_category().message(errno);
        emshost::Console::Instance().Message("emshost: " + debugFile + ": " + reason);
        return WRONG_USE;
    }
    return emshost::Host(options).Run(scripts);
}

} // namespace

int main(int argc, char** argv)
{
    OpenStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        emshost::Console::Instance().Message(std::string("emshost: ") + failure.what());
        return 1;
    }
}
