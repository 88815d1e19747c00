// The console's entry: its own SPI descriptor, the self-test and the prompt.
#pragma once

// Runs one command (cmd not null) or the interactive prompt; always 0.
int switch_console(const char *cmd);
