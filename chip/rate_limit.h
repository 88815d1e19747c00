// Rate limiting: egress and ingress limits per queue, flow control, modes.
#pragma once

#include "console/cli_handler.h"

#include <array>
#include <cstdint>

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

// Q# cut to its low 8 bits, so that 256 means queue 0; omitted, all queues.
std::uint8_t rate_queue_arg(std::uint16_t argc, char **argv);

// rateconftx, rateconfrx, ratetx and raterx: <Port> <#Kbps or Flag> [<Q#>].
template <void (*Operation)(int, std::uint32_t, std::int32_t, std::uint8_t)>
int rate_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 2, usage_index))
        return 1;
    Operation(fd, cli_port_index(argv[0]), cli_int(argv[1]), rate_queue_arg(*argc, argv));
    return cli_handler_done(*argc, argv);
}

// SwitchSetTxRate, SwitchSetRxRate and SwitchSetRxFlowControl take the flag
// before the port: flag_first<SwitchSetTxRate> takes the port first.
template <auto Operation> struct FlagFirst;

template <typename... Rest, void (*Operation)(int, std::int32_t, std::uint32_t, Rest...)>
struct FlagFirst<Operation> {
    static void run(int fd, std::uint32_t p, std::int32_t flag, Rest... rest) {
        Operation(fd, flag, p, rest...);
    }
};

template <auto Operation> inline constexpr auto flag_first = &FlagFirst<Operation>::run;

inline constexpr CliHandler rateconftx_cmd = rate_handler<SwitchConfigTxRate>;
inline constexpr CliHandler rateconfrx_cmd = rate_handler<SwitchConfigRxRate>;
inline constexpr CliHandler ratetx_cmd = rate_handler<flag_first<SwitchSetTxRate>>;
inline constexpr CliHandler raterx_cmd = rate_handler<flag_first<SwitchSetRxRate>>;
// A third token is cut by the parser and has no meaning here.
inline constexpr CliHandler raterxflow_cmd = port_value_handler<flag_first<SwitchSetRxFlowControl>>;
inline constexpr CliHandler ratemode_cmd = port_value_handler<SwitchSetRxLimitMode>;
inline constexpr CliHandler rateinfo_cmd = no_args_handler<SwitchShowRateInfo>;
