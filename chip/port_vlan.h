// Per-port VLAN settings: default VID, tagging, ingress rules, 802.1Q.
#pragma once

#include <cstdint>

void SwitchSetPortDefaultVid(int fd, std::uint32_t p, std::uint16_t vid);
void SwitchSet8021Q(int fd, std::int32_t enable);
void SwitchSetPortVlanTag(int fd, std::uint32_t p, std::int32_t tag, std::int32_t enable);
void SwitchSetPortIngressFilter(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortDiscardNonVid(int fd, std::uint32_t p, std::int32_t flag);
void SwitchShowVlanInfo(int fd);

int vlandefvid_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
