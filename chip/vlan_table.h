// The chip's 4096-row VLAN table: display, create, delete, and ports of a row.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

void SwitchShowVlanTable(int fd, std::int32_t first, std::int32_t count);
void SwitchCreateVlan(int fd, std::int32_t vid, std::uint8_t fid);
void SwitchDelVlan(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t ignore_fid,
                   std::uint32_t all);
void SwitchUpdateVlanPort(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t port_index,
                          std::uint32_t add);

int vlan_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlancreate_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
// vlanaddport (Add 1) and vlandelport (Add 0): <vid> <Port> [<fid>].
template <std::uint32_t Add>
int vlan_port_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
inline constexpr CliHandler vlanaddport_cmd = vlan_port_handler<1>;
inline constexpr CliHandler vlandelport_cmd = vlan_port_handler<0>;
