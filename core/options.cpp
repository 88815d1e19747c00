// The command line. One table gives every option its letter, long name,
// argument, action flag and the field its argument goes to.
#include "core/options.h"

#include "core/tool_state.h"

#include <array>
#include <cstdlib>
#include <getopt.h>

namespace {
enum class Field { none, device, read_addr, write_addr, value, config };

struct OptionRow {
    char letter;
    const char *long_name; // null: short form only
    int has_arg;
    std::uint32_t flag;
    Field field;
};

constexpr std::array<OptionRow, 14> option_table{{
    {'D', "device", required_argument, 0, Field::device},
    {'m', "managed", no_argument, ACT_MANAGED, Field::none},
    // The usage text names --unmanaged, but -u has a short form only.
    {'u', nullptr, no_argument, ACT_UNMANAGED, Field::none},
    {'r', "read", required_argument, ACT_READ, Field::read_addr},
    {'w', "write", required_argument, ACT_WRITE, Field::write_addr},
    {'v', "value", required_argument, ACT_VALUE, Field::value},
    {'c', "config", required_argument, ACT_CONFIG, Field::config},
    {'d', "dump", no_argument, ACT_DUMP, Field::none},
    {'M', "dump-mib", no_argument, ACT_DUMP_MIB, Field::none},
    {'C', "switch-console", no_argument, ACT_CONSOLE, Field::none},
    {'y', "mac-dyn-table", no_argument, ACT_MAC_DYN, Field::none},
    {'1', "enable-bcmc-1", required_argument, ACT_BCMC_1, Field::value},
    {'2', "enable-bcmc-2", required_argument, ACT_BCMC_2, Field::value},
    {'h', "help", no_argument, ACT_HELP, Field::none},
}};

// The short-option string of the table: each letter, with a colon after the
// letters that take an argument ("D:mur:w:v:dMc:Cy1:2:h").
constexpr auto make_short_options() {
    std::array<char, 2 * option_table.size() + 1> text{};
    std::size_t at = 0;
    for (const OptionRow &row : option_table) {
        text[at++] = row.letter;
        if (row.has_arg == required_argument)
            text[at++] = ':';
    }
    return text;
}
constexpr auto short_options = make_short_options();

constexpr std::size_t long_option_count() {
    std::size_t count = 0;
    for (const OptionRow &row : option_table)
        count += row.long_name != nullptr ? 1 : 0;
    return count;
}

// The long rows in table order, without flag pointers, each giving its short
// letter, and the all-zero row that ends them.
constexpr auto make_long_options() {
    std::array<option, long_option_count() + 1> rows{};
    std::size_t at = 0;
    for (const OptionRow &row : option_table) {
        if (row.long_name != nullptr)
            rows[at++] = option{row.long_name, row.has_arg, nullptr, row.letter};
    }
    return rows;
}
constexpr auto long_options = make_long_options();
static_assert(long_options.size() == 14, "13 long rows and the end row");

std::uint8_t option_byte(const char *text) {
    // Base 0: decimal, octal with a leading 0, hexadecimal with 0x. Trailing
    // text is ignored and no number reads as 0; only the low 8 bits stay.
    return static_cast<std::uint8_t>(std::strtol(text, nullptr, 0));
}

void apply(const OptionRow &row, char *argument) {
    tool_state.action_flags |= row.flag;
    switch (row.field) {
    case Field::none:
        break;
    case Field::device:
        tool_state.spi_device = argument;
        break;
    case Field::read_addr:
        tool_state.read_addr = option_byte(argument);
        break;
    case Field::write_addr:
        tool_state.write_addr = option_byte(argument);
        break;
    case Field::value:
        tool_state.value = option_byte(argument);
        break;
    case Field::config:
        tool_state.config_path = argument;
        break;
    }
}
} // namespace

void parse_options(int argc, char **argv) {
    // An unknown option or a missing argument shows only the parser's own
    // message; parsing goes on.
    for (;;) {
        const int letter =
            getopt_long(argc, argv, short_options.data(), long_options.data(), nullptr);
        if (letter == -1)
            return;
        for (const OptionRow &row : option_table) {
            if (row.letter == letter) {
                apply(row, optarg);
                break;
            }
        }
    }
}
