// Board identification by the machine name, and the per-board constants.
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

// A board kind, or -1 when /proc/cpuinfo cannot be opened.
std::int32_t detect_board();
