// The process-wide record of both roles.
#pragma once

#include <cstdint>

struct ToolState {
    std::int32_t spi_fd;        // negative when the open failed
    std::int32_t board_kind;    // what detect_board returned
    std::uint32_t action_flags; // OR of the action flags seen
    std::uint8_t read_addr;     // register given to -r
    std::uint8_t write_addr;    // register given to -w
    std::uint8_t value;         // shared by -v, -1 and -2: the last one wins
    std::uint8_t spi_mode;      // the tool path always runs in mode 0
};

// All zero at process start.
extern ToolState tool_state;

// Pointers into argv, stored by the option parser without a copy.
extern const char *spi_device;
extern const char *config_path;
