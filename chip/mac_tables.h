// The chip's MAC tables: the dynamic (learned) table and the 32-row static one.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

void SwitchReadDynMacTable(int fd);
void SwitchReadStaticMacTable(int fd);
void SwitchAddStaticMac(int fd, const std::uint8_t *mac, std::uint32_t port_index,
                        std::uint32_t override, std::uint8_t fid, std::uint32_t use_fid);
void SwitchDelStaticMac(int fd, const std::uint8_t *mac, std::uint8_t fid, std::uint32_t ignore_fid,
                        std::uint32_t all);

inline constexpr CliHandler macdyn_cmd = no_args_handler<SwitchReadDynMacTable>;
inline constexpr CliHandler macstatic_cmd = no_args_handler<SwitchReadStaticMacTable>;
int macadd_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int macdel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

// Six bytes from text: base 16 each, any one character as separator, missing
// bytes 0. A step of macadd and macdel, declared here for its unit test.
void parse_mac_text(const char *text, std::uint8_t *mac);
