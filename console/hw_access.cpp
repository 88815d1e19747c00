// The console's register access: the tool's three-byte command format on the
// console's own descriptor. A write passes no receive buffer and 0 bits per
// word, so that the descriptor's 8 bits apply.
#include "console/hw_access.h"

#include "core/spi_frame.h"

#include <cstdio>

std::uint8_t hw_read_byte(int fd, unsigned int reg) {
    const std::uint8_t tx[SPI_FRAME_LEN] = {SPI_CMD_READ, static_cast<std::uint8_t>(reg),
                                            SPI_DUMMY};
    std::uint8_t rx[SPI_FRAME_LEN] = {};
    if (spi_transfer(fd, tx, rx, SPI_BITS_PER_WORD) <= 0) {
        std::perror("can't send spi message");
        return 0xFF;
    }
    return rx[2];
}

void hw_write_byte(int fd, unsigned int reg, unsigned int value) {
    const std::uint8_t tx[SPI_FRAME_LEN] = {SPI_CMD_WRITE, static_cast<std::uint8_t>(reg),
                                            static_cast<std::uint8_t>(value)};
    if (spi_transfer(fd, tx, nullptr, 0) <= 0)
        std::fputs("can't write spi message", stderr);
}
