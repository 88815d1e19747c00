// The simulated switch chip of the test bench.
//
// One ChipState lives in the sandbox file SB/state and is mmap'ed by every
// process of a test (the product under the preload library, and benchctl), so
// all of them see one chip. The layout is fixed: plain bytes and integers, no
// pointers. Callers serialise access with flock on SB/state (the preload
// library also takes a mutex for its own threads).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zb {

constexpr uint32_t kStateMagic = 0x5a42454eU; // "ZBEN"
constexpr uint32_t kStateVersion = 5;

enum Board : uint8_t { kBoardNand = 1, kBoardNor = 2 };

constexpr int kStaticRows = 32;
constexpr int kVlanAddrs = 1024;
constexpr int kDynEntries = 1024;
constexpr int kPorts = 5;
constexpr int kMibCounters = 32;
constexpr int kDroppedCounters = 10; // 0x100 + port: tx, 0x105 + port: rx
constexpr size_t kPathField = 256;

// Registers of the indirect table interface.
constexpr uint8_t kRegTableCtrl = 110;
constexpr uint8_t kRegTableAddr = 111;
constexpr uint8_t kRegTableData0 = 112; // highest-order data byte
constexpr uint8_t kRegTableData8 = 120; // lowest-order data byte

struct StaticRow {
    uint8_t valid;
    uint8_t override_;
    uint8_t use_fid;
    uint8_t ports; // 5 bits
    uint8_t fid;   // 7 bits
    uint8_t mac[6];
};

struct DynEntry {
    uint8_t mac[6];
    uint8_t fid;
    uint8_t port; // source port value, 3 bits
    uint8_t age;  // aging time, 2 bits
};

struct MibCounter {
    uint32_t value; // 30 bits
    uint8_t overflow;
};

// An SPI frame on the wire while chip select is active: the command, the
// first register and where auto-increment has got to.
struct SpiFrame {
    uint32_t len;
    uint8_t cmd;
    uint8_t reg;
    uint8_t first_val;
    uint8_t next_reg; // auto-incremented register
    uint8_t bpw;
    bool rx;
};

struct Faults {
    uint8_t open;       // device absent
    uint8_t wr_mode;    // SPI_IOC_WR_MODE fails
    uint8_t wr_lsb;     // SPI_IOC_WR_LSB_FIRST fails
    uint8_t wr_bits;    // SPI_IOC_WR_BITS_PER_WORD fails
    uint8_t wr_speed;   // SPI_IOC_WR_MAX_SPEED_HZ fails
    uint8_t xfer_all;   // every transfer fails
    uint8_t gpio_stuck; // the pulse on line 56 has no effect
    uint8_t pad;
    uint32_t xfer_from;  // 0: off; N: the Nth transfer after the fault was set and later fail
    uint32_t xfer_seen;  // transfers since xfer_from was set
    int32_t export_busy; // -1: off; else the line whose export fails with EBUSY
    char gpio_open[kPathField];  // path whose open fails with EACCES ("" = off)
    char gpio_write[kPathField]; // path whose writes fail with EIO ("" = off)
};

struct ChipState {
    uint32_t magic;
    uint32_t version;
    uint32_t size;
    uint8_t board;
    uint8_t managed; // 0: the chip does not answer on SPI
    uint8_t gpio191; // last level written to line 191
    uint8_t gpio56;  // last level written to line 56
    uint8_t log_on;  // events are written to SB/events
    uint8_t kernel;  // served through a kernel by the VM bench's chip server
    uint8_t pad[2];
    uint32_t time_scale; // usleep(us) really sleeps us / time_scale

    // The spidev device's settings (shared by every open, as in the kernel).
    uint32_t spi_mode;
    uint32_t spi_speed;
    uint8_t spi_bits;
    uint8_t pad2[3];

    uint8_t regs[256];
    StaticRow static_rows[kStaticRows];
    uint8_t vlan[kVlanAddrs][7]; // raw words, [0] = register 114 (high) .. [6] = 120 (low)
    DynEntry dyn[kDynEntries];
    uint32_t dyn_count;
    MibCounter mib[kPorts][kMibCounters];
    uint16_t dropped[kDroppedCounters];

    // Forced "not ready": after each read action the ready bit reads wrong for K reads.
    uint32_t notready_mib;
    uint32_t notready_dyn;
    uint32_t mib_wait; // remaining not-ready reads of register 117
    uint32_t dyn_wait; // remaining not-ready reads of register 114

    Faults faults;
    uint64_t xfers; // transfers seen since init
    // A message whose last transfer asks for cs_change leaves the chip
    // selected: the next message's bytes continue this frame.
    SpiFrame held_frame;
};

uint8_t chip_id(uint8_t board);
// Link register of port 1 or 2 on the board.
uint8_t chip_link_reg(uint8_t board, int port);

void chip_reset(ChipState &s, uint8_t board);

// One register access over SPI, with everything the chip does on it.
uint8_t chip_spi_read(ChipState &s, uint8_t reg);
void chip_spi_write(ChipState &s, uint8_t reg, uint8_t val);

// A level written to a GPIO line (56 or 191).
void chip_gpio_level(ChipState &s, int line, int level);

// Direct access to the VLAN table by VID, for benchctl.
void chip_vlan_get(const ChipState &s, int vid, uint8_t &fid, uint8_t &ports, uint8_t &valid);
void chip_vlan_set(ChipState &s, int vid, uint8_t fid, uint8_t ports, uint8_t valid);

} // namespace zb
