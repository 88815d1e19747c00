// Port mirroring: monitored ports, the sniffer and the filter mode.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

void SwitchSetPortMirrorTx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortMirrorRx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortSniffer(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetMirrorMode(int fd, std::int32_t sel);
void SwitchShowMirrorInfo(int fd);

int mirrortx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int mirrorrx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int sniffer_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int sniffmode_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int mirrorinfo_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 5> port_mirror_commands{{
    {"mirrortx", 2, 53, mirrortx_cmd},
    {"mirrorrx", 2, 54, mirrorrx_cmd},
    {"sniffer", 2, 55, sniffer_cmd},
    {"sniffmode", 1, 56, sniffmode_cmd},
    {"mirrorinfo", 0, 57, mirrorinfo_cmd},
}};
