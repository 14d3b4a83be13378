#include "host/console.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace emshost {

namespace {

constexpr std::size_t MOST_PENDING = 65536; // bytes

} // namespace

Console& Console::Instance()
{
    static Console* const console = new Console;
    return *console;
}

void Console::Print(std::string_view line)
{
    static const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    const std::lock_guard guard(m_Mutex);
    Add(m_Output, line);
    if (terminal || m_Output.pending.size() >= MOST_PENDING) {
        Write(m_Output);
    }
}

void Console::Message(std::string_view line)
{
    const std::lock_guard guard(m_Mutex);
    Write(m_Output);
    Add(m_Error, line);
    Write(m_Error);
}

void Console::DebugLine(std::string_view line)
{
    const std::lock_guard guard(m_Mutex);
    if (m_Debug.descriptor == STDERR_FILENO) {
        Write(m_Output);
    }
    Add(m_Debug, line);
    Write(m_Debug);
}

void Console::Flush()
{
    const std::lock_guard guard(m_Mutex);
    Write(m_Output);
}

void Console::SetPrompt(bool isShown)
{
    const std::lock_guard guard(m_Mutex);
    m_bPrompt = isShown;
    m_bWritten = false;
}

bool Console::HasWritten()
{
    const std::lock_guard guard(m_Mutex);
    return std::exchange(m_bWritten, false);
}

void Console::OpenDebugFile(const std::string& path)
{
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666); // NOLINT
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    m_Debug.descriptor = descriptor;
    m_Debug.name = path;
}

void Console::Add(Stream& stream, std::string_view line)
{
    if (m_bPrompt) {
        stream.pending += "\r\033[K";
        m_bWritten = true;
    }
    stream.pending += line;
    if (!line.ends_with('\n')) {
        stream.pending += '\n';
    }
}

void Console::Write(Stream& stream)
{
    std::string_view rest = stream.pending;
    while (!rest.empty() && !stream.lost) {
        const ssize_t count = ::write(stream.descriptor, rest.data(), rest.size());
        if (count >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            stream.lost = true;
            Add(m_Error, "emshost: " + stream.name + ": " + std::generic_category().message(errno));
        }
    }
    stream.pending.clear();
    if (&stream != &m_Error) {
        Write(m_Error);
    }
}

} // namespace emshost
