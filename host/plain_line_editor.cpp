// In place of line_editor.cpp where libedit is absent.

#include <array>

#include <unistd.h>

#include "host/line_editor.h"
#include "host/line_reader.h"

namespace emshost {

struct LineEditor::State
{
    const Interrupt& interrupt;
    std::string line;
};

LineEditor::LineEditor(const Interrupt& interrupt, std::vector<std::string>)
    : m_pState(new State{interrupt, ""})
{}

LineEditor::~LineEditor() = default;

const std::string& LineEditor::Read()
{
    std::array<char, 4096> buffer = {};
    m_pState->line.clear();
    if (::write(STDOUT_FILENO, "emshost> ", 9) == 9 &&
        m_pState->interrupt.WaitForInput(STDIN_FILENO, -1) == Interrupt::Event::Input) {
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        m_pState->line.assign(buffer.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    }
    return m_pState->line;
}

} // namespace emshost
