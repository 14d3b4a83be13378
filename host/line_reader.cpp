#include "host/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "emsutil/diagnostics.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

} // namespace

Interrupt::Interrupt() : m_nDescriptor(::eventfd(0, EFD_CLOEXEC))
{
    if (m_nDescriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

Interrupt::~Interrupt()
{
    ::close(m_nDescriptor);
}

void Interrupt::Raise()
{
    // Cannot fail before 2^64 calls; nobody reads the count, so it stays raised.
    ::eventfd_write(m_nDescriptor, 1);
}

// Not blocking, so that the opening of a named pipe does not wait for its writer beyond the reach
// of the interrupt.
LineReader::LineReader(const std::string& path, const Interrupt& interrupt, BeforeWait beforeWait)
    : m_strPath(path), m_strName(path.empty() ? "\"\"" : path),
      m_nInterrupt(interrupt.Descriptor()), m_BeforeWait(std::move(beforeWait)),
      m_nDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)),
      m_nOpenError(m_nDescriptor < 0 ? errno : 0), m_Buffer(2 * LONGEST_LINE)
{}

LineReader::LineReader(const Interrupt& interrupt, BeforeWait beforeWait)
    : m_strName("stdin"), m_nInterrupt(interrupt.Descriptor()), m_BeforeWait(std::move(beforeWait)),
      m_nDescriptor(STDIN_FILENO), m_Buffer(2 * LONGEST_LINE)
{}

LineReader::~LineReader()
{
    if (m_nDescriptor > STDIN_FILENO) {
        ::close(m_nDescriptor);
    }
}

std::string LineReader::Where() const
{
    return m_strName + ':' + std::to_string(m_nLineNumber);
}

LineReader::Result LineReader::Next()
{
    if (m_nOpenError != 0) {
        m_strError = m_strName + ": " + std::generic_category().message(m_nOpenError);
        return Result::Failed;
    }
    if (m_bInLongLine) {
        if (const Result result = SkipToLineEnd(); result != Result::Line) {
            return result;
        }
    }
    ++m_nLineNumber;
    for (std::size_t searched = 0;;) {
        const char* const begin = m_Buffer.data() + m_nBegin;
        const std::size_t size = m_nEnd - m_nBegin;
        if (const void* found = std::memchr(begin + searched, '\n', size - searched)) {
            return Take(static_cast<std::size_t>(static_cast<const char*>(found) - begin), 1);
        }
        // Too long even with a byte-order mark and a CR: hand it over as it is, to be refused.
        if (size >= BYTE_ORDER_MARK.size() + LONGEST_LINE + 2) {
            m_bInLongLine = true;
            return Take(size, 0);
        }
        searched = size;
        const Result result = ReadMore();
        if (result == Result::End && size > 0) {
            return Take(size, 0);
        }
        if (result != Result::Line) {
            return result;
        }
    }
}

LineReader::Result LineReader::Take(std::size_t length, std::size_t lineEnd)
{
    m_Line = std::string_view(m_Buffer.data() + m_nBegin, length);
    m_nBegin += length + lineEnd;
    if (!IsText(m_Line)) {
        return Result::Failed;
    }
    if (m_nLineNumber == 1 && m_Line.starts_with(BYTE_ORDER_MARK)) {
        m_Line.remove_prefix(BYTE_ORDER_MARK.size());
    }
    if (m_Line.ends_with('\r')) {
        m_Line.remove_suffix(1);
    }
    if (m_Line.size() > LONGEST_LINE) {
        m_strError = string_format("%s: line longer than %zu bytes", Where().c_str(), LONGEST_LINE);
        return Result::BadLine;
    }
    return Result::Line;
}

/// Line when the long line is behind us.
LineReader::Result LineReader::SkipToLineEnd()
{
    for (;;) {
        const std::string_view rest(m_Buffer.data() + m_nBegin, m_nEnd - m_nBegin);
        const std::size_t length = std::min(rest.find('\n'), rest.size());
        if (!IsText(rest.substr(0, length))) {
            return Result::Failed;
        }
        if (length < rest.size()) {
            m_nBegin += length + 1;
            m_bInLongLine = false;
            return Result::Line;
        }
        m_nBegin = m_nEnd;
        if (const Result result = ReadMore(); result != Result::Line) {
            return result;
        }
    }
}

bool LineReader::IsText(std::string_view part)
{
    for (std::size_t index = 0; index < part.size(); ++index) {
        const auto byte = static_cast<unsigned char>(part[index]);
        const bool allowed = byte == '\t' || (byte == '\r' && index + 1 == part.size());
        if ((byte < 0x20 && !allowed) || byte == 0x7f) {
            m_strError = string_format("%s: not a text file (byte 0x%02x)", Where().c_str(), byte);
            return false;
        }
    }
    return true;
}

LineReader::Result LineReader::ReadMore()
{
    std::memmove(m_Buffer.data(), m_Buffer.data() + m_nBegin, m_nEnd - m_nBegin);
    m_nEnd -= m_nBegin;
    m_nBegin = 0;
    for (;;) {
        pollfd waited[] = {{m_nDescriptor, POLLIN, 0}, {m_nInterrupt, POLLIN, 0}};
        ssize_t count = ::poll(waited, 2, 0);
        if (count == 0) {
            if (m_BeforeWait) {
                m_BeforeWait();
            }
            count = ::poll(waited, 2, -1);
        }
        if (count > 0) {
            if (waited[1].revents != 0) {
                return Result::Interrupted;
            }
            count = ::read(m_nDescriptor, m_Buffer.data() + m_nEnd, m_Buffer.size() - m_nEnd);
        }
        if (count >= 0) {
            m_nEnd += static_cast<std::size_t>(count);
            return count > 0 ? Result::Line : Result::End;
        }
        if (errno != EINTR && errno != EAGAIN) {
            m_strError = m_strName + ": " + std::generic_category().message(errno);
            return Result::Failed;
        }
    }
}

} // namespace emshost
