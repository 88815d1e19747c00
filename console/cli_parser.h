// The console's command parser: one line into a call of a command handler.
#pragma once

#include <cstdint>

// The token array of one line; no row asks for more.
inline constexpr int CLI_MAX_TOKENS = 10;

// 0 when the console is to end, nonzero when it goes on.
int cli_parser(int fd, char *line);

// Cuts up to limit tokens from text in place, adding them to argv and argc.
void parse_args(std::uint16_t *argc, char **argv, char *text, std::uint16_t limit);

// "Usage: %s\n" with the usage row, or nothing for an empty row.
void cli_usage(std::uint16_t usage_index);
