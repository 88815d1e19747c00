// QoS settings. Per port: the port control register 16p + 16 (port-based
// queue, 802.1p and DiffServ switches, and a bit the four-queue split must
// clear), register 16p + 177 (four-queue split) and the four registers
// 16p + 178 to 16p + 181 whose bit 7 together make weighted fair queueing.
// Chip-wide: the 802.1p map in registers 128 and 129, the TOS map in
// registers 144 to 159 (four 2-bit queue fields per register), and bit 3 of
// register 135, which must be on while any port splits its queues.
#include "chip/qos.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/port_settings.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>

namespace {

constexpr std::int32_t LAST_PRIORITY = 7;
constexpr std::int32_t LAST_TOS = 63;

constexpr unsigned REG_PRIORITY_MAP = 128; // 128 and 129
constexpr unsigned REG_TOS_MAP = 144;      // 144 to 159
constexpr unsigned REG_SPLIT_SUMMARY = 135;
constexpr std::uint8_t SPLIT_SUMMARY = 0x08;

// Register 16p + 16.
constexpr std::uint8_t PORT_CTRL_SPLIT_CLEAR = 0x01;
constexpr RegField BASE_QUEUE{0x18, 3};
constexpr std::uint8_t DOT1P = 0x20;
constexpr std::uint8_t DIFFSERV = 0x40;
// Register 16p + 177.
constexpr std::uint8_t SPLIT_4Q = 0x02;
// Registers 16p + 178 to 16p + 181.
constexpr std::uint8_t WFQ = 0x80;

constexpr unsigned PORT_CTRL_OFFSET = 16; // in a port's register block
constexpr unsigned port_ctrl_reg(std::uint32_t p) {
    return port_reg(p, PORT_CTRL_OFFSET);
}
constexpr unsigned split_reg(std::uint32_t p) {
    return port_reg(p, 177);
}
constexpr unsigned wfq_first_reg(std::uint32_t p) {
    return port_reg(p, 178);
}
constexpr unsigned wfq_last_reg(std::uint32_t p) {
    return port_reg(p, 181);
}

// The queue, priority and TOS numbers come from strtoul, which takes a
// leading minus sign: a negative number has no queue, map entry or register
// behind it, so it is refused like a number above the range, showing what
// was typed, and nothing is written.
bool queue_is_valid(std::int32_t q) {
    if (q < 0 || q > LAST_QUEUE) {
        std::printf("error: incorrect priority queue number(%d) to set! \n", q);
        return false;
    }
    return true;
}

// Replaces the 2-bit queue field k (bits 2k and 2k + 1) of a map register.
void write_queue_field(int fd, unsigned reg, std::int32_t k, std::int32_t q) {
    const unsigned shift = static_cast<unsigned>(2 * k);
    const unsigned value = hw_read_byte(fd, reg);
    hw_write_byte(fd, reg, (value & ~(3U << shift)) | (static_cast<unsigned>(q) << shift));
}

std::uint8_t queue_field(std::uint8_t value, unsigned k) {
    return static_cast<std::uint8_t>((value >> (2 * k)) & 3U);
}

constexpr std::array<FlagLine<PortQosRow>, 4> flag_lines{{
    {"QoS split TXQ into 4Q       : ", &PortQosRow::split_4q},
    {"QoS DiffServ                : ", &PortQosRow::diffserv},
    {"QoS 802.1p                  : ", &PortQosRow::dot1p},
    {"QoS WFQ(q3:q2:q1:q0=8:4:2:1): ", &PortQosRow::wfq},
}};

constexpr const char *MAP_INDENT = "                              "; // under the labels
constexpr int MAP_ITEMS_PER_LINE = 8;

// A chip-wide map to the transmit queues: four 2-bit queue fields per
// register from first_reg on.
struct QueueMap {
    std::int32_t last; // the largest value the map holds
    unsigned first_reg;
    const char *range_error; // with the value
    const char *mapped;      // with the value and the queue
};
constexpr QueueMap PRIORITY_MAP{LAST_PRIORITY, REG_PRIORITY_MAP,
                                "error: incorrect 802.1p priority value(%d) to set! \n",
                                "QoS 802.1p priority %d mapping to Q%d. \n"};
constexpr QueueMap TOS_MAP{LAST_TOS, REG_TOS_MAP, "error: incorrect TOS (%d) value to set! \n",
                           "QoS TOS priority %d mapping to Q%d. \n"};

// The value is checked before the queue. Negative values are refused like
// too large ones (see queue_is_valid).
void map_to_queue(int fd, const QueueMap &map, std::int32_t value, std::int32_t q) {
    if (value < 0 || value > map.last) {
        std::printf(map.range_error, value);
        return;
    }
    if (!queue_is_valid(q))
        return;
    write_queue_field(fd, map.first_reg + static_cast<unsigned>(value / 4), value % 4, q);
    std::printf(map.mapped, value, q);
}

// The settings of one port; the maps are read apart.
void read_port_qos(int fd, std::uint32_t p, PortQosRow &row) {
    row.split_4q = (hw_read_byte(fd, split_reg(p)) & SPLIT_4Q) != 0 ? 1 : 0;
    const std::uint8_t ctrl = hw_read_byte(fd, port_ctrl_reg(p));
    row.base_queue = BASE_QUEUE.get(ctrl);
    row.dot1p = (ctrl & DOT1P) != 0 ? 1 : 0;
    row.diffserv = (ctrl & DIFFSERV) != 0 ? 1 : 0;
    // Fair queueing is on only when all four queue registers say so.
    row.wfq = 1;
    for (unsigned reg = wfq_last_reg(p); reg >= wfq_first_reg(p); --reg) {
        if ((hw_read_byte(fd, reg) & WFQ) == 0) {
            row.wfq = 0;
            break;
        }
    }
}

// The two mapping lines, the TOS map eight items to a line.
void print_maps(const PortQosRow &maps) {
    std::fputs("802.1p mapping to Q         : ", stdout);
    for (int k = 0; k < 8; ++k)
        std::printf("%2d-Q%d  ", k, maps.tag_queue[k]);
    std::fputs("\n", stdout);

    std::fputs("DiffServ mapping to Q       : ", stdout);
    for (int t = 0; t < 64; ++t) {
        std::printf("%2d-Q%d  ", t, maps.tos_queue[t]);
        if ((t + 1) % MAP_ITEMS_PER_LINE == 0)
            std::printf("\n%s", MAP_INDENT);
    }
    std::fputs("\n", stdout);
}

} // namespace

