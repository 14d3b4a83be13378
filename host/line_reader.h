#ifndef HOST_LINE_READER_H
#define HOST_LINE_READER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace emshost {

/// Ends the reads of one process: once raised, every LineReader that has it stops at once, also one
/// that waits for input. Any thread may raise it.
class Interrupt
{
public:
    /// Throws std::system_error when the process has no descriptor left.
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    void Raise();
    int Descriptor() const { return m_nDescriptor; }

private:
    int m_nDescriptor;
};

/// The lines of a script, one at a time, in the memory of one buffer whatever the script holds.
class LineReader
{
public:
    static constexpr std::size_t LONGEST_LINE = 65536;

    enum class Result {
        Line,        ///< Line() is the next line
        BadLine,     ///< Error() tells what is wrong with the next line; there may be more
        End,         ///< there is no more
        Failed,      ///< Error() tells why there is no more
        Interrupted, ///< the interrupt has been raised
    };

    /// Called each time before a reader waits for input. May be empty.
    using BeforeWait = std::function<void()>;

    /// Reads a file, or a pipe by its name. That it cannot be opened is told by Next().
    LineReader(const std::string& path, const Interrupt& interrupt, BeforeWait beforeWait);
    /// Reads standard input.
    LineReader(const Interrupt& interrupt, BeforeWait beforeWait);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    Result Next();

    /// Without its line end, which is LF or CR LF, and without a byte-order mark before the first;
    /// valid until the following Next().
    std::string_view Line() const { return m_Line; }
    /// A whole message, with the file, and the line where there is one.
    const std::string& Error() const { return m_strError; }
    /// "file:line" of the line that Next() gave last.
    std::string Where() const;
    /// The path of the file; empty for standard input.
    const std::string& Path() const { return m_strPath; }

private:
    // Line stands for "go on" in the results of the last two.
    bool IsText(std::string_view part);
    Result Take(std::size_t length, std::size_t lineEnd);
    Result SkipToLineEnd();
    Result ReadMore();

    const std::string m_strPath;
    const std::string m_strName; // for messages
    const int m_nInterrupt;
    const BeforeWait m_BeforeWait;
    const int m_nDescriptor;
    int m_nOpenError = 0;
    std::vector<char> m_Buffer;
    std::size_t m_nBegin = 0; // of what is read and not yet handed out
    std::size_t m_nEnd = 0;
    std::size_t m_nLineNumber = 0;
    bool m_bInLongLine = false;
    std::string_view m_Line;
    std::string m_strError;
};

} // namespace emshost

#endif
