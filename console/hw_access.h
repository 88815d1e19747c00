// Register access of the console and the chip operations, on an explicit
// descriptor. Only the low 8 bits of a register number or value go on the wire.
#pragma once

#include <cstdint>

// The register's value, or 0xFF when the transfer failed.
std::uint8_t hw_read_byte(int fd, unsigned int reg);
void hw_write_byte(int fd, unsigned int reg, unsigned int value);
