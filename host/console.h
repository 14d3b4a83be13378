#ifndef HOST_CONSOLE_H
#define HOST_CONSOLE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace emshost {

/// What the process writes: results on standard output, messages and its progress on standard
/// error. Any thread may call it. The one instance is never destroyed, so that a debug line may
/// still be written while the process ends.
class Console
{
public:
    static Console& Instance();

    /// Writes a line of results. It reaches a pipe or a file at the latest with Flush(). Once a
    /// line could not be written, a message has said why and no more are.
    void Print(std::string_view line);
    /// Writes a message at once. A line end at its end is added where there is none.
    void Message(std::string_view line);
    /// Shows how far the process is: on a terminal only, from one second on, not too often. The
    /// text is asked for when it is shown.
    void Progress(const std::function<std::string()>& text);
    /// Takes the progress away and writes out all results.
    void Flush();
    /// Whether results have been lost.
    bool IsOutputLost() const { return m_bOutputLost; }

private:
    using Clock = std::chrono::steady_clock;

    Console();
    bool IsTooEarly(Clock::time_point now) const;
    void Erase();
    void LoseOutput();

    const bool m_bOutputOnTerminal;
    const bool m_bErrorOnTerminal;
    std::atomic<Clock::rep> m_nNextProgress;
    std::atomic<bool> m_bOutputLost = false;
    std::mutex m_Mutex; // one line at a time; guards the next
    bool m_bProgressShown = false;
};

} // namespace emshost

#endif
