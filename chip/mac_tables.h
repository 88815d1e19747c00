// The chip's MAC tables: the dynamic (learned) table and the 32-row static one.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

std::uint32_t HardwareReadStaticMac(int fd, unsigned row, std::uint8_t *mac, std::uint16_t *ports,
                                    std::uint8_t *fid, std::uint32_t *override,
                                    std::uint32_t *use_fid, std::uint32_t *valid);
void HardwareWriteStaticMac(int fd, unsigned row, const std::uint8_t *mac, std::uint16_t ports,
                            std::uint8_t fid, std::uint32_t override, std::uint32_t use_fid,
                            std::uint32_t valid);
void SwitchReadDynMacTable(int fd);
void SwitchReadStaticMacTable(int fd);
void SwitchAddStaticMac(int fd, const std::uint8_t *mac, std::uint32_t port_index,
                        std::uint32_t override, std::uint8_t fid, std::uint32_t use_fid);
void SwitchDelStaticMac(int fd, const std::uint8_t *mac, std::uint8_t fid, std::uint32_t ignore_fid,
                        std::uint32_t all);

// Six bytes from text: base 16 each, any one character as separator, missing
// bytes 0.
void parse_mac_text(const char *text, std::uint8_t *mac);

int macdyn_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int macstatic_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int macadd_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int macdel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 4> mac_table_commands{{
    {"macdyn", 0, 28, macdyn_cmd},
    {"macstatic", 0, 29, macstatic_cmd},
    {"macadd", 4, 30, macadd_cmd},
    {"macdel", 2, 31, macdel_cmd},
}};
