// The switch chip on the SPI bus, in process, for the fuzz targets: ioctl on
// either of two descriptors answers SPI_IOC_MESSAGE(1) from one bench chip
// model (zb::ChipState, its register file and the four indirect tables),
// after checking that the transfer has the shape its path must give it.
#pragma once

#include "testbench/chip_model.h"

#include <cstddef>
#include <cstdint>

// The tool's reg_read/reg_write on spi_fd, and the console's hw_read_byte/
// hw_write_byte on its own descriptor, differ in the shape of a write.
enum class SpiPath { tool, console };

struct SpiAccess {
    bool write;
    std::uint8_t reg;
    std::uint8_t value; // written, or what the read returned
};

namespace spidev_chip {

// The descriptor of the path; the first call opens both.
int fd(SpiPath path);

// A freshly reset chip of the board, and an empty access log.
zb::ChipState &reset(std::uint8_t board);

// The accesses since the reset, in order; the log keeps the first
// LOG_CAPACITY of them and counts them all.
inline constexpr std::size_t LOG_CAPACITY = 1 << 16;
std::size_t count();
const SpiAccess &access(std::size_t index);

} // namespace spidev_chip
