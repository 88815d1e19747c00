// One register access: a zeroed transfer record with the three bytes.
#include "core/spi_frame.h"

#include <cstring>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

int spi_transfer(int fd, const std::uint8_t *tx, std::uint8_t *rx, std::uint8_t bits_per_word) {
    spi_ioc_transfer transfer;
    std::memset(&transfer, 0, sizeof transfer);
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx);
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx);
    transfer.len = SPI_FRAME_LEN;
    transfer.bits_per_word = bits_per_word;
    return ioctl(fd, SPI_IOC_MESSAGE(1), &transfer);
}
