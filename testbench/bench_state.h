// Opening and mapping a sandbox's shared chip state. Used by the preload
// library and by benchctl, so it sticks to raw system calls: the preload
// library must not go through its own open/close hooks.
#pragma once

#include "chip_model.h"

namespace zb {

// Raw system call wrappers (no libc hooks, no allocation).
int sys_open(const char *path, int flags, unsigned mode);
int sys_close(int fd);
long sys_write(int fd, const void *buf, unsigned long n);

// Map SB/state. Returns nullptr when the file is missing, too short or not
// a bench state. The mapping stays for the life of the process.
ChipState *state_map(const char *sandbox);

// Path of a file inside the sandbox; false when it does not fit.
bool sandbox_path(char *out, unsigned long size, const char *sandbox, const char *rel);

} // namespace zb
