// Rate limiting. Per port p and transmit queue q the chip keeps an ingress
// rate code in register 16p + 183 + q and an egress rate code in register
// 16p + 187 + q; register 16p + 182 holds the receive flow control bit and
// the ingress limit mode. A rate code of 0 means no limit, 1 to 100 that many
// Mbps, and 101 to 115 the sub-Mbps steps of rate_code_table.
#include "chip/rate_limit.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/port_settings.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>

namespace {

constexpr std::uint32_t ALL_PORTS = 255;
constexpr std::uint8_t ALL_QUEUES = 255;

constexpr std::int32_t MIN_RATE_KBPS = 64;
constexpr std::int32_t MAX_RATE_KBPS = 102400;
constexpr std::int32_t KBPS_PER_MBPS = 1024;
constexpr std::int32_t LAST_MBPS_CODE = 100;
constexpr std::int32_t TOP_TABLE_KBPS = 960;
constexpr std::int32_t TOP_TABLE_CODE = 115;

constexpr unsigned INGRESS_BASE = 183;
constexpr unsigned EGRESS_BASE = 187;
constexpr std::uint8_t RATE_CODE_MASK = 0x7F;

// Register 16p + 182.
constexpr std::uint8_t RX_FLOW_CONTROL = 0x10;
constexpr RegField LIMIT_MODE{0x0C, 2};
constexpr std::uint32_t LAST_LIMIT_MODE = 3;

constexpr unsigned limit_ctrl_reg(std::uint32_t p) {
    return port_reg(p, 182);
}
constexpr unsigned rate_reg(unsigned base, std::uint32_t p, unsigned q) {
    return port_reg(p, base + q);
}

struct Range {
    unsigned first;
    unsigned last;
};

// What Q# 255 and port number 256 stand for differs from one operation to
// the next; each operation has its own row.
struct RateScope {
    unsigned base;
    Range all_queues;
    Range all_ports;
};

constexpr RateScope egress_config{EGRESS_BASE, {0, 3}, {1, 4}};
constexpr RateScope ingress_config{INGRESS_BASE, {1, 3}, {0, 4}};
constexpr RateScope egress_off{EGRESS_BASE, {1, 3}, {0, 4}};
constexpr RateScope ingress_off{INGRESS_BASE, {1, 3}, {0, 4}};
constexpr Range flow_control_all_ports{1, 4};

bool select_queues(std::uint8_t q, Range all, Range &queues) {
    if (q == ALL_QUEUES) {
        queues = all;
        return true;
    }
    if (q > LAST_QUEUE) {
        std::printf("error: incorrect priority queue (%d) to set! \n", q);
        return false;
    }
    queues = {q, q};
    return true;
}

bool select_ports(std::uint32_t p, Range all, Range &ports) {
    if (p == ALL_PORTS) {
        ports = all;
        return true;
    }
    if (!port_index_valid(p))
        return false;
    ports = {p, p};
    return true;
}

// Writes the code to every queue register of the ranges, ports outermost;
// the rate registers are written whole, without a read first.
void write_rate_codes(int fd, unsigned base, Range ports, Range queues, std::int32_t code) {
    for (unsigned p = ports.first; p <= ports.last; ++p)
        for (unsigned q = queues.first; q <= queues.last; ++q)
            hw_write_byte(fd, rate_reg(base, p, q), static_cast<unsigned>(code));
}

void config_rate(int fd, const RateScope &scope, const char *direction, std::uint32_t p,
                 std::int32_t kbps, std::uint8_t q) {
    Range queues{};
    Range ports{};
    if (!select_queues(q, scope.all_queues, queues) || !select_ports(p, scope.all_ports, ports))
        return;
    if (kbps < MIN_RATE_KBPS || kbps > MAX_RATE_KBPS) {
        std::printf("error: incorrect rate limit (%d) Kbps to set! \n", kbps);
        return;
    }
    std::int32_t code = 0;
    std::int32_t reported = 0;
    if (kbps >= KBPS_PER_MBPS) {
        code = kbps >> 10; // whole Mbps, the remainder dropped
        reported = code;
    } else {
        code = RateKbpsToCode(kbps);
        reported = RateCodeToKbps(code); // the step actually set
    }
    write_rate_codes(fd, scope.base, ports, queues, code);
    for (unsigned i = queues.first; i <= queues.last; ++i)
        std::printf("Q%u ", i);
    std::printf("%s rate limit is %d %sbps.\n", direction, reported,
                kbps >= KBPS_PER_MBPS ? "M" : "K");
}

void switch_rate_off(int fd, const RateScope &scope, std::int32_t flag, std::uint32_t p,
                     std::uint8_t q) {
    // A limit is switched on only by configuring a rate.
    if (flag == 1)
        return;
    Range queues{};
    Range ports{};
    if (!select_queues(q, scope.all_queues, queues) || !select_ports(p, scope.all_ports, ports))
        return;
    write_rate_codes(fd, scope.base, ports, queues, 0);
}

std::int32_t shown_kbps(std::int32_t code) {
    return code <= LAST_MBPS_CODE ? code * KBPS_PER_MBPS : RateCodeToKbps(code);
}

struct RateLine {
    const char *label; // followed by "(Q<n>) : "
    std::int32_t RateQueueRow::*field;
};

constexpr std::array<RateLine, 2> rate_lines{{
    {"Rate Limit transmit rate ", &RateQueueRow::tx_rate},
    {"Rate Limit receive rate  ", &RateQueueRow::rx_rate},
}};

constexpr std::array<FlagLine<RateQueueRow>, 2> enable_lines{{
    {"Rate Limit transmit      ", &RateQueueRow::tx_enabled},
    {"Rate Limit receive       ", &RateQueueRow::rx_enabled},
}};

void read_port_rates(int fd, std::uint32_t p, PortRateRow &row) {
    for (unsigned q = 0; q < PORT_QUEUES; ++q) {
        RateQueueRow &queue = row.queue[q];
        queue.tx_rate = hw_read_byte(fd, rate_reg(EGRESS_BASE, p, q)) & RATE_CODE_MASK;
        queue.rx_rate = hw_read_byte(fd, rate_reg(INGRESS_BASE, p, q)) & RATE_CODE_MASK;
        queue.tx_enabled = queue.tx_rate != 0 ? 1 : 0;
        queue.rx_enabled = queue.rx_rate != 0 ? 1 : 0;
    }
    // Flow control and the limit mode belong to the port; kept in queue row 0.
    const std::uint8_t ctrl = hw_read_byte(fd, limit_ctrl_reg(p));
    row.queue[0].rx_flow_control = (ctrl & RX_FLOW_CONTROL) != 0 ? 1 : 0;
    row.queue[0].rx_limit_mode = LIMIT_MODE.get(ctrl);
}

// "<label>(Q<q>) : " and the rate of queue q of each column in Kbps.
void print_rate_line(const RateLine &line, int q, const PortRateRow *rows) {
    std::printf("%s(Q%d) : ", line.label, q);
    for (int c = 1; c <= 4; ++c)
        std::printf("%8d    ", shown_kbps(rows[c].queue[q].*line.field));
    std::fputs("\n", stdout);
}

// "<label>(Q<q>) : " and whether queue q of each column has a limit.
void print_enable_line(const FlagLine<RateQueueRow> &line, int q, const PortRateRow *rows) {
    std::printf("%s(Q%d) : ", line.label, q);
    for (int c = 1; c <= 4; ++c)
        std::printf("%s    ", on_off_text[rows[c].queue[q].*line.field]);
    std::fputs("\n", stdout);
}

} // namespace

