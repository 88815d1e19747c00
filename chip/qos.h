// QoS: fair queueing, four-queue split, priority and TOS maps, port queues.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

void SwitchSetPortWfq(int fd, std::int32_t flag, std::uint32_t p);
void SwitchSetPortSplitQueue(int fd, std::uint32_t p, std::int32_t flag);
void SwitchMapTagToQueue(int fd, std::int32_t priority, std::int32_t q);
void SwitchMapTosToQueue(int fd, std::int32_t tos, std::int32_t q);
void SwitchSetPortBaseQueue(int fd, std::uint32_t p, std::int32_t flag, std::int32_t q);
void SwitchSetPortDiffServ(int fd, std::uint32_t p, std::int32_t flag);
void SwitchSetPortDot1p(int fd, std::uint32_t p, std::int32_t flag);
void SwitchShowQosInfo(int fd);

int qoswfq_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qossplitq_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qostag2q_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qostos2q_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qosportbase_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qosdiffserv_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qosdot1p_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int qosinfo_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 8> qos_commands{{
    {"qoswfq", 2, 45, qoswfq_cmd},
    {"qossplitq", 2, 46, qossplitq_cmd},
    {"qostag2q", 2, 47, qostag2q_cmd},
    {"qostos2q", 2, 48, qostos2q_cmd},
    {"qosportbase", 3, 49, qosportbase_cmd},
    {"qosdiffserv", 2, 50, qosdiffserv_cmd},
    {"qosdot1p", 2, 51, qosdot1p_cmd},
    {"qosinfo", 0, 52, qosinfo_cmd},
}};
