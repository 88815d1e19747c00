// The tool's single-register read (-r) and write (-w with -v).
#pragma once

// "Register offset ..." with the value of tool_state.read_addr.
void read_register_action();
// "writing ..." and the write of tool_state.value to tool_state.write_addr.
void write_register_action();
