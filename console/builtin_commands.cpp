// The console commands that are no chip operations: help, exit, and the
// byte register commands rrb and rwb.
#include "console/builtin_commands.h"

#include "chip/device_database.h"
#include "console/cli_handler.h"
#include "console/cli_parser.h"
#include "console/hw_access.h"
#include "console/usage_table.h"

#include <cstdio>

namespace {

constexpr int REGISTER_BASE = 16;

} // namespace

int help_cmd(std::uint16_t * /*argc*/, char ** /*argv*/, std::uint16_t /*usage_index*/,
             int /*fd*/) {
    for (const char *row : cli_usage_table) {
        if (row[0] == '\0')
            break;
        std::printf("%s", row);
    }
    std::putchar('\n');
    return 1;
}

int exit_cmd(std::uint16_t * /*argc*/, char ** /*argv*/, std::uint16_t /*usage_index*/,
             int /*fd*/) {
    free_database();
    return 1;
}

int hwreadb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index, false))
        return 1;
    // The number is shown as given; only its low 8 bits reach the chip.
    const unsigned long reg = cli_number(argv[0], REGISTER_BASE);
    const std::uint8_t value = hw_read_byte(fd, static_cast<unsigned int>(reg));
    std::printf("reg.%02lX : %02x \n", reg, value);
    return cli_handler_done(*argc, argv);
}

int hwwriteb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 2, usage_index, false))
        return 1;
    const unsigned long reg = cli_number(argv[0], REGISTER_BASE);
    const unsigned long value = cli_number(argv[1], REGISTER_BASE);
    hw_write_byte(fd, static_cast<unsigned int>(reg), static_cast<unsigned int>(value & 0xFF));
    return cli_handler_done(*argc, argv);
}
