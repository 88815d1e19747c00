// The console's command table: each command word with the most tokens cut for
// it and its handler. A handler is either a function of the command's own
// (help_cmd, qoswfq_cmd, ...) or a handler shape named with the chip operation
// it calls (port_value_handler<SwitchSetPortDot1p>). The usage index of a row
// follows from its position: the usage lines stand in the same order.
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
    {"rrw",               1, unsupported_cmd<"hwreadw_cmd">},
    {"rrl",               1, unsupported_cmd<"hwreadl_cmd">},
    {"rwb",               2, hwwriteb_cmd},
    {"rww",               2, unsupported_cmd<"hwwritew_cmd">},
    {"rwl",               2, unsupported_cmd<"hwwritel_cmd">},
    {"showmib",           1, showmib_cmd},
    {"clearmib",          0, no_args_handler<SwitchClearMIBCounter>},
    {"macdyn",            0, no_args_handler<SwitchReadDynMacTable>},
    {"macstatic",         0, no_args_handler<SwitchReadStaticMacTable>},
    {"macadd",            4, macadd_cmd},
    {"macdel",            2, macdel_cmd},
    {"vlan",              2, vlan_cmd},
    {"vlancreate",        2, vlancreate_cmd},
    {"vlandel",           2, vlandel_cmd},
    {"vlanaddport",       3, vlan_port_cmd<1>},
    {"vlandelport",       3, vlan_port_cmd<0>},
    {"vlandefvid",        2, vlandefvid_cmd},
    {"vlanenable",        0, no_args_handler<fixed_last<SwitchSet8021Q, 1>>},
    {"vlandisable",       0, no_args_handler<fixed_last<SwitchSet8021Q, 0>>},
    {"vlanenabletag",     2, port_value_handler<fixed_last<SwitchSetPortVlanTag, 1>>},
    {"vlandisabletag",    2, port_value_handler<fixed_last<SwitchSetPortVlanTag, 0>>},
    {"vlaningressfilter", 2, port_value_handler<SwitchSetPortIngressFilter>},
    {"vlandiscardnonvid", 2, port_value_handler<SwitchSetPortDiscardNonVid>},
    {"vlaninfo",          0, no_args_handler<SwitchShowVlanInfo>},
    {"qoswfq",            2, qoswfq_cmd},
    {"qossplitq",         2, port_value_handler<SwitchSetPortSplitQueue>},
    {"qostag2q",          2, queue_map_handler<SwitchMapTagToQueue>},
    {"qostos2q",          2, queue_map_handler<SwitchMapTosToQueue>},
    {"qosportbase",       3, qosportbase_cmd},
    {"qosdiffserv",       2, port_value_handler<SwitchSetPortDiffServ>},
    {"qosdot1p",          2, port_value_handler<SwitchSetPortDot1p>},
    {"qosinfo",           0, no_args_handler<SwitchShowQosInfo>},
    {"mirrortx",          2, port_value_handler<SwitchSetPortMirrorTx>},
    {"mirrorrx",          2, port_value_handler<SwitchSetPortMirrorRx>},
    {"sniffer",           2, port_value_handler<SwitchSetPortSniffer>},
    {"sniffmode",         1, sniffmode_cmd},
    {"mirrorinfo",        0, no_args_handler<SwitchShowMirrorInfo>},
    {"rateconftx",        3, rate_handler<SwitchConfigTxRate>},
    {"rateconfrx",        3, rate_handler<SwitchConfigRxRate>},
    {"ratetx",            3, rate_handler<flag_first<SwitchSetTxRate>>},
    {"raterx",            3, rate_handler<flag_first<SwitchSetRxRate>>},
    // The usage line shows two arguments; a third token is cut and ignored.
    {"raterxflow",        3, raterxflow_cmd},
    {"ratemode",          2, ratemode_cmd},
    {"rateinfo",          0, no_args_handler<SwitchShowRateInfo>},
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
