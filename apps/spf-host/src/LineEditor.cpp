#include "LineEditor.h"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>

namespace spfhost {

LineEditor::LineEditor(const char* program, int wakeFd)
    : editor_(el_init(program, stdin, stdout, stderr)), history_(history_init()), wakeFd_(wakeFd) {
    HistEvent event;
    history(history_, &event, H_SETSIZE, 1000);
    history(history_, &event, H_SETUNIQUE, 1);
    el_set(editor_, EL_CLIENTDATA, this);
    el_set(editor_, EL_EDITOR, "emacs");
    el_set(editor_, EL_PROMPT, &LineEditor::prompt);
    el_set(editor_, EL_HIST, history, history_);
    el_set(editor_, EL_GETCFN, &LineEditor::readCharacter);
}

LineEditor::~LineEditor() {
    el_end(editor_);
    history_end(history_);
}

std::optional<std::string> LineEditor::readLine() {
    int count = 0;
    const char* line = el_gets(editor_, &count);
    if (line == nullptr || count <= 0) {
        return std::nullopt;
    }
    std::string text(line, static_cast<std::size_t>(count));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    if (!text.empty()) {
        HistEvent event;
        history(history_, &event, H_ENTER, text.c_str());
    }
    return text;
}

// Waits for a byte of the terminal or for the wake-up; decodes the terminal's multibyte text.
int LineEditor::readCharacter(editline* editor, wchar_t* character) {
    LineEditor* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    std::mbstate_t state{};
    for (;;) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {self->wakeFd_, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (fds[1].revents != 0) {
            return 0;
        }
        char byte = 0;
        const auto got = ::read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got == 0 ? 0 : -1;
        const auto used = std::mbrtowc(character, &byte, 1, &state);
        if (used == static_cast<std::size_t>(-2)) continue;  // more bytes of this character follow
        if (used == static_cast<std::size_t>(-1)) {
            state = {};
            *character = L'?';
        }
        return 1;
    }
}

char* LineEditor::prompt(editline*) {
    static char text[] = "spf-host> ";
    return text;
}

}  // namespace spfhost
