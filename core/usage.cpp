// The usage text.
#include "core/usage.h"

#include "core/tool_state.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {
constexpr std::array<const char *, 14> usage_lines{
    "  -m | --managed        change switch to managed mode",
    "  -u | --unmanaged      change switch to unmanaged mode",
    "  -r | --read=ADDR      read byte at ADDR",
    "  -w | --write=ADDR     write byte at ADDR",
    "  -v | --value=VAL      value to write",
    "  -c | --config=FILE    write values from FILE",
    "  -d | --dump           dump all registers",
    "  -M | --dump-mib       dump all MIB Counters",
    "  -C | --switch-console enter switch manager console",
    "  -y | --mac-dyn-table  show dynamic mac table",
    "  -1 | --enable-bcmc-1=1/0  enable/disable multicast and broadcast traffic through eth port 1 "
    "(the upper one)",
    "  -2 | --enable-bcmc-2=1/0  enable/disable multicast and broadcast traffic through eth port 2 "
    "(the lower one)",
    "  -h | --help           show this message",
    "  without arguments:    show switch status",
};
} // namespace

void print_usage(const char *program) {
    std::printf("Usage: %s [-DmurwvcdMCy12h]\n", program);
    std::printf("  -D | --device         spi device to use, default %s\n", tool_state.spi_device);
    for (const char *line : usage_lines)
        std::puts(line);
    std::exit(1);
}
