#ifndef HOST_LINE_EDITOR_H
#define HOST_LINE_EDITOR_H

#include <memory>
#include <string>
#include <vector>

namespace emshost {

class Interrupt;

/// A prompt on the terminal, where a person can edit the line, go back to earlier ones, and
/// complete the name of a command. Left out where libedit is absent.
class LineEditor
{
public:
    /// Throws std::runtime_error when the terminal cannot be used.
    LineEditor(const Interrupt& interrupt, std::vector<std::string> words);
    ~LineEditor();

    /// Waits for a line and returns it with its line end, valid until the next call; the empty text
    /// at the end of the input or when the process is to stop.
    const std::string& Read();

    struct State;

private:
    const std::unique_ptr<State> m_pState;
};

} // namespace emshost

#endif
