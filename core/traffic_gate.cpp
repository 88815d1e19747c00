// The two traffic gates for broadcast and multicast (-1, -2).
#include "core/traffic_gate.h"

#include "core/spi_access.h"

namespace {
constexpr std::uint8_t REG_GLOBAL_CONTROL_2 = 4;
constexpr std::uint8_t GLOBAL_GATE_BIT = 0x80;
} // namespace

void set_traffic_gate(TrafficGate gate, std::uint8_t value) {
    if (value == 1) {
        reg_write(gate.reg, static_cast<std::uint8_t>(reg_read(gate.reg) | gate.mask));
        return;
    }
    // Closing either gate also clears bit 7 of register 4; opening does not
    // set it again.
    reg_clear_bits(REG_GLOBAL_CONTROL_2, GLOBAL_GATE_BIT);
    reg_clear_bits(gate.reg, gate.mask);
}
