// Pure pieces of the tool: the option table.
#include "core/options.h"
#include "core/tool_state.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <wordexp.h>

namespace {

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
        // The words after a first slot for the program's name.
        wordexp_t words{};
        words.we_offs = 1;
        ASSERT_EQ(wordexp(c.line, &words, WRDE_DOOFFS), 0);
        words.we_wordv[0] = const_cast<char *>("switch_config");
        tool_state = ToolState{};
        optind = 0; // restart getopt's scan
        opterr = 0;
        parse_options(static_cast<int>(words.we_wordc + 1), words.we_wordv);
        wordfree(&words);
        EXPECT_EQ(tool_state.action_flags, c.flags) << c.line;
        EXPECT_EQ(tool_state.read_addr, c.read_addr) << c.line;
        EXPECT_EQ(tool_state.write_addr, c.write_addr) << c.line;
        EXPECT_EQ(tool_state.value, c.value) << c.line;
    }
}

} // namespace
