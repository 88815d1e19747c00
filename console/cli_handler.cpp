// The handler convention shared by the console commands.
#include "console/cli_handler.h"

#include "console/cli_parser.h"

#include <cstdio>
#include <cstdlib>

void cli_echo_tokens(std::uint16_t argc, char **argv, bool with_argc) {
    if (with_argc)
        std::printf("The argc is %d\n", argc);
    for (int i = 0; i < argc; ++i)
        std::printf("The token %d is argv[%d]=%s \n", i + 1, i, argv[i]);
}

int cli_handler_done(std::uint16_t argc, char **argv) {
    // The line now ends where the first token stood: a recall gives the
    // command word and the blanks behind it, without any argument.
    if (argc != 0)
        argv[0][0] = '\0';
    return 1;
}

unsigned long cli_number(const char *token, int base) {
    return std::strtoul(token, nullptr, base);
}

bool cli_take_tokens(std::uint16_t argc, char **argv, std::uint16_t needed,
                     std::uint16_t usage_index, bool with_argc) {
    cli_echo_tokens(argc, argv, with_argc);
    if (argc < needed) {
        cli_usage(usage_index);
        return false;
    }
    return true;
}

std::uint32_t cli_port_index(const char *token) {
    return static_cast<std::uint32_t>(cli_number(token, 10)) - 1U;
}

std::int32_t cli_int(const char *token) {
    return static_cast<std::int32_t>(cli_number(token, 10));
}

std::int32_t cli_int_or(std::uint16_t argc, char **argv, std::uint16_t at, std::int32_t fallback) {
    return argc > at ? cli_int(argv[at]) : fallback;
}

std::uint8_t cli_fid_or_0(std::uint16_t argc, char **argv, std::uint16_t at) {
    return static_cast<std::uint8_t>(cli_int_or(argc, argv, at, 0));
}
