// The tool's direct register actions: read, write, dump, load, traffic gates.
#pragma once

#include <cstdint>

struct TrafficGate {
    std::uint8_t reg;
    std::uint8_t mask;
};

inline constexpr TrafficGate GATE_PORT_1{49, 0x1A}; // -1, the upper port
inline constexpr TrafficGate GATE_PORT_2{33, 0x1C}; // -2, the lower port

// A data line of a register file: a base of at most 4 hex digits and sixteen
// values of at most 2. False when the line does not supply all 17 fields.
bool parse_register_line(const char *line, unsigned int &base, unsigned int (&values)[16]);

void read_register_action();
void write_register_action();
void dump_registers();
void load_config_file();
void set_traffic_gate(TrafficGate gate, std::uint8_t value);
