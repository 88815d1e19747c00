// SPI register access of the tool and the daemon, always on tool_state.spi_fd.
#pragma once

#include <cstdint>

extern std::uint8_t spi_bits;   // bits per word, 8
extern std::uint32_t spi_speed; // maximum clock in Hz, 4,000,000

// Opens and configures spi_device; returns the speed ioctl's result (0 or -1).
int spi_setup();

// Returns the register's value, or 255 when the transfer failed.
std::uint8_t reg_read(std::uint8_t reg);
void reg_write(std::uint8_t reg, std::uint8_t value);
// Clears the mask's bits: a read and a write, the read not tested.
void reg_clear_bits(std::uint8_t reg, std::uint8_t mask);
