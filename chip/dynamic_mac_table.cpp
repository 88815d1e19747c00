// The chip's dynamic (learned) MAC table: a walk over its valid entries.
#include "chip/mac_tables.h"

#include "chip/port_columns.h"
#include "chip/table_access.h"
#include "console/hw_access.h"

#include <cstddef>
#include <cstdio>

namespace {

constexpr unsigned DYN_MAC_ENTRIES = 1024;

// Entry as read: 112 bit 7 = table empty, 112 bits 6-0 and 113 bits 7-5 = the
// number of valid entries minus 1, 113 bits 4-3 aging time, 113 bits 2-0
// source port; 114 bit 7 = not ready, 114 bits 6-0 FID; then the MAC.
constexpr unsigned REG_DYN_COUNT_HIGH = 112;
constexpr unsigned REG_DYN_COUNT_LOW = 113;
constexpr unsigned REG_DYN_FID = 114;
constexpr std::uint8_t DYN_EMPTY = 0x80;
constexpr std::uint8_t DYN_NOT_READY = 0x80;

// The number of valid entries; the chip reports it with every entry.
unsigned valid_entries(std::uint8_t high, std::uint8_t low) {
    return ((static_cast<unsigned>(high & 0x7F) << 3) | (static_cast<unsigned>(low) >> 5)) + 1;
}

// The source port as a column mark: column c shows 'M' when the port value
// is c. Values 0, 5, 6 and 7 mark none.
void format_source_port(unsigned source, char *buffer) {
    for (std::size_t column = 1; column <= 4; ++column) {
        buffer[2 * (column - 1)] = source == column ? 'M' : '-';
        buffer[2 * (column - 1) + 1] = ' ';
    }
    buffer[8] = '\0';
}

} // namespace

void SwitchReadDynMacTable(int fd) {
    char header[4 * (1 + 1) + 1];
    format_port_header(header, 1);
    std::printf("Entry  MAC                 FID  Port(%s) AgingTime \n", header);
    for (unsigned entry = 0; entry < DYN_MAC_ENTRIES; ++entry) {
        table_read_start(fd, TABLE_DYNAMIC_MAC, entry);
        const std::uint8_t high = hw_read_byte(fd, REG_DYN_COUNT_HIGH);
        if ((high & DYN_EMPTY) != 0)
            break;
        const std::uint8_t low = hw_read_byte(fd, REG_DYN_COUNT_LOW);
        if (entry >= valid_entries(high, low))
            break;
        const std::uint8_t fid_byte = table_poll_ready(fd, REG_DYN_FID, DYN_NOT_READY, 0);
        if ((fid_byte & DYN_NOT_READY) != 0) {
            std::printf("%s: This MAC entry (%d) is not ready for read\n", "SwitchReadDynMacTable",
                        static_cast<int>(entry));
            continue;
        }
        std::uint8_t mac[MAC_BYTES];
        table_read_mac(fd, mac);
        char ports[9];
        format_source_port(low & 0x07U, ports);
        std::printf("%4d   ", static_cast<int>(entry));
        std::printf("%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                    mac[5]);
        std::printf("  %4d  ", fid_byte & 0x7F);
        std::printf("     %s", ports);
        std::printf("  %2d \n", (low >> 3) & 0x03);
    }
}
