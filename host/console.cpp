#include "host/console.h"

#include <cinttypes>
#include <cstdio>

#include <unistd.h>

namespace emshost {

namespace {

using namespace std::chrono_literals;

constexpr auto BEFORE_FIRST_PROGRESS = 1s;
constexpr auto BETWEEN_PROGRESS = 200ms;

void WriteLine(std::FILE* stream, std::string_view line)
{
    std::fwrite(line.data(), 1, line.size(), stream);
    if (!line.ends_with('\n')) {
        std::fputc('\n', stream);
    }
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
    if (m_bOutputOnTerminal) {
        Erase();
    }
    WriteLine(stdout, line);
}

void Console::Message(std::string_view line)
{
    const std::lock_guard guard(m_Mutex);
    Erase();
    WriteLine(stderr, line);
}

void Console::Progress(std::uint64_t read, std::uint64_t run)
{
    if (!m_bErrorOnTerminal) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now.time_since_epoch().count() < m_nNextProgress) {
        return;
    }
    const std::lock_guard guard(m_Mutex);
    m_nNextProgress = (now + BETWEEN_PROGRESS).time_since_epoch().count();
    m_bProgressShown = true;
    std::fprintf(stderr, "\r%" PRIu64 " read, %" PRIu64 " run", read, run);
}

bool Console::Flush()
{
    const std::lock_guard guard(m_Mutex);
    Erase();
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

/// With the lock held.
void Console::Erase()
{
    if (m_bProgressShown) {
        std::fputs("\r\033[K", stderr);
        m_bProgressShown = false;
    }
}

} // namespace emshost
