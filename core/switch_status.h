// The tool's one-line switch status.
#pragma once

#include <cstdint>

// Board and chip, managed or not, the link state and the daemon's pid.
void show_switch_status(std::uint8_t chip_id, std::uint8_t link_reg_1, std::uint8_t link_reg_2);
