// Port mirroring: monitored ports, the sniffer and the filter mode.
#pragma once

#include <cstdint>

void SwitchSetPortMirrorTx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortMirrorRx(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortSniffer(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetMirrorMode(int fd, std::int32_t sel);
void SwitchShowMirrorInfo(int fd);

int sniffmode_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
