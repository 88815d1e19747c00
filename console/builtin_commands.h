// The console commands that are no chip operations: help, exit and the
// register commands.
#pragma once

#include "console/cli_handler.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

int help_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int exit_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwreadb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int hwwriteb_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

// A handler's name as a template argument.
template <std::size_t N> struct HandlerName {
    // Not explicit: the row writes the name as a literal.
    constexpr HandlerName(const char (&name)[N]) {
        for (std::size_t i = 0; i < N; ++i)
            text[i] = name[i];
    }
    char text[N] = {};
};

// The word and dword register commands, which this chip does not support:
// their message, and 0 for the usage line.
template <HandlerName Name>
int unsupported_handler(std::uint16_t * /*argc*/, char ** /*argv*/, std::uint16_t /*usage_index*/,
                        int /*fd*/) {
    std::printf("%s not supported\n", Name.text);
    return 0;
}

inline constexpr CliHandler hwreadw_cmd = unsupported_handler<"hwreadw_cmd">;
inline constexpr CliHandler hwreadl_cmd = unsupported_handler<"hwreadl_cmd">;
inline constexpr CliHandler hwwritew_cmd = unsupported_handler<"hwwritew_cmd">;
inline constexpr CliHandler hwwritel_cmd = unsupported_handler<"hwwritel_cmd">;
