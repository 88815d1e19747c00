// Port mirroring: monitored ports, the sniffer and the filter mode.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

void SwitchSetPortMirrorTx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortMirrorRx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortSniffer(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetMirrorMode(int fd, std::int32_t sel);
void SwitchShowMirrorInfo(int fd);

inline constexpr CliHandler mirrortx_cmd = port_value_handler<SwitchSetPortMirrorTx>;
inline constexpr CliHandler mirrorrx_cmd = port_value_handler<SwitchSetPortMirrorRx>;
inline constexpr CliHandler sniffer_cmd = port_value_handler<SwitchSetPortSniffer>;
int sniffmode_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
inline constexpr CliHandler mirrorinfo_cmd = no_args_handler<SwitchShowMirrorInfo>;
