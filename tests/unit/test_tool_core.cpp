// Pure pieces of the tool: number parsing, the option table, register-file
// lines and the link state.
#include "core/board.h"
#include "core/options.h"
#include "core/register_utils.h"
#include "core/tool_state.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

struct ByteCase {
    const char *text;
    unsigned expected;
};

class OptionByte : public testing::TestWithParam<ByteCase> {};

TEST_P(OptionByte, KeepsLowEightBitsOfBaseZeroNumber) {
    EXPECT_EQ(option_byte(GetParam().text), GetParam().expected) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Numbers, OptionByte,
                         testing::Values(ByteCase{"abc", 0}, ByteCase{"300", 44},
                                         ByteCase{"0x10", 16}, ByteCase{"010", 8},
                                         ByteCase{"-1", 255}, ByteCase{"257", 1},
                                         ByteCase{"12xyz", 12}, ByteCase{"0xff", 255},
                                         ByteCase{"", 0}, ByteCase{"99999999999999999999", 255}));

// Runs the option parser on a fresh ToolState.
void parse(std::initializer_list<const char *> words) {
    std::vector<std::string> storage(words.begin(), words.end());
    std::vector<char *> argv;
    for (std::string &word : storage)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    tool_state = ToolState{};
    spi_device = "/dev/spidev0.0";
    config_path = nullptr;
    optind = 0; // restart getopt's scan
    opterr = 0;
    parse_options(static_cast<int>(argv.size() - 1), argv.data());
    // The parser keeps pointers into argv: copy what the tests look at.
    static std::string device, config;
    device = spi_device;
    spi_device = device.c_str();
    if (config_path != nullptr) {
        config = config_path;
        config_path = config.c_str();
    }
}

TEST(Options, FlagsAndFields) {
    struct Case {
        std::initializer_list<const char *> words;
        std::uint32_t flags;
        unsigned read_addr, write_addr, value;
    };
    const Case cases[] = {
        {{"switch_config"}, 0, 0, 0, 0},
        {{"switch_config", "-r", "1", "-r", "2"}, ACT_READ, 2, 0, 0},
        {{"switch_config", "-w", "1", "-v", "2", "-v", "3"}, ACT_WRITE | ACT_VALUE, 0, 1, 3},
        {{"switch_config", "--read=0x10"}, ACT_READ, 16, 0, 0},
        {{"switch_config", "-1", "257"}, ACT_BCMC_1, 0, 0, 1},
        {{"switch_config", "-v", "9", "-2", "0"}, ACT_VALUE | ACT_BCMC_2, 0, 0, 0},
        {{"switch_config", "-m", "-u"}, ACT_MANAGED | ACT_UNMANAGED, 0, 0, 0},
        {{"switch_config", "--unmanaged"}, 0, 0, 0, 0},
        {{"switch_config", "-x", "-d"}, ACT_DUMP, 0, 0, 0},
        {{"switch_config", "stray", "-r", "5"}, ACT_READ, 5, 0, 0},
        {{"switch_config", "-MCyh"}, ACT_DUMP_MIB | ACT_CONSOLE | ACT_MAC_DYN | ACT_HELP, 0, 0, 0},
        {{"switch_config", "--dump-mib", "--switch-console", "--mac-dyn-table", "--help",
          "--managed", "--dump"},
         ACT_DUMP_MIB | ACT_CONSOLE | ACT_MAC_DYN | ACT_HELP | ACT_MANAGED | ACT_DUMP,
         0,
         0,
         0},
    };
    for (const Case &c : cases) {
        parse(c.words);
        EXPECT_EQ(tool_state.action_flags, c.flags) << *(c.words.begin() + 1);
        EXPECT_EQ(tool_state.read_addr, c.read_addr);
        EXPECT_EQ(tool_state.write_addr, c.write_addr);
        EXPECT_EQ(tool_state.value, c.value);
    }
}

TEST(Options, DeviceAndConfigTakeTheArgument) {
    parse({"switch_config", "-D", "/dev/spidev1.1", "--config", "regs.txt"});
    EXPECT_STREQ(spi_device, "/dev/spidev1.1");
    EXPECT_STREQ(config_path, "regs.txt");
    EXPECT_EQ(tool_state.action_flags, ACT_CONFIG);
    parse({"switch_config", "--device=/dev/x", "-c", "a", "-c", "b"});
    EXPECT_STREQ(spi_device, "/dev/x");
    EXPECT_STREQ(config_path, "b");
}

TEST(RegisterFile, DataLines) {
    unsigned base = 0;
    unsigned v[16] = {};
    ASSERT_TRUE(
        parse_register_line("0010  01 02 03 04 05 06 07 08  09 0a 0b 0c 0d 0e 0f ff \n", base, v));
    EXPECT_EQ(base, 0x10u);
    EXPECT_EQ(v[0], 1u);
    EXPECT_EQ(v[9], 0x0au);
    EXPECT_EQ(v[15], 0xffu);
    ASSERT_TRUE(parse_register_line("100 1 2 3 4 5 6 7 8 9 a b c d e f 10", base, v));
    EXPECT_EQ(base, 0x100u);
    EXPECT_EQ(v[15], 0x10u);
    // At most 4 digits for the base and 2 per value: longer numbers split.
    ASSERT_TRUE(parse_register_line("12345 1 2 3 4 5 6 7 8 9 a b c d e f", base, v));
    EXPECT_EQ(base, 0x1234u);
    EXPECT_EQ(v[0], 5u);
}

TEST(RegisterFile, ShortLinesAreRefused) {
    unsigned base = 0;
    unsigned v[16] = {};
    for (const char *line : {"\n", "", "0000 01 02\n",
                             "0000 01 02 03 04 05 06 07 08 09 0a 0b 0c "
                             "0d 0e 0f\n",
                             "zz 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n"})
        EXPECT_FALSE(parse_register_line(line, base, v)) << line;
}

TEST(LinkState, BitFiveOfEachRegister) {
    struct Case {
        std::uint8_t first, second;
        LinkState state;
        const char *text;
    };
    const Case cases[] = {
        {0x00, 0x00, 0, "port1_link DOWN port2_link DOWN"},
        {0x20, 0x00, 1, "port1_link UP port2_link DOWN"},
        {0xDF, 0x20, 2, "port1_link DOWN port2_link UP"},
        {0xFF, 0xFF, 3, "port1_link UP port2_link UP"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(link_state_of(c.first, c.second), c.state);
        EXPECT_STREQ(link_state_text(c.state), c.text);
    }
}

} // namespace
