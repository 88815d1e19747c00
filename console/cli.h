// Command parser, command rows and the handler convention of the console.
#pragma once

#include <array>
#include <cstdint>

inline constexpr int CLI_MAX_TOKENS = 10;

// A handler gets the token count, the tokens, its usage row and the console
// descriptor; it returns 0 to have its usage line printed, nonzero otherwise.
using CliHandler = int (*)(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

struct CliCommand {
    const char *name;
    std::uint16_t max_args;
    std::uint16_t usage_index;
    CliHandler handler;
};

inline constexpr int CLI_COMMAND_COUNT = 47;
inline constexpr int CLI_USAGE_COUNT = 66;

// 47 rows and a terminating row with a null name and a null handler.
extern const std::array<CliCommand, CLI_COMMAND_COUNT + 1> cli_command_table;
extern const std::array<const char *, CLI_USAGE_COUNT> cli_usage_table;

// Joins the command rows that each feature brings, in table order.
template <std::size_t... N>
constexpr auto join_command_rows(const std::array<CliCommand, N> &...parts) {
    std::array<CliCommand, (N + ... + 0)> rows{};
    std::size_t at = 0;
    ((([&] {
         for (const CliCommand &row : parts)
             rows[at++] = row;
     })()),
     ...);
    return rows;
}

// 0 when the console is to end, nonzero when it goes on.
int cli_parser(int fd, char *line);
void parse_args(std::uint16_t *argc, char **argv, char *text, std::uint16_t limit);
void cli_usage(std::uint16_t usage_index);

// The handler convention shared by the chip commands:
// "The argc is %d\n" (when with_argc) and one line per token.
void cli_echo_tokens(std::uint16_t argc, char **argv, bool with_argc);
// Blanks the first token, so that a recall gives the command word alone; 1.
int cli_handler_done(std::uint16_t argc, char **argv);
// strtoul of a token, end pointer ignored.
unsigned long cli_number(const char *token, int base);
// The token echo with its argc line; with fewer tokens than needed, the
// command's usage line and false.
bool cli_take_tokens(std::uint16_t argc, char **argv, std::uint16_t needed,
                     std::uint16_t usage_index);
// A <Port> number in base 10 as a port index: the number minus 1, so that 0
// or no number wraps to the largest index, which no operation accepts.
std::uint32_t cli_port_index(const char *token);
// A number in base 10 as a signed 32-bit value.
std::int32_t cli_int(const char *token);
