// Tokenizer, command word and usage lines of the console parser, and the port
// column texts of the console's displays.
#include "chip/port_columns.h"
#include "console/cli.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct TokenCase {
    const char *rest;
    std::uint16_t limit;
    std::vector<std::string> tokens;
};

class ParseArgs : public ::testing::TestWithParam<TokenCase> {};

TEST_P(ParseArgs, CutsTokensInPlace) {
    const TokenCase &c = GetParam();
    std::array<char, 256> line{};
    std::strncpy(line.data(), c.rest, line.size() - 1);
    std::uint16_t argc = 0;
    char *argv[CLI_MAX_TOKENS] = {};
    parse_args(&argc, argv, line.data(), c.limit);
    ASSERT_EQ(argc, c.tokens.size());
    for (std::size_t i = 0; i < c.tokens.size(); ++i) {
        EXPECT_EQ(argv[i], c.tokens[i]) << "token " << i;
        // Tokens point into the line itself.
        EXPECT_GE(argv[i], line.data());
        EXPECT_LT(argv[i], line.data() + line.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ParseArgs,
    ::testing::Values(TokenCase{" 10", 1, {"10"}}, TokenCase{" 10 20", 1, {"10 20"}},
                      TokenCase{" 10 20", 2, {"10", "20"}}, TokenCase{" 10,20", 2, {"10", "20"}},
                      TokenCase{" 10,,20", 2, {"10", ",20"}}, TokenCase{" ,10", 1, {",10"}},
                      TokenCase{" 08:00:70:22:44:01 1", 4, {"08:00:70:22:44:01", "1"}},
                      TokenCase{" 10", 0, {}}, TokenCase{"", 3, {}}, TokenCase{"   \t ", 3, {}},
                      // The run-on token keeps what stands behind it, the
                      // tokens past the limit included.
                      TokenCase{" 1 2 3 4", 2, {"1", "2 3 4"}}, TokenCase{"\t5\t6", 2, {"5", "6"}},
                      // A line end ends the last token and the line.
                      TokenCase{" 10\r\n20", 2, {"10"}}, TokenCase{" 10\n", 1, {"10"}},
                      // Token characters stay inside a token; others cut it.
                      TokenCase{" a|b_c?d*e-f.g/h:i j", 2, {"a|b_c?d*e-f.g/h:i", "j"}},
                      TokenCase{" 1=2;3", 3, {"1", "2", "3"}}, TokenCase{" x;", 3, {"x"}}));

TEST(ParseArgs, LimitNeverPassesTheTokenArray) {
    std::array<char, 256> line{};
    std::strcpy(line.data(), " 1 2 3 4 5 6 7 8 9 10 11 12");
    std::uint16_t argc = 0;
    char *argv[CLI_MAX_TOKENS + 1] = {};
    parse_args(&argc, argv, line.data(), 60);
    EXPECT_EQ(argc, CLI_MAX_TOKENS);
    EXPECT_EQ(argv[CLI_MAX_TOKENS], nullptr);
    EXPECT_STREQ(argv[CLI_MAX_TOKENS - 1], "10 11 12");
}

std::string parser_output(const char *text) {
    std::array<char, 256> line{};
    std::strncpy(line.data(), text, line.size() - 1);
    ::testing::internal::CaptureStdout();
    const int result = cli_parser(-1, line.data());
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, 1) << text;
    return out;
}

TEST(CliParser, UnknownWords) {
    // Words are case sensitive, only a blank ends the word, and an empty word
    // or one that fills the word buffer matches nothing.
    for (const char *text :
         {"", "help\r", "vlaninfox", "rrb123456789012345678901234567890123456789",
          "help123456789012345678901234567890123456 x"})
        EXPECT_EQ(parser_output(text), "unknown CLI command \n") << text;
}

TEST(CliParser, NullLine) {
    ::testing::internal::CaptureStdout();
    EXPECT_NE(cli_parser(-1, nullptr), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "cli_parser: input buffer is NULL\n");
}

TEST(UsageTable, Shape) {
    EXPECT_STREQ(cli_usage_table[65], "");
    for (int i = 0; i < 65; ++i) {
        const std::size_t len = std::strlen(cli_usage_table[i]);
        ASSERT_GT(len, 0U) << i;
        EXPECT_EQ(cli_usage_table[i][len - 1], '\n') << i;
    }
    // Every command's usage line starts with its name.
    for (const CliCommand &row : cli_command_table) {
        if (row.name == nullptr)
            break;
        const std::string usage = cli_usage_table[row.usage_index];
        EXPECT_EQ(usage.rfind(row.name, 0), 0U) << row.name;
        EXPECT_TRUE(usage.size() > std::strlen(row.name) && usage[std::strlen(row.name)] == ' ')
            << row.name;
    }
    EXPECT_STREQ(cli_usage_table[42], "vlaningressfilter <Port> <Flag>    -- "
                                      "enable\\disable VLAN Ingress rule on a Switch port.\n");
}

struct PortMapCase {
    std::uint32_t mask;
    const char *text;
};

class PortMap : public ::testing::TestWithParam<PortMapCase> {};

TEST_P(PortMap, MarksTheLowFourBits) {
    char buffer[16];
    std::memset(buffer, 'x', sizeof buffer);
    format_port_map(GetParam().mask, buffer);
    EXPECT_STREQ(buffer, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Masks, PortMap,
    ::testing::Values(PortMapCase{0x0, "- - - - "}, PortMapCase{0xF, "M M M M "},
                      PortMapCase{0x5, "M - M - "}, PortMapCase{0x8, "- - - M "},
                      PortMapCase{0xFFF0, "- - - - "}, PortMapCase{0x1F >> 1, "M M M M "}));

TEST(PortHeader, Widths) {
    char narrow[16];
    std::memset(narrow, 'x', sizeof narrow);
    format_port_header(narrow, 1);
    EXPECT_STREQ(narrow, "1 2 3 4 ");

    char wide[64];
    std::memset(wide, 'x', sizeof wide);
    format_port_header(wide, 11);
    EXPECT_STREQ(wide, "1           2           3           4           ");
    EXPECT_EQ(std::strlen(wide), 48U);
}

} // namespace
