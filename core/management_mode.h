// Managed or unmanaged mode through GPIO lines 191 (level) and 56 (pulse).
#pragma once

#include <cstdint>

// Mode 1 is managed, any other value unmanaged; does nothing on the NOR board.
void set_management_mode(std::int32_t mode);
