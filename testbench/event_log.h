// The bench's event log, SB/events: one line per thing the program did that a
// test may look at (see testbench/README.md). Both ways into the bench write
// it: the preload library from inside the program, the VM's chip server from
// the kernel's side. Raw system calls only, no allocation: the preload library
// must not go through its own hooks.
#pragma once

#include "chip_model.h"

#include <cstddef>

namespace zb {

// Where the lines go: SB/events of the sandbox, opened on first use.
void event_log_init(const char *sandbox, const ChipState *state);

// Appends one line (the newline is added); nothing while logging is off.
// Callers serialise with the sandbox lock.
void event(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The log's descriptor (-1 while closed), and forgetting it when the program
// closed it under the library.
int event_log_fd();
void event_log_forget();

// C-escapes a text for one event line: \n, \t, \\ and \xHH.
void escape(char *out, size_t size, const char *in, size_t len);

} // namespace zb
