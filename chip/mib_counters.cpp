// Per-port MIB counters. The chip's counters clear on read, so the console
// keeps running sums in gDrvCtrl->port_mib until clearmib.
#include "chip/mib_counters.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/table_access.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>

namespace {

constexpr unsigned MIB_COUNTERS = 32;

// Counter read: 117 holds overflow, ready and value bits 29-24; 118 to 120
// the rest. A dropped-packet count is 16 bits in 119 (high) and 120 (low).
constexpr unsigned REG_MIB_STATUS = 117;
constexpr unsigned REG_MIB_VALUE_LOW_BYTES = 118;
constexpr unsigned REG_MIB_DROPPED = 119;
constexpr std::uint8_t MIB_OVERFLOW = 0x80;
constexpr std::uint8_t MIB_READY = 0x40;
constexpr std::uint32_t MIB_VALUE_MASK = 0x3FFFFFFF;
constexpr std::uint32_t MIB_OVERFLOW_STEP = 0x40000000;

// Table addresses of the two dropped-packet counts of a port: [0] transmit,
// [1] receive.
constexpr unsigned MIB_DROPPED_BASE[2] = {0x100, 0x105};

constexpr const char *mib_labels[MIB_COUNTERS] = {
    "RxLoPriorityByte     : ", "RxHiPriorityByte     : ", "RxUndersizePkt       : ",
    "RxFragments          : ", "RxOversize           : ", "RxJabbers            : ",
    "RxSymbolError        : ", "RxCRCError           : ", "RxAlignmentError     : ",
    "RxCtrl8808Pkts       : ", "RxPausePkts          : ", "RxBroadcastPkts      : ",
    "RxMulticastPkts      : ", "RxUnicastPkts        : ", "Rx64Octets           : ",
    "Rx65to127Octets      : ", "Rx128to255Octets     : ", "Rx256to511Octets     : ",
    "Rx512to1023Octets    : ", "Rx1024to1522Octets   : ", "TxLoPriorityByte     : ",
    "TxHiPriorityByte     : ", "TxLateCollision      : ", "TxPausePkts          : ",
    "TxBroadcastPkts      : ", "TxMulticastPkts      : ", "TxUnicastPkts        : ",
    "TxDeferred           : ", "TxTotalCollision     : ", "TxExcessiveCollision : ",
    "TxSingleCollision    : ", "TxMultiCollision     : ",
};
constexpr const char *TX_DROPPED_LABEL = "TxDroppedPackets     : ";
constexpr const char *RX_DROPPED_LABEL = "RxDroppedPackets     : ";

// TxLateCollision is shown after TxUnicastPkts, not in its chip position.
constexpr std::uint8_t mib_display_order[MIB_COUNTERS] = {
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
    16, 17, 18, 19, 20, 21, 23, 24, 25, 26, 22, 27, 28, 29, 30, 31,
};

void read_counter(int fd, unsigned address, std::uint32_t &word) {
    table_read_start(fd, TABLE_MIB, address);
    const std::uint8_t status = table_poll_ready(fd, REG_MIB_STATUS, MIB_READY, MIB_READY);
    if ((status & MIB_READY) == 0) {
        std::printf("%s: This MIB count (0x%x) is not ready for read\n", "HardwareReadMIBCounter",
                    address);
        return;
    }
    const std::uint32_t raw =
        (static_cast<std::uint32_t>(status) << 24) | table_read_number(fd, REG_MIB_VALUE_LOW_BYTES);
    if ((status & MIB_OVERFLOW) != 0)
        word += MIB_OVERFLOW_STEP;
    word += raw & MIB_VALUE_MASK;
}

// The chip's dropped-packet counts run free over 16 bits and do not clear on
// read: the sum grows by the forward distance from the last raw value.
void read_dropped(int fd, MibBlock &block, unsigned port_index, unsigned k) {
    const unsigned address = MIB_DROPPED_BASE[k] + port_index;
    table_read_start(fd, TABLE_MIB, address);
    const std::uint32_t value = table_read_number(fd, REG_MIB_DROPPED);
    const std::uint32_t last = block.dropped_raw[k];
    if (value == last)
        return;
    block.dropped_raw[k] = value;
    block.dropped[k] = block.dropped[k] - last + value + (value < last ? 0x10000U : 0U);
}

// One display row: the label, then one 12-character column per port index
// from first to end - 1. The words are shown as signed 32-bit numbers.
void print_words(const char *label, unsigned first, unsigned end, unsigned word, bool dropped) {
    std::fputs(label, stdout);
    for (unsigned index = first; index < end; ++index) {
        const MibBlock &block = gDrvCtrl->port_mib[index];
        const std::uint32_t value = dropped ? block.dropped[word] : block.counter[word];
        std::printf("%8ld    ", static_cast<long>(static_cast<std::int32_t>(value)));
    }
    std::putchar('\n');
}

void HardwareReadMIBCounter(int fd, DrvCtrl *record, unsigned port_index) {
    // port_mib has one block per chip port; nothing else may be indexed.
    // GCOVR_EXCL_START: no caller passes a null record or an index past the ports
    if (record == nullptr || port_index >= SWITCH_PORTS)
        return;
    // GCOVR_EXCL_STOP
    MibBlock &block = record->port_mib[port_index];
    for (unsigned i = 0; i < MIB_COUNTERS; ++i)
        read_counter(fd, port_index * MIB_COUNTERS + i, block.counter[i]);
    read_dropped(fd, block, port_index, 0);
    read_dropped(fd, block, port_index, 1);
}

} // namespace

