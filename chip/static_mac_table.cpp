// The chip's 32-row static MAC table: display, add and delete.
#include "chip/mac_tables.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/table_access.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned STATIC_MAC_ROWS = 32;

// A static row spans registers 113 to 120. The chip reads it back in another
// layout than it is written in: on a read, FID sits in bits 7-1 of 113 and
// UseFID in bit 0; on a write, FID sits in bits 6-0 of 113 and UseFID in bit 7
// of 114. Override, valid and the port mask share register 114 in both.
constexpr unsigned REG_STATIC_FID = 113;
constexpr unsigned REG_STATIC_FLAGS = 114;
constexpr std::uint8_t STATIC_WRITE_USE_FID = 0x80;
constexpr std::uint8_t STATIC_OVERRIDE = 0x40;
constexpr std::uint8_t STATIC_VALID = 0x20;
constexpr std::uint8_t STATIC_PORT_MASK = 0x1F;

constexpr std::uint8_t zero_mac[MAC_BYTES] = {};

std::uint32_t HardwareReadStaticMac(int fd, unsigned row, std::uint8_t *mac, std::uint16_t *ports,
                                    std::uint8_t *fid, std::uint32_t *override,
                                    std::uint32_t *use_fid, std::uint32_t *valid) {
    table_read_start(fd, TABLE_STATIC_MAC, row);
    const std::uint8_t fid_byte = hw_read_byte(fd, REG_STATIC_FID);
    const std::uint8_t flags = hw_read_byte(fd, REG_STATIC_FLAGS);
    table_read_mac(fd, mac);
    *fid = static_cast<std::uint8_t>(fid_byte >> 1);
    *use_fid = fid_byte & 0x01U;
    *override = (flags & STATIC_OVERRIDE) != 0 ? 1U : 0U;
    *valid = (flags & STATIC_VALID) != 0 ? 1U : 0U;
    *ports = static_cast<std::uint16_t>(flags & STATIC_PORT_MASK);
    return *valid;
}

void HardwareWriteStaticMac(int fd, unsigned row, const std::uint8_t *mac, std::uint16_t ports,
                            std::uint8_t fid, std::uint32_t override, std::uint32_t use_fid,
                            std::uint32_t valid) {
    unsigned flags = ports & STATIC_PORT_MASK;
    if (valid != 0U)
        flags |= STATIC_VALID;
    if (override != 0U)
        flags |= STATIC_OVERRIDE;
    if (use_fid != 0U)
        flags |= STATIC_WRITE_USE_FID;
    hw_write_byte(fd, REG_STATIC_FID, fid & 0x7FU);
    hw_write_byte(fd, REG_STATIC_FLAGS, flags);
    table_write_mac(fd, mac);
    table_write_commit(fd, TABLE_STATIC_MAC, row);
}

void read_row(int fd, unsigned row, StaticMacRow &out) {
    HardwareReadStaticMac(fd, row, out.mac, &out.ports, &out.fid, &out.override, &out.use_fid,
                          &out.valid);
}

void write_zero_row(int fd, unsigned row) {
    HardwareWriteStaticMac(fd, row, zero_mac, 0, 0, 0, 0, 0);
}

const char *yes_no(std::uint32_t flag) {
    return flag != 0U ? "Yes  " : "No   ";
}

} // namespace

void parse_mac_text(const char *text, std::uint8_t *mac) {
    const char *at = text;
    for (unsigned i = 0; i < MAC_BYTES; ++i) {
        char *stop = nullptr;
        mac[i] = static_cast<std::uint8_t>(std::strtoul(at, &stop, 16) & 0xFF);
        at = stop;
        // Any one character separates two bytes; at the end of the text the
        // remaining bytes read as 0.
        if (*at != '\0')
            ++at;
    }
}

