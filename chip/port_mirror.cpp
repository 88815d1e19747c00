// Port mirroring. Per port, register 16p + 17 holds the transmit-monitored,
// receive-monitored and sniffer bits; bit 0 of the chip-wide register 5
// chooses whether a frame must match both directions or either one.
#include "chip/port_mirror.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/port_settings.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>

namespace {

constexpr unsigned REG_GLOBAL_CONTROL = 5;
constexpr std::uint8_t MIRROR_RX_AND_TX = 0x01;

// Register 16p + 17.
constexpr std::uint8_t MONITOR_TX = 0x20;
constexpr std::uint8_t MONITOR_RX = 0x40;
constexpr std::uint8_t SNIFFER = 0x80;

// Offset of the mirror register in a port's register block.
constexpr unsigned MIRROR_OFFSET = 17;

constexpr std::array<FlagLine<PortMirrorRow>, 3> flag_lines{{
    {"Mirror monitor transmit: ", &PortMirrorRow::tx},
    {"Mirror monitor receive : ", &PortMirrorRow::rx},
    {"Mirror sniffer         : ", &PortMirrorRow::sniffer},
}};

} // namespace

void SwitchSetPortMirrorTx(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, MIRROR_OFFSET, MONITOR_TX, flag);
}

void SwitchSetPortMirrorRx(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, MIRROR_OFFSET, MONITOR_RX, flag);
}

void SwitchSetPortSniffer(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, MIRROR_OFFSET, SNIFFER, flag);
}

void SwitchSetMirrorMode(int fd, std::int32_t sel) {
    update_flag_bits(fd, REG_GLOBAL_CONTROL, MIRROR_RX_AND_TX, sel);
}

void SwitchShowMirrorInfo(int fd) {
    if (gDrvCtrl == nullptr)
        return;
    for (std::uint32_t i = 0; i < SWITCH_PORTS; ++i) {
        const std::uint8_t value = hw_read_byte(fd, port_reg(i, MIRROR_OFFSET));
        PortMirrorRow &row = gDrvCtrl->port_mirror[i];
        row.tx = (value & MONITOR_TX) != 0 ? 1 : 0;
        row.rx = (value & MONITOR_RX) != 0 ? 1 : 0;
        row.sniffer = (value & SNIFFER) != 0 ? 1 : 0;
    }
    gDrvCtrl->mirror_rx_and_tx =
        (hw_read_byte(fd, REG_GLOBAL_CONTROL) & MIRROR_RX_AND_TX) != 0 ? 1 : 0;

    // Column c shows port index c; index 0 is read but has no column.
    print_info_heading("\n                  Port :        %s\n");
    print_flag_rows(flag_lines, gDrvCtrl->port_mirror);
    std::printf("Mirror Rx AND Tx       : %s\n", on_off_text[gDrvCtrl->mirror_rx_and_tx]);
}

int sniffmode_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    SwitchSetMirrorMode(fd, cli_int(argv[0]));
    return cli_handler_done(*argc, argv);
}
