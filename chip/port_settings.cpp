#include "chip/port_settings.h"

#include "console/hw_access.h"

#include <cstdio>

bool port_index_valid(std::uint32_t p) {
    if (p > LAST_PORT_INDEX) {
        std::printf("error: incorrect Switch port (%d) to set! \n", static_cast<int>(p + 1));
        return false;
    }
    return true;
}

std::uint8_t with_flag_bits(std::uint8_t value, std::uint8_t mask, std::int32_t on) {
    return on == 1 ? static_cast<std::uint8_t>(value | mask)
                   : static_cast<std::uint8_t>(value & ~mask);
}

void update_flag_bits(int fd, unsigned reg, std::uint8_t mask, std::int32_t on) {
    hw_write_byte(fd, reg, with_flag_bits(hw_read_byte(fd, reg), mask, on));
}

void update_port_flag_bits(int fd, std::uint32_t p, unsigned offset, std::uint8_t mask,
                           std::int32_t on) {
    if (port_index_valid(p))
        update_flag_bits(fd, port_reg(p, offset), mask, on);
}
