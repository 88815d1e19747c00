// SPI access of the tool and the daemon: spidev set-up and the three register
// primitives on tool_state.spi_fd. Each access is one three-byte transfer.
#include "core/spi_access.h"

#include "core/spi_frame.h"
#include "core/tool_state.h"

#include <cstdio>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {
constexpr std::uint32_t SPI_MAX_SPEED_HZ = 4000000;
} // namespace

int spi_setup() {
    // No step's failure keeps the next one from running: with no device each
    // ioctl reports its own failure.
    tool_state.spi_fd = open(tool_state.spi_device, O_RDWR);
    if (tool_state.spi_fd < 0)
        std::perror("can't open device");

    int ret = ioctl(tool_state.spi_fd, SPI_IOC_WR_MODE, &tool_state.spi_mode);
    if (ret == -1)
        std::perror("can't set spi mode");

    std::uint8_t bits = SPI_BITS_PER_WORD;
    ret = ioctl(tool_state.spi_fd, SPI_IOC_WR_BITS_PER_WORD, &bits);
    if (ret == -1)
        std::perror("can't set bits per word");

    std::uint32_t speed = SPI_MAX_SPEED_HZ;
    ret = ioctl(tool_state.spi_fd, SPI_IOC_WR_MAX_SPEED_HZ, &speed);
    if (ret == -1)
        std::perror("can't set max speed hz");
    return ret;
}

std::uint8_t reg_read(std::uint8_t reg) {
    const std::uint8_t tx[SPI_FRAME_LEN] = {SPI_CMD_READ, reg, SPI_DUMMY};
    std::uint8_t rx[SPI_FRAME_LEN] = {};
    if (spi_transfer(tool_state.spi_fd, tx, rx, SPI_BITS_PER_WORD) > 0)
        return rx[2];
    std::perror("can't send spi message");
    return 255;
}

void reg_write(std::uint8_t reg, std::uint8_t value) {
    const std::uint8_t tx[SPI_FRAME_LEN] = {SPI_CMD_WRITE, reg, value};
    std::uint8_t rx[SPI_FRAME_LEN] = {};
    if (spi_transfer(tool_state.spi_fd, tx, rx, SPI_BITS_PER_WORD) <= 0)
        std::perror("can't send spi message");
}

void reg_clear_bits(std::uint8_t reg, std::uint8_t mask) {
    // A failed read gives 255, so the write then puts 0xFF less the mask.
    reg_write(reg, static_cast<std::uint8_t>(reg_read(reg) & ~mask));
}

SpiFdOwner::~SpiFdOwner() {
    if (tool_state.spi_fd >= 0) {
        close(tool_state.spi_fd);
        tool_state.spi_fd = -1;
    }
}
