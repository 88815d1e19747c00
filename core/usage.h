#pragma once

// Prints the usage text and ends the process with status 1.
[[noreturn]] void print_usage(const char *program);
