// Rate limiting: egress and ingress limits per queue, flow control, modes.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

struct RateCode {
    std::int32_t kbps;
    std::int32_t code;
};

// Rates below 1 Mbps: 64 Kbps steps, codes 101 to 115.
inline constexpr std::array<RateCode, 15> rate_code_table{{
    {64, 101},
    {128, 102},
    {192, 103},
    {256, 104},
    {320, 105},
    {384, 106},
    {448, 107},
    {512, 108},
    {576, 109},
    {640, 110},
    {704, 111},
    {768, 112},
    {832, 113},
    {896, 114},
    {960, 115},
}};

std::int32_t RateKbpsToCode(std::int32_t kbps);
std::int32_t RateCodeToKbps(std::int32_t code);

void SwitchConfigTxRate(int fd, std::uint32_t p, std::int32_t kbps, std::uint8_t q);
void SwitchConfigRxRate(int fd, std::uint32_t p, std::int32_t kbps, std::uint8_t q);
void SwitchSetTxRate(int fd, std::int32_t flag, std::uint32_t p, std::uint8_t q);
void SwitchSetRxRate(int fd, std::int32_t flag, std::uint32_t p, std::uint8_t q);
void SwitchSetRxFlowControl(int fd, std::int32_t flag, std::uint32_t p);
void SwitchSetRxLimitMode(int fd, std::uint32_t p, std::uint32_t mode);
void SwitchShowRateInfo(int fd);

int rateconftx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int rateconfrx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int ratetx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int raterx_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int raterxflow_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int ratemode_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int rateinfo_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 7> rate_limit_commands{{
    {"rateconftx", 3, 58, rateconftx_cmd},
    {"rateconfrx", 3, 59, rateconfrx_cmd},
    {"ratetx", 3, 60, ratetx_cmd},
    {"raterx", 3, 61, raterx_cmd},
    {"raterxflow", 3, 62, raterxflow_cmd},
    {"ratemode", 2, 63, ratemode_cmd},
    {"rateinfo", 0, 64, rateinfo_cmd},
}};
