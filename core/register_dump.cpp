// The dump of all 256 registers, in the register file's own format.
#include "core/register_dump.h"

#include "core/spi_access.h"

#include <cstdio>

void dump_registers() {
    std::printf("####  ");
    for (unsigned column = 0; column < 16; ++column) {
        if (column == 8)
            std::printf(" ");
        std::printf(" %01x ", column);
    }
    std::printf("\n");

    for (unsigned base = 0x00; base <= 0xF0; base += 0x10) {
        std::printf("%04x  ", base);
        for (unsigned column = 0; column < 16; ++column) {
            if (column == 8)
                std::printf(" ");
            // Each register is read and printed at once, one transfer each.
            std::printf("%02x ", reg_read(static_cast<std::uint8_t>(base + column)));
        }
        std::printf("\n");
    }
}
