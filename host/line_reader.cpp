#include "host/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "emsutil/diagnostics.h"
#include "host/console.h"

namespace emshost {

using NSQN_EMSUTIL_AGENT::string_format;

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";

/// A named pipe is opened without waiting for a writer; the wait for input then does that.
int Open(const std::string& path)
{
    return path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
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

LineReader::LineReader(const std::string& path, std::stop_token stop, Source source)
    : m_strPath(path), m_Stop(std::move(stop)), m_Source(std::move(source)),
      m_nDescriptor(Open(path)), m_nError(m_nDescriptor < 0 ? errno : 0),
      m_bTerminal(::isatty(m_nDescriptor) == 1), m_Buffer(LONGEST_LINE)
{}

LineReader::~LineReader()
{
    if (m_nDescriptor > STDIN_FILENO) {
        ::close(m_nDescriptor);
    }
}

std::string LineReader::Where() const
{
    const std::string name = m_strPath == "-" ? "stdin" : m_strPath.empty() ? "\"\"" : m_strPath;
    return m_nError != 0 ? name : name + ':' + std::to_string(m_nLineNumber);
}

LineReader::Result LineReader::Next()
{
    ++m_nLineNumber;
    m_strLine.clear();
    m_strError.clear();
    bool hasBegun = false;
    // A terminal goes on after an error: what was a slip is not the shell's.
    const auto goesOn = [this] { return m_strError.empty() || m_bTerminal; };
    for (bool hasEnded = false; !hasEnded && goesOn() && (!m_Rest.empty() || ReadMore());) {
        const std::size_t length = std::min(m_Rest.find('\n'), m_Rest.size());
        hasBegun = true;
        hasEnded = length < m_Rest.size();
        Append(m_Rest.substr(0, length));
        m_Rest.remove_prefix(length + (hasEnded ? 1 : 0));
    }
    if (m_nError != 0) {
        m_strError = std::generic_category().message(m_nError);
        return Result::Failed;
    }
    if (!hasBegun) {
        return Result::End;
    }
    if (!m_strError.empty()) {
        return goesOn() ? Result::Bad : Result::Failed;
    }
    if (m_nLineNumber == 1 && m_strLine.starts_with(BYTE_ORDER_MARK)) {
        m_strLine.erase(0, BYTE_ORDER_MARK.size());
    }
    if (m_strLine.ends_with('\r')) {
        m_strLine.pop_back();
    }
    if (m_strLine.size() > LONGEST_LINE) {
        m_strError = string_format("line longer than %zu bytes", LONGEST_LINE);
        return Result::Bad;
    }
    return Result::Line;
}

/// Keeps no more of a line that is too long than shows that it is.
void LineReader::Append(std::string_view part)
{
    const auto control = std::find_if(part.begin(), part.end(), IsControl);
    if (control != part.end()) {
        m_strError =
            string_format("not a text file (byte 0x%02x)", static_cast<unsigned char>(*control));
    }
    if (m_strLine.size() <= LONGEST_LINE + BYTE_ORDER_MARK.size() + 1) { // one more for a CR
        m_strLine += part;
    }
}

/// False at the end of the input, when the process is to stop, or with m_nError set.
bool LineReader::ReadMore()
{
    if (m_Source) {
        m_Rest = m_Source();
        return !m_Rest.empty();
    }
    while (m_nError == 0) {
        if (WaitForInput(m_nDescriptor, 0) <= 0) {
            Flush(); // what is done is seen while the process waits
        }
        while (!m_Stop.stop_requested() && WaitForInput(m_nDescriptor, STOP_CHECK_MS) <= 0) {
        }
        if (m_Stop.stop_requested()) {
            return false;
        }
        const ssize_t count = ::read(m_nDescriptor, m_Buffer.data(), m_Buffer.size());
        if (count >= 0) {
            m_Rest = std::string_view(m_Buffer.data(), static_cast<std::size_t>(count));
            return count > 0;
        }
        m_nError = errno == EAGAIN ? 0 : errno;
    }
    return false;
}

} // namespace emshost
