// Port columns of the console's displays. Column c (1 to 4) shows port index
// c; callers showing a chip port mask pass it shifted right by one.
#include "chip/port_columns.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

const char *const on_off_text[2] = {" disable", "  enable"};

void format_port_map(std::uint32_t mask, char *buffer) {
    std::memset(buffer, ' ', 8);
    for (std::size_t i = 0; i < 4; ++i)
        buffer[2 * i] = (mask & (1U << i)) != 0 ? 'M' : '-';
    buffer[8] = '\0';
}

void format_port_header(char *buffer, int width) {
    char *at = buffer;
    for (char digit = '1'; digit <= '4'; ++digit) {
        *at++ = digit;
        for (int i = 0; i < width; ++i)
            *at++ = ' ';
    }
    *at = '\0';
}

void print_info_heading(const char *format) {
    char heads[4 * (11 + 1) + 1];
    format_port_header(heads, 11);
    std::printf(format, heads);
}
