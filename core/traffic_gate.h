// The two traffic gates for broadcast and multicast (-1, -2).
#pragma once

#include <cstdint>

struct TrafficGate {
    std::uint8_t reg;
    std::uint8_t mask;
};

inline constexpr TrafficGate GATE_PORT_1{49, 0x1A}; // -1, the upper port
inline constexpr TrafficGate GATE_PORT_2{33, 0x1C}; // -2, the lower port

// Value 1 opens the gate; any other value closes it.
void set_traffic_gate(TrafficGate gate, std::uint8_t value);
