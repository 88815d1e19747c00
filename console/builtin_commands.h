// The console commands that are no chip operations: help, exit and the
// register commands.
#pragma once

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
// their message, and 0 for the usage line. unsupported_cmd<"hwreadw_cmd">
// is the handler of rrw.
template <HandlerName Name>
int unsupported_cmd(std::uint16_t * /*argc*/, char ** /*argv*/, std::uint16_t /*usage_index*/,
                    int /*fd*/) {
    std::printf("%s not supported\n", Name.text);
    return 0;
}
