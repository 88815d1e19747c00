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
#include "tests/fuzz/fuzz_support.h"

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstring>
#include <getopt.h>

namespace {

int leaves_ran = 0;
bool usage_ran = false;
std::jmp_buf after_usage;

} // namespace

[[noreturn]] void print_usage(const char *) {
    ++leaves_ran;
    usage_ran = true;
    std::longjmp(after_usage, 1);
}
void set_management_mode(std::int32_t) {
    ++leaves_ran;
}
int switch_console(const char *) {
    ++leaves_ran;
    return 0;
}
void load_config_file() {
    ++leaves_ran;
}
void show_switch_status(std::uint8_t, std::uint8_t, std::uint8_t) {
    ++leaves_ran;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The product prints on standard output, libFuzzer on standard error.
    FUZZ_CHECK(std::freopen("/dev/null", "w", stdout) != nullptr);
    opterr = 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Each argument in a block of its own, so that a read past its NUL shows.
    std::vector<char *> arguments;
    for (std::size_t at = 0; size > 0 && at <= size; at += std::strlen(arguments.back()) + 1)
        arguments.push_back(strndup(reinterpret_cast<const char *>(data + at), size - at));
    std::vector<char *> argv = arguments; // getopt_long reorders this one
    argv.push_back(nullptr);
    const int argc = static_cast<int>(arguments.size());

    tool_state = ToolState{.spi_fd = spi_fd(SpiPath::tool), .board_kind = BOARD_NAND};
    const char *const default_device = tool_state.spi_device;
    reset_chip(zb::kBoardNand);
    leaves_ran = 0;
    usage_ran = false;
    optind = 0; // a fresh scan

    parse_options(argc, argv.data());
    const auto inside_arguments = [&arguments](const char *text) {
        return std::any_of(arguments.begin(), arguments.end(), [text](const char *argument) {
            return text >= argument && text <= argument + std::strlen(argument);
        });
    };
    FUZZ_CHECK(tool_state.spi_device == default_device || inside_arguments(tool_state.spi_device));
    FUZZ_CHECK(tool_state.config_path == nullptr || inside_arguments(tool_state.config_path));

    if (setjmp(after_usage) == 0)
        run_action(ActionContext{argc, argc > 0 ? argv[0] : "", NAND_PROFILE});

    const std::uint32_t flags = tool_state.action_flags;
    FUZZ_CHECK(leaves_ran <= 1 && (!usage_ran || spi_log.empty()));
    if ((std::popcount(flags) > 1 && flags != (ACT_WRITE | ACT_VALUE)) || (flags == 0 && argc != 1))
        FUZZ_CHECK(usage_ran);
    if (flags == ACT_READ)
        FUZZ_CHECK(spi_log.size() == 1 && !spi_log[0].write &&
                   spi_log[0].reg == tool_state.read_addr);
    if (flags == (ACT_WRITE | ACT_VALUE))
        FUZZ_CHECK(spi_log.size() == 1 && spi_log[0].write &&
                   spi_log[0].reg == tool_state.write_addr && spi_log[0].value == tool_state.value);
    for (char *argument : arguments)
        std::free(argument);
    return 0;
}
