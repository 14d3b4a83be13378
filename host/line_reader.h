#ifndef HOST_LINE_READER_H
#define HOST_LINE_READER_H

#include <cstddef>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace emshost {

constexpr int STOP_CHECK_MS =
    100; // how often a wait for input looks whether the process is to stop

/// Waits at most so long. Returns a positive number if there is input, the end of it or an error, 0
/// if there is none, and a negative number if a signal has ended the wait.
int WaitForInput(int descriptor, int milliseconds);

/// The lines of a script, one at a time, in little memory whatever the script has.
class LineReader
{
public:
    static constexpr std::size_t LONGEST_LINE = 65536;

    /// Returns more of the input, valid until the next call; the empty text at its end.
    using Source = std::function<std::string_view()>;

    enum class Result {
        Line,   ///< Line() is the next line
        Bad,    ///< Error() says what is wrong with the next line; there may be more
        Failed, ///< Error() says why there are no more
        End     ///< there are no more, or the process is to stop
    };

    /// Reads a file or a named pipe, or standard input for "-"; or from the source if there is one.
    /// Next() reports a file that cannot be opened.
    LineReader(const std::string& path, std::stop_token stop, Source source = {});
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    Result Next();

    /// The line without its end, LF or CR LF, and without a byte-order mark before the first line.
    const std::string& Line() const { return m_strLine; }
    const std::string& Error() const { return m_strError; }
    /// "file:line" of the latest line; "file" when the file has failed.
    std::string Where() const;
    const std::string& Path() const { return m_strPath; }

private:
    bool ReadMore();
    void Append(std::string_view part);

    const std::string m_strPath;
    const std::stop_token m_Stop;
    const Source m_Source;
    const int m_nDescriptor;
    int m_nError; // of the system
    const bool m_bTerminal;
    std::vector<char> m_Buffer;
    std::string_view m_Rest; // what is read and not yet part of a line
    std::size_t m_nLineNumber = 0;
    std::string m_strLine;
    std::string m_strError;
};

} // namespace emshost

#endif
