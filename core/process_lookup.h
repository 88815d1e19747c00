// Finds another process by its first argument, scanning /proc/*/cmdline.
#pragma once

#include <cstdint>

// The pid of another process whose first argument holds the needle, or 0.
std::int32_t find_process(const char *needle);
