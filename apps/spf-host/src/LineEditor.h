#pragma once

#include <optional>
#include <string>

struct editline;
struct history;

namespace spfhost {

// Lines typed at the terminal, with line editing and a history of the session. Reading ends at
// end of input (Ctrl-D) or once `wakeFd` becomes readable, so that another thread can end a
// read that waits for the user. One thread at a time.
class LineEditor {
public:
    LineEditor(const char* program, int wakeFd);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The next line without its newline; none at the end.
    std::optional<std::string> readLine();

private:
    static int readCharacter(editline* editor, wchar_t* character);
    static char* prompt(editline* editor);

    editline* editor_;
    history* history_;
    const int wakeFd_;
};

}  // namespace spfhost
