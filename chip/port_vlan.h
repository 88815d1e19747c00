// Per-port VLAN settings: default VID, tagging, ingress rules, 802.1Q.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

void SwitchSetPortDefaultVid(int fd, std::uint32_t p, std::uint16_t vid);
void SwitchSet8021Q(int fd, std::int32_t enable);
void SwitchSetPortVlanTag(int fd, std::uint32_t p, std::int32_t tag, std::int32_t enable);
void SwitchSetPortIngressFilter(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortDiscardNonVid(int fd, std::uint32_t p, std::int32_t flag);
void SwitchShowVlanInfo(int fd);

int vlandefvid_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlanenable_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandisable_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlanenabletag_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandisabletag_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlaningressfilter_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandiscardnonvid_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlaninfo_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 8> port_vlan_commands{{
    {"vlandefvid", 2, 37, vlandefvid_cmd},
    {"vlanenable", 0, 38, vlanenable_cmd},
    {"vlandisable", 0, 39, vlandisable_cmd},
    {"vlanenabletag", 2, 40, vlanenabletag_cmd},
    {"vlandisabletag", 2, 41, vlandisabletag_cmd},
    {"vlaningressfilter", 2, 42, vlaningressfilter_cmd},
    {"vlandiscardnonvid", 2, 43, vlandiscardnonvid_cmd},
    {"vlaninfo", 0, 44, vlaninfo_cmd},
}};
