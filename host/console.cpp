#include "host/console.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <unistd.h>

namespace emshost {

namespace {

using namespace std::chrono_literals;

constexpr auto BEFORE_FIRST_PROGRESS = 1s;
constexpr auto BETWEEN_PROGRESS = 200ms;

bool WriteLine(std::FILE* stream, std::string_view line)
{
    return std::fwrite(line.data(), 1, line.size(), stream) == line.size() &&
           (line.ends_with('\n') || std::fputc('\n', stream) != EOF);
}

} // namespace

Console& Console::Instance()
{
    static Console* const console = new Console;
    return *console;
}

Console::Console()
    : m_bOutputOnTerminal(::isatty(STDOUT_FILENO) == 1),
      m_bErrorOnTerminal(::isatty(STDERR_FILENO) == 1),
      m_nNextProgress((Clock::now() + BEFORE_FIRST_PROGRESS).time_since_epoch().count())
{}

void Console::Print(std::string_view line)
{
    const std::lock_guard guard(m_Mutex);
    if (m_bOutputLost) {
        return;
    }
    if (m_bOutputOnTerminal) {
        Erase();
    }
    if (!WriteLine(stdout, line)) {
        LoseOutput();
    }
}

void Console::Message(std::string_view line)
{
    const std::lock_guard guard(m_Mutex);
    Erase();
    WriteLine(stderr, line);
}

void Console::Progress(const std::function<std::string()>& text)
{
    if (!m_bErrorOnTerminal) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (IsTooEarly(now)) {
        return;
    }
    const std::lock_guard guard(m_Mutex);
    if (IsTooEarly(now)) { // another thread came first
        return;
    }
    m_nNextProgress = (now + BETWEEN_PROGRESS).time_since_epoch().count();
    m_bProgressShown = true;
    std::fprintf(stderr, "\r%s", text().c_str());
}

void Console::Flush()
{
    const std::lock_guard guard(m_Mutex);
    Erase();
    if (!m_bOutputLost && std::fflush(stdout) != 0) {
        LoseOutput();
    }
}

bool Console::IsTooEarly(Clock::time_point now) const
{
    return now.time_since_epoch().count() < m_nNextProgress;
}

/// With the lock held.
void Console::Erase()
{
    if (m_bProgressShown) {
        std::fputs("\r\033[K", stderr);
        m_bProgressShown = false;
    }
}

/// With the lock held, at once after the write that failed.
void Console::LoseOutput()
{
    const std::string reason = std::generic_category().message(errno);
    m_bOutputLost = true;
    Erase();
    WriteLine(stderr, "emshost: standard output: " + reason);
}

} // namespace emshost
