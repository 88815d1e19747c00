// The console's command table: the rows each feature brings, in table order,
// and the row with a null name that ends the search.
#include "chip/mac_tables.h"
#include "chip/mib_counters.h"
#include "chip/port_mirror.h"
#include "chip/port_vlan.h"
#include "chip/qos.h"
#include "chip/rate_limit.h"
#include "chip/vlan_table.h"
#include "console/builtin_commands.h"

namespace {
constexpr std::array<CliCommand, 1> end_of_table{{{nullptr, 0, 0, nullptr}}};
}

constinit const std::array<CliCommand, CLI_COMMAND_COUNT + 1> cli_command_table = join_command_rows(
    builtin_commands, mib_counter_commands, mac_table_commands, vlan_table_commands,
    port_vlan_commands, qos_commands, port_mirror_commands, rate_limit_commands, end_of_table);
