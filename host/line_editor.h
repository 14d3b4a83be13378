#ifndef HOST_LINE_EDITOR_H
#define HOST_LINE_EDITOR_H

#include <stop_token>
#include <string>

namespace emshost {

/// Shows a prompt at the terminal, and returns the line that is typed, with its line end; the empty
/// text at the end of the input, or when the process is to stop. The line can be edited, earlier
/// lines are in a history, and the names of commands are completed. One thread may call it. Left
/// out where libedit is absent.
std::string EditLine(const std::stop_token& stop);

} // namespace emshost

#endif
