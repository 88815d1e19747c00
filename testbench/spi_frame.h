// One SPI message on the simulated chip, the same for both ways into the
// bench: the preload library's spidev emulation and the VM's chip server.
//
// Chip select spans the transfers of a message up to one with cs_change; it
// ends with the message unless the last transfer has cs_change, which keeps
// the chip selected into the next message (as the kernel's SPI core does). Byte 0 of a frame is the
// command (0x03 read, 0x02 write), byte 1 the register, each further byte a data byte for the next
// register (auto-increment). Each frame gives one `xfer` event.
#pragma once

#include "chip_model.h"

#include <cstddef>
#include <cstdint>

namespace zb {

struct SpiTransfer {
    const uint8_t *tx; // nullptr: zeros go out
    uint8_t *rx;       // where the received bytes go (nullptr: dropped)
    uint32_t len;
    uint8_t bits_per_word; // the transfer's own field (0: the device's)
    bool cs_change;
    bool has_rx; // the program gave a receive buffer
};

// Whether an injected fault fails this message (it counts the message).
bool spi_message_fails(ChipState &s);

// Runs the message on the chip and logs its frames as done by pid. A failed
// message (ok false) reaches no register: reads give back the byte sent.
// The caller holds the sandbox lock.
void spi_message(ChipState &s, int pid, const SpiTransfer *xfers, size_t n, bool ok);

} // namespace zb
