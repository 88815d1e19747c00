// The tool's single-register read (-r) and write (-w with -v).
#include "core/register_read_write.h"

#include "core/spi_access.h"
#include "core/tool_state.h"

#include <cstdio>

void read_register_action() {
    const std::uint8_t value = reg_read(tool_state.read_addr);
    std::printf("Register offset %3d (0x%X) = 0x%02X\n", tool_state.read_addr, tool_state.read_addr,
                value);
}

void write_register_action() {
    // The text comes before the transfer; nothing reads the register back.
    std::printf("writing 0x%X in 0x%X\n", tool_state.value, tool_state.write_addr);
    reg_write(tool_state.write_addr, tool_state.value);
}
