// The console's command parser: the command word, the search of the command
// table, the tokens cut in place from the rest of the line, and the usage
// lines.
#include "console/cli_parser.h"

#include "console/command_table.h"
#include "console/usage_table.h"

#include <cstdio>
#include <string_view>

namespace {

// The command word is compared from a buffer of this size; a word that fills
// it matches no command.
constexpr std::size_t WORD_BUFFER_SIZE = 40;

constexpr bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

constexpr bool is_line_end(char c) {
    return c == '\r' || c == '\n' || c == '\0';
}

constexpr bool is_token_char(char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
        return true;
    constexpr std::string_view extra = "|_?*-./:";
    return extra.find(c) != std::string_view::npos;
}

const CliCommand *find_command(std::string_view word) {
    for (const CliCommand &row : cli_command_table) {
        if (row.name == nullptr)
            break;
        if (word == row.name)
            return &row;
    }
    return nullptr;
}

} // namespace

void parse_args(std::uint16_t *argc, char **argv, char *text, std::uint16_t limit) {
    if (text == nullptr)
        return;
    // argv holds CLI_MAX_TOKENS entries, whatever limit a row asks for.
    if (limit > CLI_MAX_TOKENS)
        limit = CLI_MAX_TOKENS;
    char *p = text;
    while (*argc < limit) {
        while (is_blank(*p))
            ++p;
        if (is_line_end(*p))
            return;
        // The first character of a token is taken whatever it is.
        argv[(*argc)++] = p++;
        while (is_token_char(*p))
            ++p;
        if (is_line_end(*p)) {
            *p = '\0';
            return;
        }
        // The last token the limit allows runs on through its delimiter to
        // the end of the line.
        if (*argc >= limit)
            return;
        *p++ = '\0';
    }
}

void cli_usage(std::uint16_t usage_index) {
    if (usage_index >= cli_usage_table.size())
        return;
    const char *row = cli_usage_table[usage_index];
    if (row[0] != '\0')
        std::printf("Usage: %s\n", row);
}

int cli_parser(int fd, char *line) {
    if (line == nullptr) {
        std::printf("%s: input buffer is NULL\n", "cli_parser");
        return 1;
    }

    char *p = line;
    while (is_blank(*p))
        ++p;

    // Only a blank or the end of the text ends the command word.
    char word[WORD_BUFFER_SIZE] = {};
    std::size_t length = 0;
    while (length < WORD_BUFFER_SIZE && *p != '\0' && !is_blank(*p))
        word[length++] = *p++;

    const CliCommand *row =
        length < WORD_BUFFER_SIZE ? find_command(std::string_view(word, length)) : nullptr;
    if (row == nullptr) {
        std::puts("unknown CLI command ");
        return 1;
    }

    std::uint16_t argc = 0;
    char *argv[CLI_MAX_TOKENS] = {};

    if (std::string_view(row->name) == "exit") {
        row->handler(&argc, argv, row->usage_index, fd);
        return 0;
    }

    parse_args(&argc, argv, p, row->max_args);
    if (row->handler(&argc, argv, row->usage_index, fd) == 0)
        cli_usage(row->usage_index);
    return 1;
}
