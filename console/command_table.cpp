// The console's command table: each command word with the most tokens cut for
// it and its handler, <word>_cmd (the register commands rrb to rwl: hwreadb_cmd
// to hwwritel_cmd). A handler is declared beside its chip operation in the
// feature's header: either a function of the command's own (qoswfq_cmd) or a
// constant naming a handler shape with the operation it calls (qosdot1p_cmd =
// port_value_handler<SwitchSetPortDot1p> in chip/qos.h). The usage index of a
// row follows from its position: the usage lines stand in the same order.
#include "console/command_table.h"

#include "chip/mac_tables.h"
#include "chip/mib_counters.h"
#include "chip/port_mirror.h"
#include "chip/port_vlan.h"
#include "chip/qos.h"
#include "chip/rate_limit.h"
#include "chip/vlan_table.h"
#include "console/builtin_commands.h"
#include "console/cli_handler.h"
#include "console/usage_table.h"

#include <string_view>

namespace {

struct CommandRow {
    const char *name;
    std::uint16_t max_args;
    CliHandler handler;
};

// clang-format off
constexpr CommandRow command_rows[] = {
    {"help",              0, help_cmd},
    {"exit",              0, exit_cmd},
    {"rrb",               1, hwreadb_cmd},
    {"rrw",               1, hwreadw_cmd},
    {"rrl",               1, hwreadl_cmd},
    {"rwb",               2, hwwriteb_cmd},
    {"rww",               2, hwwritew_cmd},
    {"rwl",               2, hwwritel_cmd},
    {"showmib",           1, showmib_cmd},
    {"clearmib",          0, clearmib_cmd},
    {"macdyn",            0, macdyn_cmd},
    {"macstatic",         0, macstatic_cmd},
    {"macadd",            4, macadd_cmd},
    {"macdel",            2, macdel_cmd},
    {"vlan",              2, vlan_cmd},
    {"vlancreate",        2, vlancreate_cmd},
    {"vlandel",           2, vlandel_cmd},
    {"vlanaddport",       3, vlanaddport_cmd},
    {"vlandelport",       3, vlandelport_cmd},
    {"vlandefvid",        2, vlandefvid_cmd},
    {"vlanenable",        0, vlanenable_cmd},
    {"vlandisable",       0, vlandisable_cmd},
    {"vlanenabletag",     2, vlanenabletag_cmd},
    {"vlandisabletag",    2, vlandisabletag_cmd},
    {"vlaningressfilter", 2, vlaningressfilter_cmd},
    {"vlandiscardnonvid", 2, vlandiscardnonvid_cmd},
    {"vlaninfo",          0, vlaninfo_cmd},
    {"qoswfq",            2, qoswfq_cmd},
    {"qossplitq",         2, qossplitq_cmd},
    {"qostag2q",          2, qostag2q_cmd},
    {"qostos2q",          2, qostos2q_cmd},
    {"qosportbase",       3, qosportbase_cmd},
    {"qosdiffserv",       2, qosdiffserv_cmd},
    {"qosdot1p",          2, qosdot1p_cmd},
    {"qosinfo",           0, qosinfo_cmd},
    {"mirrortx",          2, mirrortx_cmd},
    {"mirrorrx",          2, mirrorrx_cmd},
    {"sniffer",           2, sniffer_cmd},
    {"sniffmode",         1, sniffmode_cmd},
    {"mirrorinfo",        0, mirrorinfo_cmd},
    {"rateconftx",        3, rateconftx_cmd},
    {"rateconfrx",        3, rateconfrx_cmd},
    {"ratetx",            3, ratetx_cmd},
    {"raterx",            3, raterx_cmd},
    // The usage line shows two arguments; a third token is cut and ignored.
    {"raterxflow",        3, raterxflow_cmd},
    {"ratemode",          2, ratemode_cmd},
    {"rateinfo",          0, rateinfo_cmd},
};
// clang-format on

static_assert(std::size(command_rows) == CLI_COMMAND_COUNT);
static_assert(FIRST_COMMAND_USAGE + CLI_COMMAND_COUNT + 1 == CLI_USAGE_COUNT,
              "the usage lines of the commands end the usage table");

// Each row's usage line begins with its command word and a blank.
constexpr bool usage_lines_match_rows() {
    for (std::size_t i = 0; i < std::size(command_rows); ++i) {
        const std::string_view line = cli_usage_table[FIRST_COMMAND_USAGE + i];
        const std::string_view name = command_rows[i].name;
        if (line.substr(0, name.size()) != name || line[name.size()] != ' ')
            return false;
    }
    return true;
}
static_assert(usage_lines_match_rows(), "a command row stands apart from its usage line");

// The rows with their usage indices, and the row with a null name and a null
// handler at which the search ends.
constexpr std::array<CliCommand, CLI_COMMAND_COUNT + 1> make_command_table() {
    std::array<CliCommand, CLI_COMMAND_COUNT + 1> table{};
    for (std::size_t i = 0; i < std::size(command_rows); ++i) {
        const CommandRow &row = command_rows[i];
        table[i] = {row.name, row.max_args, static_cast<std::uint16_t>(FIRST_COMMAND_USAGE + i),
                    row.handler};
    }
    return table;
}

} // namespace

constinit const std::array<CliCommand, CLI_COMMAND_COUNT + 1> cli_command_table =
    make_command_table();
