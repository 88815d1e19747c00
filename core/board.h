// Board identification, the per-board constants and the link state.
#pragma once

#include <cstdint>

enum : std::int32_t {
    BOARD_UNKNOWN = 0,
    BOARD_NOR = 1,  // Zorvi HPB-NOR with a KSZ8893
    BOARD_NAND = 2, // Zorvi HPB-NAND with a KSZ8864
};

struct BoardProfile {
    std::uint8_t chip_id;    // what register 0 shows when the chip answers
    std::uint8_t link_reg_1; // bit 5 is port1_link
    std::uint8_t link_reg_2; // bit 5 is port2_link
};

inline constexpr BoardProfile NOR_PROFILE{0x88, 30, 46};
inline constexpr BoardProfile NAND_PROFILE{0x95, 46, 62};

// Bit 0 is port1_link, bit 1 port2_link.
using LinkState = std::uint8_t;

// A board kind, or -1 when /proc/cpuinfo cannot be opened.
std::int32_t detect_board();

// Bit 5 of the first register is bit 0, bit 5 of the second is bit 1.
LinkState link_state_of(std::uint8_t first, std::uint8_t second);
LinkState read_link_state(std::uint8_t link_reg_1, std::uint8_t link_reg_2);
const char *link_state_text(LinkState state);

// The pid of another process whose first argument holds the needle, or 0.
std::int32_t find_process(const char *needle);

void show_switch_status(std::uint8_t chip_id, std::uint8_t link_reg_1, std::uint8_t link_reg_2);