void SwitchReadStaticMacTable(int fd) {
    char header[4 * (1 + 1) + 1];
    format_port_header(header, 1);
    std::printf("Entry  Status   MAC                 FID  Port(%s) UseFID  Override \n", header);
    for (unsigned row = 0; row < STATIC_MAC_ROWS; ++row) {
        StaticMacRow entry{};
        read_row(fd, row, entry);
        char ports[9];
        format_port_map(static_cast<std::uint32_t>(entry.ports >> 1), ports);
        std::printf("%4d   ", static_cast<int>(row));
        std::printf("%s ", entry.valid != 0U ? "   V    " : "        ");
        std::printf("%02x:%02x:%02x:%02x:%02x:%02x", entry.mac[0], entry.mac[1], entry.mac[2],
                    entry.mac[3], entry.mac[4], entry.mac[5]);
        std::printf("  %4d  ", entry.fid);
        std::printf("     %s", ports);
        std::printf("  %s ", yes_no(entry.use_fid));
        std::printf("  %s ", yes_no(entry.override));
        std::putchar('\n');
    }
}

void SwitchAddStaticMac(int fd, const std::uint8_t *mac, std::uint32_t port_index,
                        std::uint32_t override, std::uint8_t fid, std::uint32_t use_fid) {
    if (gDrvCtrl == nullptr)
        return;
    StaticMacRow *rows = gDrvCtrl->static_mac;
    for (unsigned row = 0; row < STATIC_MAC_ROWS; ++row)
        read_row(fd, row, rows[row]);

    // The entry of this address and FID, valid or not; else the first free row.
    unsigned chosen = STATIC_MAC_ROWS;
    for (unsigned row = 0; row < STATIC_MAC_ROWS && chosen == STATIC_MAC_ROWS; ++row)
        if (std::memcmp(rows[row].mac, mac, MAC_BYTES) == 0 && rows[row].fid == fid)
            chosen = row;
    for (unsigned row = 0; row < STATIC_MAC_ROWS && chosen == STATIC_MAC_ROWS; ++row)
        if (rows[row].valid == 0)
            chosen = row;
    if (chosen == STATIC_MAC_ROWS) {
        std::printf("error: can't add new entry, MAC table is full! \n");
        return;
    }
    // Ports add up over repeated commands; the flags take this command's values.
    const auto ports = static_cast<std::uint16_t>(port_mask_bit(port_index) | rows[chosen].ports);
    HardwareWriteStaticMac(fd, chosen, mac, ports, fid, override, use_fid, 1);
}

void SwitchDelStaticMac(int fd, const std::uint8_t *mac, std::uint8_t fid, std::uint32_t ignore_fid,
                        std::uint32_t all) {
    if (gDrvCtrl == nullptr)
        return;
    if (all == 1) {
        for (unsigned row = 0; row < STATIC_MAC_ROWS; ++row)
            write_zero_row(fd, row);
        return;
    }
    StaticMacRow *rows = gDrvCtrl->static_mac;
    for (unsigned row = 0; row < STATIC_MAC_ROWS; ++row)
        read_row(fd, row, rows[row]);
    // Every matching row goes, so one command also removes duplicates.
    for (unsigned row = 0; row < STATIC_MAC_ROWS; ++row)
        if (std::memcmp(rows[row].mac, mac, MAC_BYTES) == 0 &&
            (ignore_fid == 1 || rows[row].fid == fid))
            write_zero_row(fd, row);
}

int macadd_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 3, usage_index))
        return 1;
    std::uint8_t mac[MAC_BYTES];
    parse_mac_text(argv[0], mac);
    const auto port_index = cli_port_index(argv[1]);
    const auto override = static_cast<std::uint32_t>(cli_number(argv[2], 16));
    const std::uint32_t use_fid = *argc >= 4 ? 1 : 0;
    SwitchAddStaticMac(fd, mac, port_index, override, cli_fid_or_0(*argc, argv, 3), use_fid);
    return cli_handler_done(*argc, argv);
}

int macdel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    std::uint8_t mac[MAC_BYTES] = {};
    std::uint8_t fid = 0;
    std::uint32_t ignore_fid = 1;
    std::uint32_t all = 0;
    if (std::strcmp(argv[0], "all") == 0) {
        all = 1;
    } else {
        parse_mac_text(argv[0], mac);
        fid = cli_fid_or_0(*argc, argv, 1);
        ignore_fid = *argc >= 2 ? 0 : 1;
    }
    SwitchDelStaticMac(fd, mac, fid, ignore_fid, all);
    return cli_handler_done(*argc, argv);
}
