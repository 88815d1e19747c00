// The VM bench's board as the kernel holds it: the spidev binding, the
// controller's declared limits and the GPIO lines of the zorvi_chip module.
// The chip server puts it back to a fresh board when it starts, and benchctl
// gives it the faults that the kernel itself can produce.
#pragma once

namespace zb {

// A fresh board: spidev bound to spi0.0 with its default settings, the
// controller's full limits, no line held by the module, no line exported.
void kernel_reset();

// Applies a fault on the kernel's side. Returns false when the kernel cannot
// produce that fault (the preload bench can); "clear" ends them all.
bool kernel_fault(const char *name, long arg);

} // namespace zb
