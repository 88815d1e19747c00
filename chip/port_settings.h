// What the per-port setting operations share: the port index check with its
// message, the read-modify-write of flag bits, and the <Port> <value> handler.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

inline constexpr std::uint32_t LAST_PORT_INDEX = SWITCH_PORTS - 1;

// False, after "error: incorrect Switch port (%d) to set! \n" with the port
// number, when p is no port index.
bool port_index_valid(std::uint32_t p);

// The bits of mask set when on is exactly 1, cleared for any other value.
std::uint8_t with_flag_bits(std::uint8_t value, std::uint8_t mask, std::int32_t on);

// Reads the register and writes it back with the bits of mask set or cleared;
// every other bit passes through unchanged.
void update_flag_bits(int fd, unsigned reg, std::uint8_t mask, std::int32_t on);

// The handlers of the form <Port> <value>: the port number becomes its index.
template <void (*Operation)(int, std::uint32_t, std::int32_t)>
int port_value_handler(std::uint16_t argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(argc, argv, 2, usage_index))
        return 1;
    Operation(fd, cli_port_index(argv[0]), cli_int(argv[1]));
    return cli_handler_done(argc, argv);
}
