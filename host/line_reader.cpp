#include "host/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/command_parser.h"
#include "host/console.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

constexpr std::size_t LONGEST_LINE = 65536;
constexpr std::size_t READ_SIZE = 65536;
constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

std::string NameOf(const std::string& path)
{
    return path == "-" ? "stdin" : path.empty() ? "\"\"" : path;
}

/// A named pipe is opened without waiting for a writer; the wait for input then does that.
int Open(const std::string& path)
{
    const int descriptor =
        path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), NameOf(path));
    }
    return descriptor;
}

/// A CR is let through: at the end of a line it is part of the line end, elsewhere a character.
bool IsControl(unsigned char byte)
{
    return (byte < 0x20 && byte != '\t' && byte != '\r') || byte == 0x7f;
}

} // namespace

int WaitForInput(int descriptor, int milliseconds)
{
    pollfd waited = {descriptor, POLLIN, 0};
    return ::poll(&waited, 1, milliseconds);
}

LineReader::LineReader(const std::string& path, std::stop_token stop, bool edited)
    : m_strPath(path), m_Stop(std::move(stop)), m_bEdited(edited), m_nDescriptor(Open(path))
{}

LineReader::~LineReader()
{
    if (m_nDescriptor != STDIN_FILENO) {
        ::close(m_nDescriptor);
    }
}

bool LineReader::IsSameFile(const LineReader& other) const
{
    struct stat files[2] = {};
    return ::fstat(m_nDescriptor, &files[0]) == 0 && ::fstat(other.m_nDescriptor, &files[1]) == 0 &&
           files[0].st_dev == files[1].st_dev && files[0].st_ino == files[1].st_ino;
}

std::string LineReader::Where() const
{
    return NameOf(m_strPath) + ':' + std::to_string(m_nLineNumber);
}

bool LineReader::Next(std::string& line)
{
    ++m_nLineNumber;
    line.clear();
    bool hasEnded = false;
    while (!hasEnded && (!m_Rest.empty() || ReadMore())) {
        const std::string_view part = m_Rest.substr(0, m_Rest.find('\n'));
        hasEnded = part.size() < m_Rest.size();
        m_Rest.remove_prefix(part.size() + (hasEnded ? 1 : 0));
        CheckText(part);
        // No more is kept of a line that is too long than shows that it is: one more for a CR.
        if (line.size() <= LONGEST_LINE + BYTE_ORDER_MARK.size() + 1) {
            line += part;
        }
    }
    if (!hasEnded && (line.empty() || m_Stop.stop_requested())) {
        return false;
    }
    if (m_nLineNumber == 1 && line.starts_with(BYTE_ORDER_MARK)) {
        line.erase(0, BYTE_ORDER_MARK.size());
    }
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    if (line.size() > LONGEST_LINE) {
        throw BadLine(string_format("line longer than %zu bytes", LONGEST_LINE));
    }
    return true;
}

/// What was a slip at a terminal, where a part is a line, does not end the process.
void LineReader::CheckText(std::string_view part) const
{
    const auto control = std::find_if(part.begin(), part.end(), IsControl);
    if (control != part.end()) {
        const std::string wrong =
            string_format("not a text file (byte 0x%02x)", static_cast<unsigned char>(*control));
        if (::isatty(m_nDescriptor) == 1) {
            throw BadLine(wrong);
        }
        throw std::runtime_error(Where() + ": " + wrong);
    }
}

/// Returns false at the end of the input, or when the process is to stop.
bool LineReader::ReadMore()
{
#if EMSHOST_HAS_LINE_EDITOR
    if (m_bEdited) {
        m_strRead = EditLine(m_Stop);
        m_Rest = m_strRead;
        return !m_Rest.empty();
    }
#else
    if (m_bEdited) {
        std::fputs(PROMPT, stdout);
    }
#endif
    if (m_bAtEnd) {
        return false;
    }
    m_strRead.resize(READ_SIZE);
    ssize_t count = 0;
    do {
        for (int wait = 0; !m_Stop.stop_requested() && WaitForInput(m_nDescriptor, wait) <= 0;
             wait = STOP_CHECK_MS) {
            Flush(); // what is done is seen while the process waits
        }
        if (m_Stop.stop_requested()) {
            return false;
        }
        count = ::read(m_nDescriptor, m_strRead.data(), m_strRead.size());
    } while (count < 0 && errno == EAGAIN);
    if (count < 0) {
        throw std::system_error(errno, std::generic_category(), NameOf(m_strPath));
    }
    m_Rest = std::string_view(m_strRead).substr(0, static_cast<std::size_t>(count));
    m_bAtEnd = count == 0;
    return !m_bAtEnd;
}

} // namespace emshost
