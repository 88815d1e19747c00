// Text pieces of the console's displays: port columns and on/off words.
#pragma once

#include <cstdint>

// 8 characters "M - M - " style for the low four bits of mask, and a NUL.
void format_port_map(std::uint32_t mask, char *buffer);
// "1" + width blanks, "2" + width blanks, ... for columns 1 to 4, and a NUL.
void format_port_header(char *buffer, int width);

// " disable" for 0, "  enable" for 1, each 8 characters.
extern const char *const on_off_text[2];
