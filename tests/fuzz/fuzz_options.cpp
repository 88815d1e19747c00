// Option parsing and action selection on arbitrary argument vectors: the
// input, cut at its NUL bytes, is the vector, argv[0] first (an empty input
// is the empty vector). parse_options applies the option table, and
// run_action carries out what the flags select. The register actions run on
// the in-process chip; the actions that end the process or reach beyond it
// are defined here as recorders, in place of the product's: the usage text
// (it ends the process), the management mode (GPIO files and waits), the
// console and the register-file loader (targets of their own; the loader
// would read whatever file the vector names) and the status line (it scans
// /proc). getopt_long's own messages are turned off.
//
// Besides the sanitizers, each vector checks:
// - the texts the parser keeps, tool_state.spi_device and .config_path, are
//   their defaults or lie inside the vector's arguments (no copy, no stray
//   pointer);
// - one action runs at most, and the usage text makes no transfer;
// - two different actions (-w with -v is one), or no action with more than
//   the program's name, give the usage text;
// - -r alone is one transfer, a read of its register; -w with -v one write
//   of its value to its register; every transfer has the tool's shape.
#include "console/switch_console.h"
#include "core/action_table.h"
#include "core/management_mode.h"
#include "core/options.h"
#include "core/register_file.h"
#include "core/switch_status.h"
#include "core/tool_state.h"
#include "core/usage.h"
#include "tests/fuzz/fuzz_check.h"
#include "tests/fuzz/spidev_chip.h"

#include <bit>
#include <csetjmp>
#include <cstring>
#include <getopt.h>
#include <vector>

namespace {

enum class Leaf { none, usage, mode, console, loader, status };
Leaf ran = Leaf::none;
std::jmp_buf after_usage;

void record(Leaf leaf) {
    FUZZ_CHECK(ran == Leaf::none);
    ran = leaf;
}

bool inside_arguments(const char *text, const std::vector<char *> &arguments) {
    for (const char *argument : arguments) {
        if (text >= argument && text <= argument + std::strlen(argument))
            return true;
    }
    return false;
}

} // namespace

[[noreturn]] void print_usage(const char *) {
    record(Leaf::usage);
    std::longjmp(after_usage, 1);
}
void set_management_mode(std::int32_t) {
    record(Leaf::mode);
}
int switch_console(const char *) {
    record(Leaf::console);
    return 0;
}
void load_config_file() {
    record(Leaf::loader);
}
void show_switch_status(std::uint8_t, std::uint8_t, std::uint8_t) {
    record(Leaf::status);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    product_output_to_null();
    opterr = 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Each argument in a block of its own, so that a read past its NUL shows.
    std::vector<char *> arguments;
    for (std::size_t at = 0; size > 0 && at <= size;) {
        const auto *piece = reinterpret_cast<const char *>(data + at);
        const std::size_t length = strnlen(piece, size - at);
        char *argument = static_cast<char *>(std::malloc(length + 1));
        std::memcpy(argument, piece, length);
        argument[length] = '\0';
        arguments.push_back(argument);
        at += length + 1;
    }
    std::vector<char *> argv = arguments; // getopt_long reorders this one
    argv.push_back(nullptr);
    const int argc = static_cast<int>(arguments.size());

    tool_state = ToolState{};
    tool_state.spi_fd = spidev_chip::fd(SpiPath::tool);
    tool_state.board_kind = BOARD_NAND;
    const char *const default_device = tool_state.spi_device;
    spidev_chip::reset(zb::kBoardNand);
    ran = Leaf::none;
    optind = 0; // a fresh scan

    parse_options(argc, argv.data());
    FUZZ_CHECK(tool_state.spi_device == default_device ||
               inside_arguments(tool_state.spi_device, arguments));
    FUZZ_CHECK(tool_state.config_path == nullptr ||
               inside_arguments(tool_state.config_path, arguments));

    if (setjmp(after_usage) == 0)
        run_action(ActionContext{argc, argc > 0 ? argv[0] : "", NAND_PROFILE});

    const std::uint32_t flags = tool_state.action_flags;
    const std::size_t transfers = spidev_chip::count();
    if (ran == Leaf::usage)
        FUZZ_CHECK(transfers == 0);
    if ((std::popcount(flags) > 1 && flags != (ACT_WRITE | ACT_VALUE)) || (flags == 0 && argc != 1))
        FUZZ_CHECK(ran == Leaf::usage);
    if (flags == ACT_READ || flags == (ACT_WRITE | ACT_VALUE)) {
        FUZZ_CHECK(transfers == 1);
        const SpiAccess &access = spidev_chip::access(0);
        if (flags == ACT_READ)
            FUZZ_CHECK(!access.write && access.reg == tool_state.read_addr);
        else
            FUZZ_CHECK(access.write && access.reg == tool_state.write_addr &&
                       access.value == tool_state.value);
    }

    std::fflush(stdout);
    for (char *argument : arguments)
        std::free(argument);
    return 0;
}
