// What the per-port setting operations share: the port index check with its
// message and the read-modify-write of flag bits.
#pragma once

#include "chip/device_database.h"

inline constexpr std::uint32_t LAST_PORT_INDEX = SWITCH_PORTS - 1;

// Each port has four priority queues, 0 to 3.
inline constexpr int PORT_QUEUES = 4;
inline constexpr int LAST_QUEUE = PORT_QUEUES - 1;

// False, after "error: incorrect Switch port (%d) to set! \n" with the port
// number, when p is no port index.
bool port_index_valid(std::uint32_t p);

// The bits of mask set when on is exactly 1, cleared for any other value.
std::uint8_t with_flag_bits(std::uint8_t value, std::uint8_t mask, std::int32_t on);

// A field of adjacent bits in a register: its mask and the shift of its
// lowest bit.
struct RegField {
    std::uint8_t mask;
    unsigned shift;

    // The field's number in a register value.
    constexpr std::uint8_t get(std::uint8_t value) const {
        return static_cast<std::uint8_t>((value & mask) >> shift);
    }
    // The register value with the field replaced by number, which the caller
    // has checked to fit.
    constexpr unsigned with(unsigned value, unsigned number) const {
        return (value & ~unsigned{mask}) | (number << shift);
    }
};

// Reads the register and writes it back with the bits of mask set or cleared;
// every other bit passes through unchanged.
void update_flag_bits(int fd, unsigned reg, std::uint8_t mask, std::int32_t on);

// Each port has a block of 16 registers: the register at offset in port p's
// block is 16p + offset.
constexpr unsigned port_reg(std::uint32_t p, unsigned offset) {
    return 16 * p + offset;
}

// The port check, then update_flag_bits on the port's register 16p + offset.
void update_port_flag_bits(int fd, std::uint32_t p, unsigned offset, std::uint8_t mask,
                           std::int32_t on);
