#ifndef HOST_LINE_READER_H
#define HOST_LINE_READER_H

#include <cstddef>
#include <stop_token>
#include <string>
#include <string_view>

namespace emshost {

constexpr const char* PROMPT = "emshost> ";

/// How often a wait for input looks whether the process is to stop.
constexpr int STOP_CHECK_MS = 100;

/// Waits at most so long. Returns a positive number if there is input, the end of it or an error, 0
/// if there is none, and a negative number if a signal has ended the wait.
int WaitForInput(int descriptor, int milliseconds);

/// Shows a prompt at the terminal, and returns the line that is typed, with its line end; the empty
/// text at the end of the input, or when the process is to stop. The line can be edited, earlier
/// lines are in a history, and the names of commands are completed. Throws BadLine for a line that
/// is too long to be typed. Only one thread may call it. It exists only with libedit. Without it,
/// LineReader only shows the prompt.
std::string EditLine(const std::stop_token& stop);

/// The lines of a script, one at a time, in little memory whatever the script has.
class LineReader
{
public:
    /// Opens a file or a named pipe, or standard input for "-". Throws std::system_error. With
    /// `edited`, the line editor reads the lines.
    LineReader(const std::string& path, std::stop_token stop, bool edited);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// Reads the next line, without its end, LF or CR LF, and without a byte-order mark before the
    /// first line. Returns false if there are no more, or when the process is to stop. Throws
    /// BadLine for one that is too long, and another exception when no more can be read.
    bool Next(std::string& line);

    /// Pipes and terminals are compared, too.
    bool IsSameFile(const LineReader& other) const;
    /// The path that was opened, or "-".
    const std::string& Path() const { return m_strPath; }
    /// "file:line" of the latest line.
    std::string Where() const;

private:
    bool ReadMore();
    void CheckText(std::string_view part) const;

    const std::string m_strPath;
    const std::stop_token m_Stop;
    const bool m_bEdited;
    const int m_nDescriptor;
    std::string m_strRead;
    std::string_view m_Rest; // what is read and not yet part of a line
    bool m_bAtEnd = false;   // a terminal would be read again
    std::size_t m_nLineNumber = 0;
};

} // namespace emshost

#endif
