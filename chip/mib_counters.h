// Per-port MIB counters: read, show with running totals, clear.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

// The port index given to SwitchShowMIBCounter for the display by columns.
inline constexpr std::int32_t MIB_ALL_PORTS = 0xFF;

void HardwareReadMIBCounter(int fd, DrvCtrl *record, unsigned port_index);
void SwitchShowMIBCounter(int fd, std::int32_t port);
void SwitchClearMIBCounter(int fd);

int showmib_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int clearmib_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 2> mib_counter_commands{{
    {"showmib", 1, 26, showmib_cmd},
    {"clearmib", 0, 27, clearmib_cmd},
}};
