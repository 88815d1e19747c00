// The console's command table: one row per command word.
#pragma once

#include "console/cli_handler.h"

#include <array>
#include <cstdint>

struct CliCommand {
    const char *name;
    std::uint16_t max_args;
    std::uint16_t usage_index;
    CliHandler handler;
};

inline constexpr int CLI_COMMAND_COUNT = 47;

// 47 rows and a terminating row with a null name and a null handler.
extern const std::array<CliCommand, CLI_COMMAND_COUNT + 1> cli_command_table;
