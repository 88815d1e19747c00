// The tool's one-line switch status.
#include "core/switch_status.h"

#include "core/board.h"
#include "core/link_state.h"
#include "core/process_lookup.h"
#include "core/spi_access.h"
#include "core/tool_state.h"

#include <cstdio>

void show_switch_status(std::uint8_t chip_id, std::uint8_t link_reg_1, std::uint8_t link_reg_2) {
    if (tool_state.board_kind == BOARD_NOR)
        std::printf("%s %s ", "Zorvi HPB-NOR", "KSZ8893");
    else
        std::printf("%s %s ", "Zorvi HPB-NAND", "KSZ8864");

    if (reg_read(0) != chip_id) {
        std::puts("UNMANAGED/undetected");
        return;
    }
    std::printf("MANAGED ");
    std::printf("%s", link_state_text(read_link_state(link_reg_1, link_reg_2)));

    const std::int32_t daemon = find_process("switch_daemon");
    if (daemon != 0)
        std::printf(" daemon %d\n", daemon);
    else
        std::printf(" daemon NONE\n");
}
