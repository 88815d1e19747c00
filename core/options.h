// The command line: option table and number parsing.
#pragma once

#include <cstdint>

// strtol with base 0, end pointer ignored, low 8 bits kept.
std::uint8_t option_byte(const char *text);

// Applies every option to tool_state, spi_device and config_path.
void parse_options(int argc, char **argv);
