// SPI register access of the tool and the daemon, always on tool_state.spi_fd.
#pragma once

#include <cstdint>

// Opens and configures tool_state.spi_device into tool_state.spi_fd; returns
// the speed ioctl's result (0 or -1).
int spi_setup();

// Returns the register's value, or 255 when the transfer failed.
std::uint8_t reg_read(std::uint8_t reg);
void reg_write(std::uint8_t reg, std::uint8_t value);
// Clears the mask's bits: a read and a write, the read not tested.
void reg_clear_bits(std::uint8_t reg, std::uint8_t mask);

// Owns tool_state.spi_fd for the ordinary end of a role: closes it when the
// scope ends. The early ways out of main (an unknown board, another instance,
// no pid file, the usage text) lie outside such a scope and leave the
// descriptor to the end of the process.
class SpiFdOwner {
  public:
    SpiFdOwner() = default;
    SpiFdOwner(const SpiFdOwner &) = delete;
    SpiFdOwner &operator=(const SpiFdOwner &) = delete;
    SpiFdOwner(SpiFdOwner &&) = delete;
    SpiFdOwner &operator=(SpiFdOwner &&) = delete;
    ~SpiFdOwner();
};
