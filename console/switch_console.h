// The console's entry: its own SPI descriptor, the self-test and the prompt.
#pragma once

// Runs one command (cmd not null) or the interactive prompt; always 0.
int switch_console(const char *cmd);

int console_spi_open(const char *path);
int console_spi_speed(int fd);
int selftest_device_spi(int fd);
int check_device_id(int fd);
