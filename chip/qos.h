// QoS: fair queueing, four-queue split, priority and TOS maps, port queues.
#pragma once

#include "console/cli_handler.h"

#include <cstdint>

void SwitchSetPortWfq(int fd, std::int32_t flag, std::uint32_t p);
void SwitchSetPortSplitQueue(int fd, std::uint32_t p, std::int32_t flag);
void SwitchMapTagToQueue(int fd, std::int32_t priority, std::int32_t q);
void SwitchMapTosToQueue(int fd, std::int32_t tos, std::int32_t q);
void SwitchSetPortBaseQueue(int fd, std::uint32_t p, std::int32_t flag, std::int32_t q);
void SwitchSetPortDiffServ(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortDot1p(int fd, std::uint32_t p, std::int32_t flag);
void SwitchShowQosInfo(int fd);

// qostag2q and qostos2q: <value> [<Q#>], queue 0 when Q# is omitted.
template <void (*Operation)(int, std::int32_t, std::int32_t)>
int queue_map_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    Operation(fd, cli_int(argv[0]), cli_int_or(*argc, argv, 1, 0));
    return cli_handler_done(*argc, argv);
}

int qoswfq_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
inline constexpr CliHandler qossplitq_cmd = port_value_handler<SwitchSetPortSplitQueue>;
inline constexpr CliHandler qostag2q_cmd = queue_map_handler<SwitchMapTagToQueue>;
inline constexpr CliHandler qostos2q_cmd = queue_map_handler<SwitchMapTosToQueue>;
int qosportbase_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
inline constexpr CliHandler qosdiffserv_cmd = port_value_handler<SwitchSetPortDiffServ>;
inline constexpr CliHandler qosdot1p_cmd = port_value_handler<SwitchSetPortDot1p>;
inline constexpr CliHandler qosinfo_cmd = no_args_handler<SwitchShowQosInfo>;
