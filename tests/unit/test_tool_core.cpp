// Pure pieces of the tool: the option table.
#include "core/options.h"
#include "core/tool_state.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Runs the option parser on a fresh ToolState with the blank-separated words;
// the parser keeps pointers into them, so they live on to the next call.
void parse(const char *line) {
    static std::string text;
    text = line;
    std::vector<char *> argv{const_cast<char *>("switch_config")};
    for (char *word = std::strtok(text.data(), " "); word != nullptr;
         word = std::strtok(nullptr, " "))
        argv.push_back(word);
    argv.push_back(nullptr);
    tool_state = ToolState{};
    optind = 0; // restart getopt's scan
    opterr = 0;
    parse_options(static_cast<int>(argv.size() - 1), argv.data());
}

TEST(Options, FlagsAndFields) {
    const struct {
        const char *line;
        std::uint32_t flags;
        unsigned read_addr, write_addr, value;
    } cases[] = {
        {"-r 1 --read=0x10 --write 1 --value=7", ACT_READ | ACT_WRITE | ACT_VALUE, 16, 1, 7},
        {"-2 0 -v 9 --enable-bcmc-1 257 --unmanaged", ACT_VALUE | ACT_BCMC_1 | ACT_BCMC_2, 0, 0, 1},
        {"--dump-mib --switch-console --mac-dyn-table --help --managed --dump",
         ACT_DUMP_MIB | ACT_CONSOLE | ACT_MAC_DYN | ACT_HELP | ACT_MANAGED | ACT_DUMP, 0, 0, 0},
    };
    for (const auto &c : cases) {
        parse(c.line);
        EXPECT_EQ(tool_state.action_flags, c.flags) << c.line;
        EXPECT_EQ(tool_state.read_addr, c.read_addr) << c.line;
        EXPECT_EQ(tool_state.write_addr, c.write_addr) << c.line;
        EXPECT_EQ(tool_state.value, c.value) << c.line;
    }
}

} // namespace
