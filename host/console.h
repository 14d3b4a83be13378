#ifndef HOST_CONSOLE_H
#define HOST_CONSOLE_H

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

namespace emshost {

/// What the process writes, in whole lines: results to standard output, messages to standard error,
/// debug lines there or to a file. A line end is added where there is none. Any thread may call it.
/// The one instance is never destroyed, because debug lines may come until the process has ended.
class Console
{
public:
    static Console& Instance();

    /// Adds a line to the results. A terminal shows it at once, a pipe or a file at the latest
    /// after Flush(). When a line cannot be written, a message says why, and no more are written.
    void Print(std::string_view line);
    /// Writes all results, and then a message.
    void Message(std::string_view line);
    void Flush();
    bool IsOutputLost() const { return m_Output.lost; }

    /// Makes debug lines be appended to a file. Throws std::system_error when it cannot be opened.
    void OpenDebugFile(const std::string& path);
    void DebugLine(std::string_view line);
    bool IsDebugLost() const { return m_Debug.lost; }

    /// While a prompt is shown, lines are written in its place.
    void SetPrompt(bool isShown);
    /// Whether a line has been written in the place of the prompt, which must be drawn again.
    bool HasWritten();

private:
    struct Stream
    {
        int descriptor;
        std::string name;
        std::string pending;
        std::atomic<bool> lost = false;
    };

    Console() = default;
    // With the lock held.
    void Write(Stream& stream);
    void Add(Stream& stream, std::string_view line);

    std::mutex m_Mutex; // guards the following
    Stream m_Output{1, "standard output", "", {}};
    Stream m_Error{2, "standard error", "", {}};
    Stream m_Debug{2, "standard error", "", {}};
    bool m_bPrompt = false;
    bool m_bWritten = false;
};

} // namespace emshost

#endif
