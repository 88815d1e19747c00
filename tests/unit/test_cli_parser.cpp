// Tokenizer, command word and usage lines of the console parser.
#include "console/cli_parser.h"
#include "console/command_table.h"
#include "console/usage_table.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    char *argv[CLI_MAX_TOKENS + 1] = {};
    parse_args(&argc, argv, line.data(), c.limit);
    ASSERT_EQ(argc, c.tokens.size());
    EXPECT_EQ(argv[c.tokens.size()], nullptr);
    for (std::size_t i = 0; i < c.tokens.size(); ++i) {
        EXPECT_EQ(argv[i], c.tokens[i]) << "token " << i;
        // Tokens point into the line itself.
        EXPECT_TRUE(argv[i] >= line.data() && argv[i] < line.data() + line.size());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ParseArgs,
    ::testing::Values(TokenCase{" 10,,20", 2, {"10", ",20"}}, TokenCase{" 10", 0, {}},
                      TokenCase{"   \t ", 3, {}},
                      // A line end ends the last token and the line.
                      TokenCase{" 10\r20", 2, {"10"}}, TokenCase{" 10\n20", 2, {"10"}},
                      // Token characters stay inside a token; others cut it.
                      TokenCase{" a|b_c?d*e-f.g/h:i j", 2, {"a|b_c?d*e-f.g/h:i", "j"}},
                      TokenCase{" 1=2;3", 3, {"1", "2", "3"}},
                      // The limit never passes the token array; the run-on token
                      // keeps what stands behind it.
                      TokenCase{" 1 2 3 4 5 6 7 8 9 10 11 12",
                                60,
                                {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10 11 12"}}));

TEST(CliParser, UnknownWordsAndNullLine) {
    // Words are case sensitive, only a blank ends the word, and an empty word
    // or one that fills the word buffer matches nothing.
    for (const char *text :
         {"", "help\r", "vlaninfox", "help123456789012345678901234567890123456 x"}) {
        std::array<char, 256> line{};
        std::strncpy(line.data(), text, line.size() - 1);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(cli_parser(-1, line.data()), 1) << text;
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), "unknown CLI command \n") << text;
    }
    std::uint16_t argc = 0;
    parse_args(&argc, nullptr, nullptr, 3);
    EXPECT_EQ(argc, 0);
    ::testing::internal::CaptureStdout();
    EXPECT_NE(cli_parser(-1, nullptr), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "cli_parser: input buffer is NULL\n");
}

TEST(UsageTable, EndRowPrintsNothingAndArgumentCountsFollowTheLines) {
    // The empty last row and indices past the table print nothing.
    ::testing::internal::CaptureStdout();
    cli_usage(CLI_USAGE_COUNT - 1);
    cli_usage(CLI_USAGE_COUNT);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    // A command cuts as many tokens as its line names parameters, the last one
    // running on to the end of the line; raterxflow cuts a third token that its
    // line does not name.
    for (const CliCommand &row : cli_command_table) {
        if (row.name == nullptr)
            break;
        const std::string usage = cli_usage_table[row.usage_index];
        const std::string form = usage.substr(0, usage.find(" -- "));
        const auto named = std::count(form.begin(), form.end(), '<');
        EXPECT_EQ(row.max_args, named + (usage.rfind("raterxflow ", 0) == 0)) << row.name;
    }
}

} // namespace
