// SPI register access of the tool and the daemon, always on tool_state.spi_fd.
#pragma once

#include <cstdint>

// The chip's SPI commands: three bytes per access, command, register, data.
inline constexpr std::uint8_t SPI_CMD_READ = 0x03;
inline constexpr std::uint8_t SPI_CMD_WRITE = 0x02;
inline constexpr std::uint8_t SPI_DUMMY = 0xFF;
inline constexpr std::uint32_t SPI_FRAME_LEN = 3;

extern std::uint8_t spi_bits;   // bits per word, 8
extern std::uint32_t spi_speed; // maximum clock in Hz, 4,000,000

// One SPI_IOC_MESSAGE(1) of SPI_FRAME_LEN bytes; rx may be null, and a
// bits_per_word of 0 leaves the descriptor's setting. Returns the ioctl's result.
int spi_transfer(int fd, const std::uint8_t *tx, std::uint8_t *rx, std::uint8_t bits_per_word);

// Opens and configures spi_device; returns the speed ioctl's result (0 or -1).
int spi_setup();

// Returns the register's value, or 255 when the transfer failed.
std::uint8_t reg_read(std::uint8_t reg);
void reg_write(std::uint8_t reg, std::uint8_t value);
// Clears the mask's bits: a read and a write, the read not tested.
void reg_clear_bits(std::uint8_t reg, std::uint8_t mask);
