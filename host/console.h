#ifndef HOST_CONSOLE_H
#define HOST_CONSOLE_H

/// What the process writes, in whole lines: results to standard output, messages to standard error,
/// debug lines there or to a file. A line end is added where there is none. Any thread may call
/// these functions, until the process has ended.

#include <stop_token>
#include <string>
#include <string_view>

namespace emshost {

/// Adds a line to the results. A terminal shows it at once, a pipe or a file at the latest after
/// Flush(). If a line cannot be written, a message says why, no more results are written, and the
/// stop of StopWhenLost() is requested.
void Print(std::string_view line);
void Flush();
/// Sets the stop that is requested when a result cannot be written. Must be called before other
/// threads call these functions.
void StopWhenLost(std::stop_source stop);

/// Writes all results, and then a message.
void Message(std::string_view line);

/// Opens a file, to which all later debug lines are appended. Returns false, with a message, when
/// it cannot be opened.
bool OpenDebugFile(const std::string& path);
void DebugLine(std::string_view line);

/// Whether a result, a message or a debug line could not be written.
bool IsAnyLost();

/// While a prompt is shown, lines are written in its place.
void SetPrompt(bool isShown);
/// Says that the prompt must be shown again. Does not wait, unlike the functions above.
void LosePrompt();
/// Whether a prompt that is shown must be shown again: once after it was lost.
bool IsPromptLost();

} // namespace emshost

#endif
