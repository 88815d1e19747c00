// Per-port VLAN settings: default VID, tagging, ingress rules, 802.1Q.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

void SwitchSetPortDefaultVid(int fd, std::uint32_t p, std::uint16_t vid);
void SwitchSet8021Q(int fd, std::int32_t enable);
void SwitchSetPortVlanTag(int fd, std::uint32_t p, std::int32_t tag, std::int32_t enable);
void SwitchSetPortIngressFilter(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortDiscardNonVid(int fd, std::uint32_t p, std::int32_t flag);
void SwitchShowVlanInfo(int fd);

inline constexpr CliHandler vlandefvid_cmd = port_value_handler<SwitchSetPortDefaultVid>;
inline constexpr CliHandler vlanenable_cmd = no_args_handler<fixed_last<SwitchSet8021Q, 1>>;
inline constexpr CliHandler vlandisable_cmd = no_args_handler<fixed_last<SwitchSet8021Q, 0>>;
inline constexpr CliHandler vlanenabletag_cmd =
    port_value_handler<fixed_last<SwitchSetPortVlanTag, 1>>;
inline constexpr CliHandler vlandisabletag_cmd =
    port_value_handler<fixed_last<SwitchSetPortVlanTag, 0>>;
inline constexpr CliHandler vlaningressfilter_cmd = port_value_handler<SwitchSetPortIngressFilter>;
inline constexpr CliHandler vlandiscardnonvid_cmd = port_value_handler<SwitchSetPortDiscardNonVid>;
inline constexpr CliHandler vlaninfo_cmd = no_args_handler<SwitchShowVlanInfo>;
