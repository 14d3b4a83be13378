#include "host/line_reader.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include <editline/readline.h>
#include <termios.h>
#include <unistd.h>

#include "host/command.h"
#include "host/command_parser.h"
#include "host/console.h"

namespace emshost {

namespace {

constexpr int MOST_LINES = 1000; // in the history
// libedit writes out of bounds from 1,020 bytes on, and one key may double the line.
constexpr int LONGEST_TYPED = 500;

std::optional<std::string> g_strTyped;

void TakeLine(char* line)
{
    g_strTyped = line == nullptr ? std::string() : line + std::string("\n");
    if (line != nullptr && *line != '\0') {
        add_history(line);
    }
    std::free(line); // NOLINT: the library has allocated it
}

/// libedit calls this with the states 0, 1, 2 and so on until it returns null.
char* NextName(const char* typed, int state)
{
    static std::vector<std::string> names;
    if (state == 0) {
        names = CommandNames();
        std::erase_if(names, [typed](const std::string& name) { return !name.starts_with(typed); });
    }
    const auto index = static_cast<std::size_t>(state);
    return index < names.size() ? ::strdup(names[index].c_str()) : nullptr;
}

/// A command stands at the beginning of a line, or after "help".
char** Complete(const char* typed, int begin, int)
{
    rl_attempted_completion_over = 1; // never the name of a file
    const std::string before(rl_line_buffer, static_cast<std::size_t>(begin));
    return before.empty() || before == "help " ? rl_completion_matches(typed, NextName) : nullptr;
}

} // namespace

std::string EditLine(const std::stop_token& stop)
{
    rl_catch_signals = 0; // libedit's handlers would run on any thread
    rl_attempted_completion_function = Complete;
    stifle_history(MOST_LINES);
    g_strTyped.reset();
    SetPrompt(true);
    rl_callback_handler_install(PROMPT, TakeLine);
    bool isTooLong = false;
    while (!g_strTyped && !isTooLong && !stop.stop_requested() && ::isatty(STDIN_FILENO) == 1) {
        if (WaitForInput(STDIN_FILENO, STOP_CHECK_MS) > 0) {
            rl_callback_read_char();
            isTooLong = !g_strTyped && rl_end > LONGEST_TYPED;
        } else if (IsPromptLost()) {
            rl_deprep_terminal(); // the shell may have changed its modes while this process stopped
            rl_prep_terminal(1);
            rl_resize_terminal();
            std::fputs("\r\033[K", stdout); // clears the old prompt
            rl_forced_update_display();
        }
    }
    while (isTooLong && ::tcflush(STDIN_FILENO, TCIFLUSH) == 0 &&
           WaitForInput(STDIN_FILENO, STOP_CHECK_MS) > 0) { // a paste comes in pieces
    }
    rl_callback_handler_remove();
    SetPrompt(false);
    if (isTooLong) {
        Print("");
        throw BadLine("line longer than " + std::to_string(LONGEST_TYPED) +
                      " bytes at the prompt; it and what follows are dropped");
    }
    std::string line = g_strTyped.value_or("");
    if (line.empty() && !stop.stop_requested()) {
        Print(""); // the shell's prompt begins a line
    }
    return line;
}

} // namespace emshost
