// The tool's actions, chosen by the exact value of tool_state.action_flags.
#pragma once

#include "core/board.h"

struct ActionContext {
    int argc;
    const char *program;
    BoardProfile profile;
};

// Carries out the one action of the flags, or prints the usage text.
void run_action(const ActionContext &context);
