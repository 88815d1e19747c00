// Text pieces of the console's displays: port columns and on/off words.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// 8 characters "M - M - " style for the low four bits of mask, and a NUL.
void format_port_map(std::uint32_t mask, char *buffer);
// "1" + width blanks, "2" + width blanks, ... for columns 1 to 4, and a NUL.
void format_port_header(char *buffer, int width);

// " disable" for 0, "  enable" for 1, each 8 characters.
extern const char *const on_off_text[2];

// The heading line of an info display: format holds one %s, which takes the
// column heads 1 to 4 at width 11 (each cell spans a 12-character column).
void print_info_heading(const char *format);

// A flag line of an info display: its label and the field of the row it shows.
template <typename Row> struct FlagLine {
    const char *label;
    std::uint8_t Row::*field;
};

// One flag line: the label, then the flag of port index c under column
// heading c, for c = 1 to 4 (index 0 has no column), then a newline.
template <typename Row> void print_flag_row(const FlagLine<Row> &line, const Row *rows) {
    std::fputs(line.label, stdout);
    for (int c = 1; c <= 4; ++c)
        std::printf("%s    ", on_off_text[rows[c].*line.field]);
    std::fputs("\n", stdout);
}

template <typename Row, std::size_t N>
void print_flag_rows(const std::array<FlagLine<Row>, N> &lines, const Row *rows) {
    for (const FlagLine<Row> &line : lines)
        print_flag_row(line, rows);
}
