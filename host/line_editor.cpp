#include "host/line_editor.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <utility>

#include <histedit.h>
#include <unistd.h>

#include "host/console.h"
#include "host/line_reader.h"

namespace emshost {

namespace {

constexpr int MOST_LINES = 1000;
constexpr int BEFORE_REDRAW_MS = 100;

} // namespace

struct LineEditor::State
{
    const Interrupt& interrupt;
    const std::vector<std::string> words;
    EditLine* const editor = el_init("emshost", stdin, stdout, stderr);
    History* const lines = history_init();
    HistEvent event = {};
    std::string line = {};
};

namespace {

LineEditor::State& StateOf(EditLine* editor)
{
    void* state = nullptr;
    el_get(editor, EL_CLIENTDATA, &state);
    return *static_cast<LineEditor::State*>(state);
}

/// Redraws the prompt when another thread has printed.
int ReadCharacter(EditLine* editor, wchar_t* character)
{
    mbstate_t partial = {};
    for (;;) {
        const auto event = StateOf(editor).interrupt.WaitForInput(STDIN_FILENO, BEFORE_REDRAW_MS);
        if (event == Interrupt::Event::Stop) {
            return 0;
        }
        if (event == Interrupt::Event::Nothing) {
            if (Console::Instance().HasWritten()) {
                el_wset(editor, EL_REFRESH);
            }
            continue;
        }
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count <= 0) {
            return static_cast<int>(count);
        }
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is the caller's
        const std::size_t length = std::mbrtowc(character, &byte, 1, &partial);
        if (length <= 1) {
            return 1;
        }
        if (length == static_cast<std::size_t>(-1)) { // no character: begin again with the next
            partial = {};
        }
    }
}

/// Completes a command's name as far as all candidates agree, and lists them when that is no more
/// than what is typed.
unsigned char Complete(EditLine* editor, int)
{
    const LineInfo* const info = el_line(editor);
    std::string typed(info->buffer, info->cursor);
    typed.erase(0, typed.starts_with("help ") ? 5 : 0);
    std::string list;
    std::string common;
    for (const std::string& word : StateOf(editor).words) {
        if (word.starts_with(typed)) {
            if (list.empty()) {
                common = word;
                common += ' ';
            }
            const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end());
            common.erase(list.empty() ? common.end() : end.first, common.end());
            list += word + "  ";
        }
    }
    if (common.size() > typed.size()) {
        el_insertstr(editor, common.c_str() + typed.size());
        return CC_REFRESH;
    }
    if (list.empty()) {
        return CC_REFRESH_BEEP;
    }
    Console::Instance().Print(list);
    return CC_NORM;
}

const char* Prompt(EditLine*)
{
    return "emshost> ";
}

} // namespace

LineEditor::LineEditor(const Interrupt& interrupt, std::vector<std::string> words)
    : m_pState(new State{interrupt, std::move(words)})
{
    std::setlocale(LC_CTYPE, "C.UTF-8"); // NOLINT(concurrency-mt-unsafe): before threads start
    EditLine* const editor = m_pState->editor;
    if (editor == nullptr || m_pState->lines == nullptr) {
        throw std::runtime_error("the terminal cannot be used");
    }
    history(m_pState->lines, &m_pState->event, H_SETSIZE, MOST_LINES);
    history(m_pState->lines, &m_pState->event, H_SETUNIQUE, 1);
    el_set(editor, EL_CLIENTDATA, m_pState.get());
    el_set(editor, EL_PROMPT, Prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, m_pState->lines);
    el_set(editor, EL_GETCFN, ReadCharacter);
    el_set(editor, EL_ADDFN, "complete", "Complete a command", Complete);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor()
{
    history_end(m_pState->lines);
    el_end(m_pState->editor);
}

const std::string& LineEditor::Read()
{
    int length = 0;
    Console::Instance().SetPrompt(true);
    const char* const line = el_gets(m_pState->editor, &length);
    Console::Instance().SetPrompt(false);
    m_pState->line.assign(line == nullptr ? "" : line);
    if (m_pState->line.empty()) {
        Console::Instance().Print(""); // the shell's prompt begins a line
    } else {
        history(m_pState->lines, &m_pState->event, H_ENTER, line);
    }
    return m_pState->line;
}

} // namespace emshost
