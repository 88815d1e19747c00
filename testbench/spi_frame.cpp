#include "spi_frame.h"

#include "event_log.h"

#include <cstdio>

namespace zb {

namespace {

using Frame = SpiFrame;

void log_frame(const Frame &f, int pid, bool ok) {
    if (f.len == 0)
        return;
    const char *op = f.cmd == 0x03 ? "R" : f.cmd == 0x02 ? "W" : "?";
    char reg[8] = "-";
    char val[8] = "-";
    if (f.len >= 2)
        std::snprintf(reg, sizeof reg, "%u", f.reg);
    if (f.len >= 3)
        std::snprintf(val, sizeof val, "%u", f.first_val);
    event("xfer %d %s %s %s bpw=%u rx=%d len=%u ok=%d", pid, op, reg, val, f.bpw, f.rx ? 1 : 0,
          f.len, ok ? 1 : 0);
}

// One byte on the wire within a frame; returns the byte the chip shifts out.
// With `apply` false (a failed transfer) the chip sees nothing.
uint8_t frame_byte(ChipState &s, Frame &f, uint8_t tx, bool apply) {
    size_t pos = f.len++;
    uint8_t idle = s.managed != 0 ? 0x00 : 0xFF;
    if (pos <= 1) {
        (pos == 0 ? f.cmd : f.reg) = tx;
        f.next_reg = tx;
        return idle;
    }
    uint8_t out = idle;
    uint8_t reg = f.next_reg++;
    if (f.cmd == 0x03) {
        out = apply ? chip_spi_read(s, reg) : tx;
        if (pos == 2)
            f.first_val = out;
    } else {
        if (f.cmd == 0x02 && apply)
            chip_spi_write(s, reg, tx);
        if (pos == 2)
            f.first_val = tx;
    }
    return out;
}

} // namespace

bool spi_message_fails(ChipState &s) {
    ++s.xfers;
    bool fails = s.faults.xfer_all != 0;
    if (s.faults.xfer_from != 0) {
        ++s.faults.xfer_seen;
        if (s.faults.xfer_seen >= s.faults.xfer_from)
            fails = true;
    }
    return fails;
}

void spi_message(ChipState &s, int pid, const SpiTransfer *xfers, size_t n, bool ok) {
    Frame f = s.held_frame;
    s.held_frame = Frame{};
    for (size_t i = 0; i < n; ++i) {
        const SpiTransfer &t = xfers[i];
        if (f.len == 0) {
            f.bpw = t.bits_per_word;
            f.rx = false;
        }
        f.rx = f.rx || t.has_rx;
        for (uint32_t k = 0; k < t.len; ++k) {
            uint8_t out = frame_byte(s, f, t.tx != nullptr ? t.tx[k] : 0, ok);
            if (t.rx != nullptr)
                t.rx[k] = out;
        }
        const bool last = i + 1 == n;
        if (last && t.cs_change) {
            s.held_frame = f; // as a controller that honours cs_change does
        } else if (t.cs_change || last) {
            log_frame(f, pid, ok);
            f = Frame{};
        }
    }
}

} // namespace zb
