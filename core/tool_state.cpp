#include "core/tool_state.h"

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the process-wide record
ToolState tool_state;
