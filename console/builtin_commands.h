// The console commands that are no chip operations: help, exit and the
// register commands.
#pragma once

#include "console/cli.h"

int help_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int exit_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwreadb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwreadw_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwreadl_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwwriteb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwwritew_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwwritel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 8> builtin_commands{{
    {"help", 0, 18, help_cmd},
    {"exit", 0, 19, exit_cmd},
    {"rrb", 1, 20, hwreadb_cmd},
    {"rrw", 1, 21, hwreadw_cmd},
    {"rrl", 1, 22, hwreadl_cmd},
    {"rwb", 2, 23, hwwriteb_cmd},
    {"rww", 2, 24, hwwritew_cmd},
    {"rwl", 2, 25, hwwritel_cmd},
}};
