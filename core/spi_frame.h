// The chip's SPI command format, shared by the tool's and the console's
// register access: three bytes per access, command, register, data, in one
// SPI_IOC_MESSAGE(1) transfer.
#pragma once

#include <cstdint>

inline constexpr std::uint8_t SPI_CMD_READ = 0x03;
inline constexpr std::uint8_t SPI_CMD_WRITE = 0x02;
inline constexpr std::uint8_t SPI_DUMMY = 0xFF; // sent while the value comes back
inline constexpr std::uint32_t SPI_FRAME_LEN = 3;
inline constexpr std::uint8_t SPI_BITS_PER_WORD = 8;

// One transfer of SPI_FRAME_LEN bytes; rx may be null, and a bits_per_word of
// 0 leaves the descriptor's setting. Returns the ioctl's result.
int spi_transfer(int fd, const std::uint8_t *tx, std::uint8_t *rx, std::uint8_t bits_per_word);
