// The indirect table protocol: control byte to register 110, then the low
// address byte to register 111, whose write starts the chip's action.
#include "chip/table_access.h"

#include "console/hw_access.h"

namespace {
constexpr unsigned REG_TABLE_MAC_FIRST = 115;

void table_set_address(int fd, unsigned control, unsigned address) {
    hw_write_byte(fd, REG_TABLE_CONTROL, control | ((address >> 8) & 0x03));
    hw_write_byte(fd, REG_TABLE_ADDRESS, address & 0xFF);
}
} // namespace

void table_read_start(int fd, std::uint8_t table, unsigned address) {
    table_set_address(fd, TABLE_READ | table, address);
}

void table_write_commit(int fd, std::uint8_t table, unsigned address) {
    table_set_address(fd, table, address);
}

std::uint8_t table_poll_ready(int fd, unsigned reg, std::uint8_t mask, std::uint8_t ready) {
    constexpr unsigned READY_POLLS = 100;
    std::uint8_t value = 0;
    for (unsigned poll = 0; poll < READY_POLLS; ++poll) {
        value = hw_read_byte(fd, reg);
        if ((value & mask) == ready)
            break;
    }
    return value;
}

void table_read_mac(int fd, std::uint8_t *mac) {
    for (unsigned i = 0; i < MAC_BYTES; ++i)
        mac[i] = hw_read_byte(fd, REG_TABLE_MAC_FIRST + i);
}

void table_write_mac(int fd, const std::uint8_t *mac) {
    for (unsigned i = 0; i < MAC_BYTES; ++i)
        hw_write_byte(fd, REG_TABLE_MAC_FIRST + i, mac[i]);
}

std::uint32_t table_read_number(int fd, unsigned first) {
    std::uint32_t number = 0;
    for (unsigned reg = first; reg <= REG_TABLE_DATA_LAST; ++reg)
        number = (number << 8) | hw_read_byte(fd, reg);
    return number;
}
