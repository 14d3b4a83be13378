#include "host/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

int CreateEvent()
{
    const int descriptor = ::eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return descriptor;
}

/// A named pipe is opened without waiting for a writer; the wait for input then does that.
int Open(const std::string& path)
{
    return path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

} // namespace

Interrupt::Interrupt(std::stop_token stop)
    : m_nDescriptor(CreateEvent()), m_Raise(std::in_place, std::move(stop), Raise{m_nDescriptor})
{}

Interrupt::~Interrupt()
{
    m_Raise.reset(); // waits for a stop that is raising
    ::close(m_nDescriptor);
}

void Interrupt::Raise::operator()() const
{
    ::eventfd_write(descriptor, 1); // stays readable, because nothing reads it
}

Interrupt::Event Interrupt::WaitForInput(int descriptor, int milliseconds) const
{
    pollfd waited[] = {{descriptor, POLLIN, 0}, {m_nDescriptor, POLLIN, 0}};
    const int count = ::poll(waited, 2, milliseconds);
    if (count <= 0) {
        return Event::Nothing;
    }
    return waited[1].revents != 0 ? Event::Stop : Event::Input;
}

LineReader::LineReader(const std::string& path, const Interrupt& interrupt, Source source)
    : m_strPath(path), m_strName(path == "-"    ? "stdin"
                                 : path.empty() ? "\"\""
                                                : path),
      m_Interrupt(interrupt), m_Source(std::move(source)), m_nDescriptor(Open(path)),
      m_nError(m_nDescriptor < 0 ? errno : 0), m_bTerminal(::isatty(m_nDescriptor) == 1),
      m_Buffer(LONGEST_LINE)
{}

LineReader::~LineReader()
{
    if (m_nDescriptor > STDIN_FILENO) {
        ::close(m_nDescriptor);
    }
}

std::string LineReader::Where() const
{
    return m_nError != 0 ? m_strName : m_strName + ':' + std::to_string(m_nLineNumber);
}

LineReader::Result LineReader::Next()
{
    ++m_nLineNumber;
    m_strLine.clear();
    bool isText = true;
    bool isTooLong = false;
    for (bool ended = false; !ended;) {
        if (m_Rest.empty() && !ReadMore()) {
            if (m_nError != 0) {
                m_strError = std::generic_category().message(m_nError);
                return Result::Failed;
            }
            if (m_strLine.empty()) {
                return Result::End;
            }
            break;
        }
        const std::size_t length = std::min(m_Rest.find('\n'), m_Rest.size());
        const std::string_view part = m_Rest.substr(0, length);
        ended = length < m_Rest.size();
        m_Rest.remove_prefix(length + (ended ? 1 : 0));
        isText = isText && IsText(part);
        m_strLine += part;
        if (m_strLine.size() > LONGEST_LINE + BYTE_ORDER_MARK.size() + 1) { // even with a CR
            isTooLong = true;
            m_strLine.resize(1);
        }
    }
    if (m_nLineNumber == 1 && m_strLine.starts_with(BYTE_ORDER_MARK)) {
        m_strLine.erase(0, BYTE_ORDER_MARK.size());
    }
    if (m_strLine.ends_with('\r')) {
        m_strLine.pop_back();
    }
    if (!isText) { // a terminal goes on: what was a slip is not the shell's
        return m_bTerminal ? Result::Bad : Result::Failed;
    }
    if (isTooLong || m_strLine.size() > LONGEST_LINE) {
        m_strError = string_format("line longer than %zu bytes", LONGEST_LINE);
        return Result::Bad;
    }
    return Result::Line;
}

/// A CR is let through: at the end of a line it is part of the line end, elsewhere a character.
bool LineReader::IsText(std::string_view part)
{
    const auto isControl = [](unsigned char byte) {
        return (byte < 0x20 && byte != '\t' && byte != '\r') || byte == 0x7f;
    };
    const auto found = std::find_if(part.begin(), part.end(), isControl);
    if (found != part.end()) {
        m_strError =
            string_format("not a text file (byte 0x%02x)", static_cast<unsigned char>(*found));
    }
    return found == part.end();
}

/// False at the end of the input, or with m_nError set.
bool LineReader::ReadMore()
{
    if (m_nError != 0) {
        return false;
    }
    if (m_Source) {
        m_Rest = m_Source();
        return !m_Rest.empty();
    }
    for (;;) {
        auto event = m_Interrupt.WaitForInput(m_nDescriptor, 0);
        if (event == Interrupt::Event::Nothing) {
            Console::Instance().Flush(); // what is done is seen while the process waits
            event = m_Interrupt.WaitForInput(m_nDescriptor, -1);
        }
        if (event == Interrupt::Event::Stop) {
            return false;
        }
        const ssize_t count = ::read(m_nDescriptor, m_Buffer.data(), m_Buffer.size());
        if (count >= 0) {
            m_Rest = std::string_view(m_Buffer.data(), static_cast<std::size_t>(count));
            return count > 0;
        }
        if (errno != EINTR && errno != EAGAIN) {
            m_nError = errno;
            return false;
        }
    }
}

} // namespace emshost
