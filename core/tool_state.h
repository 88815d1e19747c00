// The process-wide record of both roles.
#pragma once

#include <cstdint>

struct ToolState {
    std::int32_t spi_fd = 0;        // negative when the open failed
    std::int32_t board_kind = 0;    // what detect_board returned
    std::uint32_t action_flags = 0; // OR of the action flags seen
    std::uint8_t read_addr = 0;     // register given to -r
    std::uint8_t write_addr = 0;    // register given to -w
    std::uint8_t value = 0;         // shared by -v, -1 and -2: the last one wins
    std::uint8_t spi_mode = 0;      // the tool path always runs in mode 0
    // The two settings of the command line, pointers into argv stored by the
    // option parser without a copy: the device (-D) and the register file (-c).
    const char *spi_device = "/dev/spidev0.0";
    const char *config_path = nullptr;
};

// All zero at process start, but for the default device.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the process-wide record
extern ToolState tool_state;