void SwitchShowMIBCounter(int fd, std::int32_t port) {
    if (gDrvCtrl == nullptr)
        return;
    // The number typed is one more than the port index; computed unsigned so
    // that the largest index cannot overflow.
    const auto typed = static_cast<std::int32_t>(static_cast<std::uint32_t>(port) + 1U);
    unsigned first = 1;
    unsigned end = SWITCH_PORTS;
    if (port == MIB_ALL_PORTS) {
        char header[4 * (11 + 1) + 1];
        format_port_header(header, 11);
        std::printf("\n                 Port:        %s\n", header);
    } else if (port > 3 || port < -1) {
        // Index -1 is the argument 0, shown as an empty display. Any other
        // negative index comes from a number beyond the signed 32-bit range;
        // its low byte would select a block past port_mib, so it is refused
        // like any other port number that is too large.
        std::printf("error: incorrect Switch port (%d) to set! \n", typed);
        return;
    } else {
        // For index -1 first is 0xFF and end is 0: no port is read and the
        // rows carry their labels only.
        first = static_cast<std::uint8_t>(port);
        end = static_cast<std::uint8_t>(typed);
        std::printf("\n                 Port:        %d\n", typed);
    }
    std::putchar('\n');
    for (unsigned index = 0; index < end; ++index)
        HardwareReadMIBCounter(fd, gDrvCtrl, index);
    for (const std::uint8_t word : mib_display_order)
        print_words(mib_labels[word], first, end, word, false);
    std::putchar('\n');
    print_words(RX_DROPPED_LABEL, first, end, 1, true);
    print_words(TX_DROPPED_LABEL, first, end, 0, true);
}

void SwitchClearMIBCounter(int fd) {
    if (gDrvCtrl == nullptr)
        return;
    // Reading first empties the chip's clear-on-read counters, so that the
    // next display starts from what arrives after this command.
    for (unsigned index = 0; index < SWITCH_PORTS; ++index)
        HardwareReadMIBCounter(fd, gDrvCtrl, index);
    // The dropped-packet sums and their last raw values stay: those chip
    // counts are not cleared by a read.
    for (MibBlock &block : gDrvCtrl->port_mib)
        for (std::uint32_t &word : block.counter)
            word = 0;
}

int showmib_cmd(std::uint16_t *argc, char **argv, std::uint16_t /*usage_index*/, int fd) {
    cli_echo_tokens(*argc, argv, true);
    std::int32_t port = MIB_ALL_PORTS;
    if (*argc >= 1)
        port = static_cast<std::int32_t>(cli_number(argv[0], 10) - 1);
    SwitchShowMIBCounter(fd, port);
    return cli_handler_done(*argc, argv);
}
