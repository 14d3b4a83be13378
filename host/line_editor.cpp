#include "host/line_editor.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <histedit.h>
#include <unistd.h>

#include "host/console.h"
#include "host/line_reader.h"

namespace emshost {

namespace {

constexpr int MOST_LINES = 1000;
constexpr int BEFORE_REFRESH_MS = 100;

} // namespace

struct LineEditor::State
{
    const Interrupt& interrupt;
    std::vector<std::string> words;
    EditLine* editor;
    History* history;
    HistEvent event = {};
    std::string line;
};

namespace {

LineEditor::State& StateOf(EditLine* editor)
{
    void* state = nullptr;
    el_get(editor, EL_CLIENTDATA, &state);
    return *static_cast<LineEditor::State*>(state);
}

/// Lines that other threads print move the prompt down.
int ReadCharacter(EditLine* editor, wchar_t* character)
{
    mbstate_t partial = {};
    for (;;) {
        switch (StateOf(editor).interrupt.WaitForInput(STDIN_FILENO, BEFORE_REFRESH_MS)) {
        case Interrupt::Event::Stop:
            return 0;
        case Interrupt::Event::Nothing:
            if (Console::Instance().HasWritten()) {
                el_set(editor, EL_REFRESH);
            }
            continue;
        case Interrupt::Event::Input:
            break;
        }
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count == 0) {
            return 0;
        }
        if (count < 0 && errno != EINTR) {
            return -1;
        }
        const std::size_t length = count < 0 ? 0 : std::mbrtowc(character, &byte, 1, &partial);
        if (count > 0 && length <= 1) {
            return 1;
        }
        if (length == static_cast<std::size_t>(-1)) { // no character: begin again with the next
            partial = {};
        }
    }
}

/// Completes the first word as far as all candidates agree, and lists them when there are several.
unsigned char Complete(EditLine* editor, int)
{
    const LineInfo* const info = el_line(editor);
    const std::string typed(info->buffer, info->cursor);
    std::vector<std::string> found;
    for (const std::string& word : StateOf(editor).words) {
        if (word.starts_with(typed)) {
            found.push_back(word);
        }
    }
    if (found.empty() || typed.find(' ') != std::string::npos) {
        return CC_REFRESH_BEEP;
    }
    std::string common = found.front();
    std::string list = "\n";
    for (const std::string& word : found) {
        const auto difference =
            std::mismatch(common.begin(), common.end(), word.begin(), word.end());
        common.erase(difference.first, common.end());
        list += word + "  ";
    }
    if (found.size() == 1) {
        common += ' ';
    } else if (common == typed) {
        Console::Instance().Print(list);
    }
    el_insertstr(editor, common.c_str() + typed.size());
    return common == typed ? CC_REDISPLAY : CC_REFRESH;
}

const char* Prompt(EditLine*)
{
    return "emshost> ";
}

} // namespace

LineEditor::LineEditor(const Interrupt& interrupt, std::vector<std::string> words)
    : m_pState(new State{interrupt, std::move(words), nullptr, history_init(), {}, ""})
{
    std::setlocale(LC_CTYPE, "C.UTF-8"); // NOLINT(concurrency-mt-unsafe): before threads start
    EditLine* const editor = el_init("emshost", stdin, stdout, stderr);
    if (editor == nullptr || m_pState->history == nullptr) {
        throw std::runtime_error("the terminal cannot be used");
    }
    m_pState->editor = editor;
    history(m_pState->history, &m_pState->event, H_SETSIZE, MOST_LINES);
    history(m_pState->history, &m_pState->event, H_SETUNIQUE, 1);
    el_set(editor, EL_CLIENTDATA, m_pState.get());
    el_set(editor, EL_PROMPT, Prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, m_pState->history);
    el_set(editor, EL_GETCFN, ReadCharacter);
    el_set(editor, EL_ADDFN, "complete", "Complete a command", Complete);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor()
{
    history_end(m_pState->history);
    el_end(m_pState->editor);
}

const std::string& LineEditor::Read()
{
    int length = 0;
    Console::Instance().HasWritten();
    const char* const line = el_gets(m_pState->editor, &length);
    m_pState->line.assign(line == nullptr ? "" : line);
    if (m_pState->line.empty()) {
        Console::Instance().Print(""); // the shell's prompt begins a line
    } else {
        history(m_pState->history, &m_pState->event, H_ENTER, line);
    }
    return m_pState->line;
}

} // namespace emshost
