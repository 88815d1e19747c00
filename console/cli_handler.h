// The handler convention of the console commands: the token echo, the usage
// line for too few tokens, number conversion, the blanking of the first token,
// and the handler shapes that several commands share. A command whose handler
// is such a shape names it with its chip operation beside the operation, as in
// qosdot1p_cmd = port_value_handler<SwitchSetPortDot1p> in chip/qos.h.
#pragma once

#include <cstdint>

// A handler gets the token count, the tokens, its usage row and the console
// descriptor; it returns 0 to have its usage line printed, nonzero otherwise.
using CliHandler = int (*)(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

// "The argc is %d\n" (when with_argc) and one line per token.
void cli_echo_tokens(std::uint16_t argc, char **argv, bool with_argc);
// Blanks the first token, so that a recall gives the command word alone; 1.
int cli_handler_done(std::uint16_t argc, char **argv);
// strtoul of a token, end pointer ignored.
unsigned long cli_number(const char *token, int base);
// The token echo, with its argc line unless with_argc is false; with fewer
// tokens than needed, the command's usage line and false.
bool cli_take_tokens(std::uint16_t argc, char **argv, std::uint16_t needed,
                     std::uint16_t usage_index, bool with_argc = true);
// A <Port> number in base 10 as a port index: the number minus 1, so that 0
// or no number wraps to the largest index, which no operation accepts.
std::uint32_t cli_port_index(const char *token);
// A number in base 10 as a signed 32-bit value.
std::int32_t cli_int(const char *token);
// An optional trailing token in base 10: its number when given, else fallback.
std::int32_t cli_int_or(std::uint16_t argc, char **argv, std::uint16_t at, std::int32_t fallback);
// An optional <fid> token: its number cut to 8 bits when given, else 0.
std::uint8_t cli_fid_or_0(std::uint16_t argc, char **argv, std::uint16_t at);

// Commands without arguments: the token echo, then the operation.
template <void (*Operation)(int)>
int no_args_handler(std::uint16_t *argc, char **argv, std::uint16_t /*usage_index*/, int fd) {
    cli_echo_tokens(*argc, argv, true);
    Operation(fd);
    return cli_handler_done(*argc, argv);
}

// The type of the value an operation on a port takes after the port index.
template <typename Operation> struct PortValueOf;

template <typename Value> struct PortValueOf<void (*)(int, std::uint32_t, Value)> {
    using type = Value;
};

// Commands of the form <Port> <value>: the port number becomes its index, the
// value a base 10 number cut to the operation's value type.
template <auto Operation>
int port_value_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    using Value = typename PortValueOf<decltype(Operation)>::type;
    if (!cli_take_tokens(*argc, argv, 2, usage_index))
        return 1;
    Operation(fd, cli_port_index(argv[0]), static_cast<Value>(cli_number(argv[1], 10)));
    return cli_handler_done(*argc, argv);
}

// An operation with its last argument fixed by the row, for two commands that
// differ in that constant alone: fixed_last<SwitchSet8021Q, 1> is the
// operation of vlanenable.
template <auto Operation, std::int32_t Value> struct FixedLast;

template <void (*Operation)(int, std::int32_t), std::int32_t Value>
struct FixedLast<Operation, Value> {
    static void run(int fd) { Operation(fd, Value); }
};

template <void (*Operation)(int, std::uint32_t, std::int32_t, std::int32_t), std::int32_t Value>
struct FixedLast<Operation, Value> {
    static void run(int fd, std::uint32_t p, std::int32_t value) { Operation(fd, p, value, Value); }
};

template <auto Operation, std::int32_t Value>
inline constexpr auto fixed_last = &FixedLast<Operation, Value>::run;
