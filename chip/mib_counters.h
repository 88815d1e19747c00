// Per-port MIB counters: read, show with running totals, clear.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

// The port index given to SwitchShowMIBCounter for the display by columns.
inline constexpr std::int32_t MIB_ALL_PORTS = 0xFF;

void SwitchShowMIBCounter(int fd, std::int32_t port);
void SwitchClearMIBCounter(int fd);

int showmib_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
inline constexpr CliHandler clearmib_cmd = no_args_handler<SwitchClearMIBCounter>;
