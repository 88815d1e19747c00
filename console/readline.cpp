// The console's line editor: its own echo, a few editing keys, tab stops, and
// the recall of the previous line on an empty one. The terminal's mode is left
// as whoever opened the terminal set it.
#include "console/readline.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int MAX_LINE_CHARS = 254; // the 255th character rings the bell
constexpr int TAB_WIDTH = 8;
constexpr int TAB_MASK = TAB_WIDTH - 1;

constexpr char KEY_NUL = 0x00;
constexpr char KEY_CTRL_C = 0x03;
constexpr char KEY_BACKSPACE = 0x08;
constexpr char KEY_TAB = 0x09;
constexpr char KEY_LF = 0x0A;
constexpr char KEY_CR = 0x0D;
constexpr char KEY_CTRL_U = 0x15;
constexpr char KEY_CTRL_W = 0x17;
constexpr char KEY_DELETE = 0x7F;
constexpr char BELL = 0x07;

constexpr const char *ERASE = "\b \b";
constexpr const char *LINE_END = "\r\n";
constexpr const char TAB_BLANKS[TAB_WIDTH + 1] = "        ";

// Writes the blanks from the column up to the next tab stop; the new column.
int write_tab(int column) {
    std::fputs(&TAB_BLANKS[column & TAB_MASK], stdout);
    return (column & ~TAB_MASK) + TAB_WIDTH;
}

// Writes an erase sequence per column until the prompt's end.
void erase_to_prompt(int *column, int prompt_length) {
    while (*column > prompt_length) {
        std::fputs(ERASE, stdout);
        --*column;
    }
}

// One byte of standard input, or -1 at its end or on a read error.
int read_key() {
    for (;;) {
        unsigned char key = 0;
        const ssize_t got = read(STDIN_FILENO, &key, 1);
        if (got == 1)
            return key;
        // GCOVR_EXCL_START: the console catches no signal, so no read is interrupted
        if (got < 0 && errno == EINTR)
            continue;
        // GCOVR_EXCL_STOP
        return -1;
    }
}

// Removes the last character from line and screen; returns the new position.
char *delete_char(char *buffer, char *position, int *column, int *count, int prompt_length) {
    char *removed = position - 1;
    if (*removed != KEY_TAB) {
        std::fputs(ERASE, stdout);
        --*column;
    } else {
        // How wide the tab was on screen depends on everything before it, so
        // the line is erased and retyped up to the tab.
        erase_to_prompt(column, prompt_length);
        for (const char *p = buffer; p < removed; ++p) {
            if (*p == KEY_TAB) {
                *column = write_tab(*column);
            } else {
                std::putchar(static_cast<unsigned char>(*p));
                ++*column;
            }
        }
    }
    --*count;
    return removed;
}

// The state of one readline call.
struct LineEditor {
    char *buffer;
    const char *saved; // the whole buffer as it was at the call
    int prompt_length;
    char *position; // where the next character goes
    int count;      // characters stored, 0 to MAX_LINE_CHARS
    int column;     // the screen column, starting at the prompt's length
};

void delete_last(LineEditor &e) {
    e.position = delete_char(e.buffer, e.position, &e.column, &e.count, e.prompt_length);
}

// Ctrl-U: the whole line goes, from the screen too.
void erase_line(LineEditor &e) {
    erase_to_prompt(&e.column, e.prompt_length);
    e.count = 0;
    e.position = e.buffer;
}

// Ctrl-W: at least one character goes; the first blank met going back goes
// too and ends the word. delete_char leaves the removed character at the new
// position.
void erase_word(LineEditor &e) {
    std::printf("%s: case 0x17\n", "readline");
    while (e.count > 0) {
        delete_last(e);
        if (*e.position == ' ')
            break;
    }
}

// An ordinary character, a tab among them; past the limit only the bell.
void add_char(LineEditor &e, char c) {
    if (e.count >= MAX_LINE_CHARS) {
        std::putchar(BELL);
        return;
    }
    if (c == KEY_TAB) {
        e.column = write_tab(e.column);
    } else {
        std::putchar(static_cast<unsigned char>(c));
        ++e.column;
    }
    *e.position++ = c;
    ++e.count;
}

// CR or LF: the line's length; an empty line brings back the buffer as it
// was at the call.
int end_line(LineEditor &e) {
    *e.position = '\0';
    if (e.position == e.buffer) {
        std::memcpy(e.buffer, e.saved, LINE_BUFFER_SIZE);
        const std::size_t length = strnlen(e.buffer, LINE_BUFFER_SIZE - 1);
        e.buffer[length] = '\0';
        std::fwrite(e.buffer, 1, length, stdout);
        e.position = e.buffer + length;
    }
    std::fputs(LINE_END, stdout);
    std::fflush(stdout);
    return static_cast<int>(e.position - e.buffer);
}

} // namespace

int readline(char *buffer, const char *prompt) {
    char saved[LINE_BUFFER_SIZE];
    std::memcpy(saved, buffer, sizeof saved);

    int prompt_length = 0;
    if (prompt != nullptr) {
        std::fputs(prompt, stdout);
        prompt_length = static_cast<int>(std::strlen(prompt));
    }
    std::fflush(stdout);

    LineEditor editor{buffer, saved, prompt_length, buffer, 0, prompt_length};
    for (;;) {
        const int key = read_key();
        // End of input (or a read error): no further key can come, so the
        // console ends as on Ctrl-C rather than waiting or ringing the bell
        // for ever on a line that cannot be finished.
        if (key < 0 || key == KEY_CTRL_C) {
            buffer[0] = '\0';
            return -1;
        }
        switch (static_cast<char>(key)) {
        case KEY_NUL:
            break;
        case KEY_BACKSPACE:
        case KEY_DELETE:
            if (editor.count > 0)
                delete_last(editor);
            break;
        case KEY_LF:
        case KEY_CR:
            return end_line(editor);
        case KEY_CTRL_U:
            erase_line(editor);
            break;
        case KEY_CTRL_W:
            erase_word(editor);
            break;
        default:
            add_char(editor, static_cast<char>(key));
            break;
        }
        std::fflush(stdout);
    }
}
