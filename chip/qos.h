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

int qoswfq_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qosportbase_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

// qostag2q and qostos2q: <value> [<Q#>], queue 0 when Q# is omitted.
template <void (*Operation)(int, std::int32_t, std::int32_t)>
int queue_map_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    Operation(fd, cli_int(argv[0]), cli_int_or(*argc, argv, 1, 0));
    return cli_handler_done(*argc, argv);
}
