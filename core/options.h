// The command line: the options, their action flags and number parsing.
#pragma once

#include <cstdint>

// One bit per action option; the tool dispatches on the exact OR of these.
enum : std::uint32_t {
    ACT_MANAGED = 1,
    ACT_READ = 2,
    ACT_WRITE = 4,
    ACT_VALUE = 8,
    ACT_CONFIG = 16,
    ACT_DUMP = 32,
    ACT_DUMP_MIB = 64,
    ACT_UNMANAGED = 128,
    ACT_HELP = 256,
    ACT_CONSOLE = 512,
    ACT_MAC_DYN = 1024,
    ACT_BCMC_1 = 2048,
    ACT_BCMC_2 = 4096,
};

// Applies every option to tool_state.
void parse_options(int argc, char **argv);