void SwitchSetPortWfq(int fd, std::int32_t flag, std::uint32_t p) {
    if (!port_index_valid(p))
        return;
    for (unsigned reg = wfq_last_reg(p); reg >= wfq_first_reg(p); --reg)
        update_flag_bits(fd, reg, WFQ, flag);
}

void SwitchSetPortSplitQueue(int fd, std::uint32_t p, std::int32_t flag) {
    if (!port_index_valid(p))
        return;
    const std::uint8_t ctrl = hw_read_byte(fd, port_ctrl_reg(p));
    const std::uint8_t split = hw_read_byte(fd, split_reg(p));
    hw_write_byte(fd, port_ctrl_reg(p), static_cast<std::uint8_t>(ctrl & ~PORT_CTRL_SPLIT_CLEAR));
    hw_write_byte(fd, split_reg(p), with_flag_bits(split, SPLIT_4Q, flag));

    // The chip-wide bit follows all ports, not only the one just changed.
    std::int32_t any_split = 0;
    for (std::uint32_t i = 0; i < SWITCH_PORTS; ++i) {
        if ((hw_read_byte(fd, split_reg(i)) & SPLIT_4Q) != 0) {
            any_split = 1;
            break;
        }
    }
    update_flag_bits(fd, REG_SPLIT_SUMMARY, SPLIT_SUMMARY, any_split);
}

void SwitchMapTagToQueue(int fd, std::int32_t priority, std::int32_t q) {
    map_to_queue(fd, PRIORITY_MAP, priority, q);
}

void SwitchMapTosToQueue(int fd, std::int32_t tos, std::int32_t q) {
    map_to_queue(fd, TOS_MAP, tos, q);
}

void SwitchSetPortBaseQueue(int fd, std::uint32_t p, std::int32_t flag, std::int32_t q) {
    if (!port_index_valid(p))
        return;
    // The queue is checked even when the mapping is being switched off.
    if (!queue_is_valid(q))
        return;
    const unsigned value = hw_read_byte(fd, port_ctrl_reg(p));
    hw_write_byte(fd, port_ctrl_reg(p),
                  BASE_QUEUE.with(value, flag == 1 ? static_cast<unsigned>(q) : 0));
}

void SwitchSetPortDiffServ(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, PORT_CTRL_OFFSET, DIFFSERV, flag);
}

void SwitchSetPortDot1p(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, PORT_CTRL_OFFSET, DOT1P, flag);
}

void SwitchShowQosInfo(int fd) {
    if (gDrvCtrl == nullptr)
        return;
    for (std::uint32_t i = 0; i < SWITCH_PORTS; ++i)
        read_port_qos(fd, i, gDrvCtrl->port_qos[i]);
    // The maps are chip-wide and kept in row 0.
    PortQosRow &maps = gDrvCtrl->port_qos[0];
    for (unsigned k = 0; k < 8; ++k)
        maps.tag_queue[k] = queue_field(hw_read_byte(fd, REG_PRIORITY_MAP + k / 4), k % 4);
    for (unsigned t = 0; t < 64; ++t)
        maps.tos_queue[t] = queue_field(hw_read_byte(fd, REG_TOS_MAP + t / 4), t % 4);

    // Column c shows port index c; index 0 is read but has no column.
    print_info_heading("\n                       Port :        %s\n");
    print_flag_rows(flag_lines, gDrvCtrl->port_qos);
    std::fputs("QoS Port-based mapping to Q : ", stdout);
    for (int c = 1; c <= 4; ++c)
        std::printf("      Q%d    ", gDrvCtrl->port_qos[c].base_queue);
    std::fputs("\n", stdout);
    print_maps(maps);
}

int qoswfq_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    // The flag comes first; a missing port means port number 1.
    const std::uint32_t p = *argc > 1 ? cli_port_index(argv[1]) : 0;
    SwitchSetPortWfq(fd, cli_int(argv[0]), p);
    return cli_handler_done(*argc, argv);
}

int qosportbase_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 2, usage_index))
        return 1;
    SwitchSetPortBaseQueue(fd, cli_port_index(argv[0]), cli_int(argv[1]),
                           cli_int_or(*argc, argv, 2, 0));
    return cli_handler_done(*argc, argv);
}
