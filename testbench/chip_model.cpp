// The simulated switch chip: registers, the indirect tables behind registers
// 110 to 120, and the management mode driven by GPIO lines 56 and 191.
#include "chip_model.h"

#include <cstring>

namespace zb {

namespace {

constexpr uint8_t kRegChipId = 0;
constexpr uint8_t kRegChipCtrl = 1;
constexpr uint8_t kLinkBit = 0x20;

constexpr int kTableStatic = 0;
constexpr int kTableVlan = 1;
constexpr int kTableDyn = 2;
constexpr int kTableMib = 3;

constexpr int kMibAddrs = kPorts * kMibCounters; // 0x000 .. 0x09F
constexpr int kDroppedBase = 0x100;              // 0x100 .. 0x109

bool is_link_reg(const ChipState &s, uint8_t reg) {
    return reg == chip_link_reg(s.board, 1) || reg == chip_link_reg(s.board, 2);
}

// The chip packs four 13-bit VLAN rows into one 56-bit word per table address.
uint64_t vlan_word(const uint8_t raw[7]) {
    uint64_t w = 0;
    for (int i = 0; i < 7; ++i)
        w = (w << 8) | raw[i];
    return w;
}

void vlan_store(uint8_t raw[7], uint64_t w) {
    for (int i = 6; i >= 0; --i) {
        raw[i] = static_cast<uint8_t>(w & 0xFF);
        w >>= 8;
    }
}

void static_read_action(ChipState &s, int row) {
    if (row >= kStaticRows)
        return; // no such row: the data registers keep what they held
    const StaticRow &r = s.static_rows[row];
    // Read layout: FID sits one bit higher than on a write, UseFID below it.
    s.regs[113] = static_cast<uint8_t>(((r.fid & 0x7F) << 1) | (r.use_fid != 0 ? 1 : 0));
    s.regs[114] = static_cast<uint8_t>((r.override_ != 0 ? 0x40 : 0) | (r.valid != 0 ? 0x20 : 0) |
                                       (r.ports & 0x1F));
    std::memcpy(&s.regs[115], r.mac, 6);
}

void static_write_action(ChipState &s, int row) {
    if (row >= kStaticRows)
        return;
    StaticRow &r = s.static_rows[row];
    r.fid = static_cast<uint8_t>(s.regs[113] & 0x7F);
    r.use_fid = (s.regs[114] & 0x80) != 0 ? 1 : 0;
    r.override_ = (s.regs[114] & 0x40) != 0 ? 1 : 0;
    r.valid = (s.regs[114] & 0x20) != 0 ? 1 : 0;
    r.ports = static_cast<uint8_t>(s.regs[114] & 0x1F);
    std::memcpy(r.mac, &s.regs[115], 6);
}

void dyn_read_action(ChipState &s, int n) {
    const DynEntry &e = s.dyn[n];
    uint32_t count = s.dyn_count > kDynEntries ? kDynEntries : s.dyn_count;
    uint32_t last = count != 0 ? count - 1 : 0;
    s.regs[112] = static_cast<uint8_t>(count == 0 ? 0x80 : ((last >> 3) & 0x7F));
    s.regs[113] = static_cast<uint8_t>(((last & 7) << 5) | ((e.age & 3) << 3) | (e.port & 7));
    s.regs[114] = static_cast<uint8_t>(e.fid & 0x7F);
    std::memcpy(&s.regs[115], e.mac, 6);
    s.dyn_wait = s.notready_dyn;
}

void mib_read_action(ChipState &s, int addr) {
    if (addr < kMibAddrs) {
        MibCounter &c = s.mib[addr / kMibCounters][addr % kMibCounters];
        uint32_t v = c.value & 0x3FFFFFFF;
        s.regs[117] =
            static_cast<uint8_t>((c.overflow != 0 ? 0x80 : 0) | 0x40 | ((v >> 24) & 0x3F));
        s.regs[118] = static_cast<uint8_t>(v >> 16);
        s.regs[119] = static_cast<uint8_t>(v >> 8);
        s.regs[120] = static_cast<uint8_t>(v);
        // The chip clears a counter when it is read.
        c.value = 0;
        c.overflow = 0;
    } else if (addr >= kDroppedBase && addr < kDroppedBase + kDroppedCounters) {
        // Dropped-packet counters run freely and are not cleared.
        uint16_t v = s.dropped[addr - kDroppedBase];
        s.regs[119] = static_cast<uint8_t>(v >> 8);
        s.regs[120] = static_cast<uint8_t>(v);
    }
    s.mib_wait = s.notready_mib;
}

void table_action(ChipState &s) {
    uint8_t ctrl = s.regs[kRegTableCtrl];
    int addr = ((ctrl & 3) << 8) | s.regs[kRegTableAddr];
    bool read = (ctrl & 0x10) != 0;
    int table = (ctrl >> 2) & 3;
    switch (table) {
    case kTableStatic:
        if (read)
            static_read_action(s, addr);
        else
            static_write_action(s, addr);
        break;
    case kTableVlan:
        if (read)
            std::memcpy(&s.regs[114], s.vlan[addr], 7);
        else
            std::memcpy(s.vlan[addr], &s.regs[114], 7);
        break;
    case kTableDyn:
        if (read)
            dyn_read_action(s, addr);
        break; // the dynamic table cannot be written
    case kTableMib:
        if (read)
            mib_read_action(s, addr);
        break; // nor can the counters
    }
}

} // namespace

uint8_t chip_id(uint8_t board) {
    return board == kBoardNor ? 0x88 : 0x95;
}

uint8_t chip_link_reg(uint8_t board, int port) {
    if (board == kBoardNor)
        return port == 1 ? 30 : 46;
    return port == 1 ? 46 : 62;
}

void chip_reset(ChipState &s, uint8_t board) {
    std::memset(&s, 0, sizeof s);
    s.magic = kStateMagic;
    s.version = kStateVersion;
    s.size = sizeof s;
    s.board = board;
    s.managed = 1;
    s.log_on = 1;
    s.time_scale = 1000;
    s.spi_mode = 0;
    s.spi_bits = 8;
    s.spi_speed = 10000000;
    s.regs[kRegChipId] = chip_id(board);
    s.regs[kRegChipCtrl] = 0x61;
    s.regs[chip_link_reg(board, 1)] |= kLinkBit;
    s.regs[chip_link_reg(board, 2)] |= kLinkBit;
    // A few control defaults of a freshly reset chip.
    s.regs[2] = 0x04;
    s.regs[3] = 0x40;
    s.faults.export_busy = -1;
}

uint8_t chip_spi_read(ChipState &s, uint8_t reg) {
    if (s.managed == 0)
        return 0xFF; // an unmanaged chip leaves MISO high
    uint8_t v = s.regs[reg];
    if (reg == 117 && s.mib_wait > 0) {
        --s.mib_wait;
        v = static_cast<uint8_t>(v & ~0x40);
    }
    if (reg == 114 && s.dyn_wait > 0) {
        --s.dyn_wait;
        v = static_cast<uint8_t>(v | 0x80);
    }
    return v;
}

void chip_spi_write(ChipState &s, uint8_t reg, uint8_t val) {
    if (s.managed == 0)
        return;
    if (reg == kRegChipId)
        return;
    if (reg == kRegChipCtrl) {
        s.regs[reg] = static_cast<uint8_t>((s.regs[reg] & 0xF0) | (val & 0x0F));
        return;
    }
    if (is_link_reg(s, reg)) {
        s.regs[reg] = static_cast<uint8_t>((s.regs[reg] & kLinkBit) | (val & ~kLinkBit));
        return;
    }
    s.regs[reg] = val;
    if (reg == kRegTableAddr)
        table_action(s);
}

void chip_gpio_level(ChipState &s, int line, int level) {
    uint8_t lv = level != 0 ? 1 : 0;
    if (line == 191) {
        s.gpio191 = lv;
    } else if (line == 56) {
        uint8_t old = s.gpio56;
        s.gpio56 = lv;
        // A rising edge on line 56 latches the mode level of line 191.
        if (old == 0 && lv == 1 && s.board == kBoardNand && s.faults.gpio_stuck == 0)
            s.managed = s.gpio191;
    }
}

void chip_vlan_get(const ChipState &s, int vid, uint8_t &fid, uint8_t &ports, uint8_t &valid) {
    uint64_t w = vlan_word(s.vlan[(vid >> 2) & (kVlanAddrs - 1)]);
    uint32_t row = static_cast<uint32_t>((w >> (13 * (vid & 3))) & 0x1FFF);
    fid = static_cast<uint8_t>(row & 0x7F);
    ports = static_cast<uint8_t>((row >> 7) & 0x1F);
    valid = static_cast<uint8_t>((row >> 12) & 1);
}

void chip_vlan_set(ChipState &s, int vid, uint8_t fid, uint8_t ports, uint8_t valid) {
    uint8_t *raw = s.vlan[(vid >> 2) & (kVlanAddrs - 1)];
    int shift = 13 * (vid & 3);
    uint64_t row =
        static_cast<uint64_t>((fid & 0x7F) | ((ports & 0x1F) << 7) | ((valid != 0 ? 1 : 0) << 12));
    uint64_t w = vlan_word(raw);
    w = (w & ~(uint64_t{0x1FFF} << shift)) | (row << shift);
    vlan_store(raw, w);
}

} // namespace zb
