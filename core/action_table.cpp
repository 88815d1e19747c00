// The action table: one row per valid value of the flags word. Any value not
// listed, such as two different actions together, gives the usage text.
#include "core/action_table.h"

#include "console/switch_console.h"
#include "core/management_mode.h"
#include "core/options.h"
#include "core/register_dump.h"
#include "core/register_file.h"
#include "core/register_read_write.h"
#include "core/switch_status.h"
#include "core/tool_state.h"
#include "core/traffic_gate.h"
#include "core/usage.h"

#include <array>
#include <cstdio>

namespace {
struct ActionRow {
    std::uint32_t flags;
    void (*run)(const ActionContext &);
};

void change_mode(std::int32_t mode) {
    if (tool_state.board_kind == BOARD_NOR) {
        std::puts("the switch is always managed on this hardware ");
        return;
    }
    set_management_mode(mode);
}

constexpr std::array<ActionRow, 15> action_table{{
    {0,
     [](const ActionContext &c) {
         // -D alone sets no flag but makes argc 3: the usage text.
         if (c.argc != 1)
             print_usage(c.program);
         show_switch_status(c.profile.chip_id, c.profile.link_reg_1, c.profile.link_reg_2);
     }},
    {ACT_MANAGED, [](const ActionContext &) { change_mode(1); }},
    {ACT_READ, [](const ActionContext &) { read_register_action(); }},
    {ACT_WRITE, [](const ActionContext &) { std::puts("write error: value is missing"); }},
    {ACT_VALUE, [](const ActionContext &) { std::puts("write error: offset is missing"); }},
    {ACT_WRITE | ACT_VALUE, [](const ActionContext &) { write_register_action(); }},
    {ACT_CONFIG, [](const ActionContext &) { load_config_file(); }},
    {ACT_DUMP, [](const ActionContext &) { dump_registers(); }},
    {ACT_DUMP_MIB, [](const ActionContext &) { switch_console("showmib"); }},
    {ACT_UNMANAGED, [](const ActionContext &) { change_mode(0); }},
    {ACT_HELP, [](const ActionContext &c) { print_usage(c.program); }},
    {ACT_CONSOLE, [](const ActionContext &) { switch_console(nullptr); }},
    {ACT_MAC_DYN, [](const ActionContext &) { switch_console("macdyn"); }},
    {ACT_BCMC_1, [](const ActionContext &) { set_traffic_gate(GATE_PORT_1, tool_state.value); }},
    {ACT_BCMC_2, [](const ActionContext &) { set_traffic_gate(GATE_PORT_2, tool_state.value); }},
}};
} // namespace

void run_action(const ActionContext &context) {
    for (const ActionRow &row : action_table) {
        if (row.flags == tool_state.action_flags) {
            row.run(context);
            return;
        }
    }
    print_usage(context.program);
}