std::int32_t RateKbpsToCode(std::int32_t kbps) {
    // The step at or below the rate: a rate between two steps gets the lower.
    for (std::size_t i = 0; i + 1 < rate_code_table.size(); ++i) {
        if (rate_code_table[i].kbps <= kbps && rate_code_table[i + 1].kbps > kbps)
            return rate_code_table[i].code;
    }
    return kbps >= TOP_TABLE_KBPS ? TOP_TABLE_CODE : 0;
}

std::int32_t RateCodeToKbps(std::int32_t code) {
    for (const RateCode &row : rate_code_table) {
        if (row.code == code)
            return row.kbps;
    }
    return 0;
}

void SwitchConfigTxRate(int fd, std::uint32_t p, std::int32_t kbps, std::uint8_t q) {
    config_rate(fd, egress_config, "egress", p, kbps, q);
}

void SwitchConfigRxRate(int fd, std::uint32_t p, std::int32_t kbps, std::uint8_t q) {
    config_rate(fd, ingress_config, "ingress", p, kbps, q);
}

void SwitchSetTxRate(int fd, std::int32_t flag, std::uint32_t p, std::uint8_t q) {
    switch_rate_off(fd, egress_off, flag, p, q);
}

void SwitchSetRxRate(int fd, std::int32_t flag, std::uint32_t p, std::uint8_t q) {
    switch_rate_off(fd, ingress_off, flag, p, q);
}

void SwitchSetRxFlowControl(int fd, std::int32_t flag, std::uint32_t p) {
    Range ports{};
    if (!select_ports(p, flow_control_all_ports, ports))
        return;
    for (unsigned i = ports.first; i <= ports.last; ++i)
        update_flag_bits(fd, limit_ctrl_reg(i), RX_FLOW_CONTROL, flag);
}

void SwitchSetRxLimitMode(int fd, std::uint32_t p, std::uint32_t mode) {
    // No all-ports choice here: port number 256 is an ordinary bad port.
    if (!port_index_valid(p))
        return;
    if (mode > LAST_LIMIT_MODE) {
        std::printf("error: incorrect Ingress limit mode (%d) to set! \n", static_cast<int>(mode));
        return;
    }
    const unsigned value = hw_read_byte(fd, limit_ctrl_reg(p));
    hw_write_byte(fd, limit_ctrl_reg(p), LIMIT_MODE.with(value, mode));
}

void SwitchShowRateInfo(int fd) {
    if (gDrvCtrl == nullptr)
        return;
    for (std::uint32_t i = 0; i < SWITCH_PORTS; ++i)
        read_port_rates(fd, i, gDrvCtrl->port_rate[i]);

    // Column c shows port index c; index 0 is read but has no column.
    const PortRateRow *rows = gDrvCtrl->port_rate;
    print_info_heading("\n                         Port :        %s\n");
    for (const RateLine &line : rate_lines)
        for (int q = 0; q < PORT_QUEUES; ++q)
            print_rate_line(line, q, rows);
    for (const FlagLine<RateQueueRow> &line : enable_lines)
        for (int q = 0; q < PORT_QUEUES; ++q)
            print_enable_line(line, q, rows);
    std::fputs("Receive flow control          : ", stdout);
    for (int c = 1; c <= 4; ++c)
        std::printf("%s    ", on_off_text[rows[c].queue[0].rx_flow_control]);
    std::fputs("\n", stdout);
    std::fputs("Rate Limit receive mode       : ", stdout);
    for (int c = 1; c <= 4; ++c)
        std::printf("%8d    ", rows[c].queue[0].rx_limit_mode);
    std::fputs("\n", stdout);
}

std::uint8_t rate_queue_arg(std::uint16_t argc, char **argv) {
    return argc > 2 ? static_cast<std::uint8_t>(cli_number(argv[2], 10)) : ALL_QUEUES;
}
