// The chip's 4096-row VLAN table. Four rows share one table address, so a row
// write reads the address, patches that row's 13 bits and writes all back.
#include "chip/vlan_table.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/table_access.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned VLAN_ROWS = 4096;

// The chip packs four 13-bit rows into one 56-bit word at table address
// VID / 4, held in the data registers 114 (bits 55-48) to 120 (bits 7-0). The
// row at position p = VID & 3 takes word bits 13p to 13p + 12: FID in its bits
// 6-0, port mask in 11-7, valid in 12. Word bits 55-52 belong to no row.
constexpr unsigned VLAN_REG_HIGH = 114;
constexpr unsigned VLAN_REG_LOW = 120;
constexpr unsigned VLAN_ROW_BITS = 13;
constexpr std::uint64_t VLAN_ROW_MASK = (1U << VLAN_ROW_BITS) - 1;

// Bit position in the word of the byte held by a data register.
constexpr unsigned vlan_register_shift(unsigned reg) {
    return (VLAN_REG_LOW - reg) * 8;
}

constexpr std::uint16_t vlan_row_pack(std::uint8_t fid, std::uint16_t ports, bool valid) {
    return static_cast<std::uint16_t>((fid & 0x7FU) | ((ports & 0x1FU) << 7) |
                                      (valid ? 1U << 12 : 0U));
}

constexpr std::uint16_t vlan_word_row(std::uint64_t word, unsigned position) {
    return static_cast<std::uint16_t>((word >> (VLAN_ROW_BITS * position)) & VLAN_ROW_MASK);
}

// The word with the row at position replaced; all other bits kept.
constexpr std::uint64_t vlan_word_put_row(std::uint64_t word, unsigned position,
                                          std::uint16_t row) {
    const unsigned shift = VLAN_ROW_BITS * position;
    return (word & ~(VLAN_ROW_MASK << shift)) | ((row & VLAN_ROW_MASK) << shift);
}

constexpr std::int32_t VLAN_SHOW_DEFAULT_COUNT = 16;
constexpr std::int32_t VLAN_VID_MAX = 4095;

unsigned vlan_address(unsigned vid) {
    return vid >> 2;
}
unsigned vlan_position(unsigned vid) {
    return vid & 3U;
}

// The data registers holding the row at a position, from the low end up.
struct RowRegisters {
    unsigned lowest;
    unsigned count;
};
constexpr RowRegisters row_registers[4] = {{120, 2}, {119, 3}, {117, 2}, {116, 3}};

std::uint32_t HardwareReadVlan(int fd, std::uint16_t vid, std::uint16_t *out_vid, std::uint8_t *fid,
                               std::uint16_t *ports, std::uint32_t *valid) {
    // GCOVR_EXCL_START: every caller checks the vid against the table first
    if (vid >= VLAN_ROWS)
        return 0;
    // GCOVR_EXCL_STOP
    const unsigned position = vlan_position(vid);
    table_read_start(fd, TABLE_VLAN, vlan_address(vid));
    std::uint64_t word = 0;
    const RowRegisters regs = row_registers[position];
    for (unsigned i = 0; i < regs.count; ++i) {
        const unsigned reg = regs.lowest - i;
        word |= static_cast<std::uint64_t>(hw_read_byte(fd, reg)) << vlan_register_shift(reg);
    }
    const std::uint16_t row = vlan_word_row(word, position);
    *out_vid = vid;
    *fid = static_cast<std::uint8_t>(row & 0x7FU);
    *ports = static_cast<std::uint16_t>((row >> 7) & 0x1FU);
    *valid = (row >> 12) & 1U;
    return *valid;
}

void HardwareWriteVlan(int fd, std::uint16_t vid, std::uint8_t fid, std::uint16_t ports,
                       std::uint32_t valid) {
    // GCOVR_EXCL_START: every caller checks the vid against the table first
    if (vid >= VLAN_ROWS)
        return;
    // GCOVR_EXCL_STOP
    const unsigned address = vlan_address(vid);
    table_read_start(fd, TABLE_VLAN, address);
    std::uint64_t word = 0;
    for (unsigned reg = VLAN_REG_HIGH; reg <= VLAN_REG_LOW; ++reg)
        word |= static_cast<std::uint64_t>(hw_read_byte(fd, reg)) << vlan_register_shift(reg);
    word = vlan_word_put_row(word, vlan_position(vid), vlan_row_pack(fid, ports, valid != 0));
    for (unsigned reg = VLAN_REG_HIGH; reg <= VLAN_REG_LOW; ++reg)
        hw_write_byte(fd, reg, static_cast<unsigned>((word >> vlan_register_shift(reg)) & 0xFF));
    table_write_commit(fd, TABLE_VLAN, address);
}

void show_error_range() {
    std::printf("error: invalid entry number or count to display VLAN table! \n");
}

void read_row(int fd, unsigned vid, VlanRow &row) {
    HardwareReadVlan(fd, static_cast<std::uint16_t>(vid), &row.vid, &row.fid, &row.ports,
                     &row.valid);
}

} // namespace

void SwitchShowVlanTable(int fd, std::int32_t first, std::int32_t count) {
    // Summed wide, so that no count can wrap the end of the range round.
    std::int64_t shown = count;
    if (static_cast<std::int64_t>(first) + shown > VLAN_ROWS) {
        shown = VLAN_ROWS - static_cast<std::int64_t>(first);
        if (shown < 1) {
            show_error_range();
            return;
        }
    }
    // A number beyond the signed 32-bit range reads as a negative first index,
    // for which the table has no row: refused like any index past the end.
    if (first < 0) {
        show_error_range();
        return;
    }
    char header[4 * (1 + 1) + 1];
    format_port_header(header, 1);
    std::printf("Entry  Status    VID    FID  Port(%s)  \n", header);
    const std::int64_t end = first + shown;
    for (std::int64_t index = first; index < end; ++index) {
        VlanRow row{};
        read_row(fd, static_cast<unsigned>(index), row);
        char port_map[9];
        format_port_map(static_cast<std::uint32_t>(row.ports >> 1), port_map);
        std::printf("%4d   ", static_cast<int>(index));
        std::printf("%s ", row.valid != 0U ? "    V   " : "        ");
        std::printf("%4d ", row.vid);
        std::printf("  %4d  ", row.fid);
        std::printf("     %s\n", port_map);
    }
}

void SwitchCreateVlan(int fd, std::int32_t vid, std::uint8_t fid) {
    if (vid < 1 || vid > VLAN_VID_MAX) {
        std::printf("error: incorrect vid (%d) to create in the VLAN table! \n", vid);
        return;
    }
    if ((fid & 0x80) != 0) {
        std::printf("error: incorrect fid (%d) to create in the VLAN table! \n", fid);
        return;
    }
    VlanRow row{};
    read_row(fd, static_cast<unsigned>(vid), row);
    if (row.valid != 0U) {
        std::printf("this VLAN entry (%d) is already exist! \n", vid);
        return;
    }
    // A new VLAN starts without ports; vlanaddport adds them.
    HardwareWriteVlan(fd, static_cast<std::uint16_t>(vid), fid, 0, 1);
}

void SwitchDelVlan(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t ignore_fid,
                   std::uint32_t all) {
    if (gDrvCtrl == nullptr)
        return;
    if (all == 1) {
        // One row at a time: the cost is one read-patch-write per VID.
        for (unsigned v = 0; v < VLAN_ROWS; ++v)
            HardwareWriteVlan(fd, static_cast<std::uint16_t>(v), 0, 0, 0);
        return;
    }
    bool found = false;
    if (vid < VLAN_ROWS) {
        VlanRow &row = gDrvCtrl->vlan_table[vid];
        read_row(fd, vid, row);
        found = row.vid == vid && (ignore_fid == 1 || row.fid == fid);
    }
    if (found)
        HardwareWriteVlan(fd, static_cast<std::uint16_t>(vid), 0, 0, 0);
    else
        std::printf("error: can't find this vid(%d) and fid(%d) entry to remove! \n",
                    static_cast<int>(vid), fid);
}

void SwitchUpdateVlanPort(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t port_index,
                          std::uint32_t add) {
    if (gDrvCtrl == nullptr)
        return;
    VlanRow *row = nullptr;
    if (vid < VLAN_ROWS) {
        row = &gDrvCtrl->vlan_table[vid];
        read_row(fd, vid, *row);
    }
    if (row == nullptr || row->vid != vid || row->fid != fid || row->valid != 1) {
        std::printf(
            "error: can't find this vid(%d) and fid(%d) entry to update forwarding port! \n",
            static_cast<int>(vid), fid);
        return;
    }
    const std::uint16_t bit = port_mask_bit(port_index);
    row->ports = static_cast<std::uint16_t>(add == 1 ? (row->ports | bit) : (row->ports & ~bit));
    HardwareWriteVlan(fd, static_cast<std::uint16_t>(vid), fid, row->ports, 1);
}

int vlan_cmd(std::uint16_t *argc, char **argv, std::uint16_t /*usage_index*/, int fd) {
    cli_echo_tokens(*argc, argv, true);
    SwitchShowVlanTable(fd, cli_int_or(*argc, argv, 0, 0),
                        cli_int_or(*argc, argv, 1, VLAN_SHOW_DEFAULT_COUNT));
    return cli_handler_done(*argc, argv);
}

int vlancreate_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    SwitchCreateVlan(fd, cli_int(argv[0]), cli_fid_or_0(*argc, argv, 1));
    return cli_handler_done(*argc, argv);
}

int vlandel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 1, usage_index))
        return 1;
    if (std::strcmp(argv[0], "all") == 0) {
        SwitchDelVlan(fd, 1, 0, 1, 1);
    } else {
        // Without a FID, the row of the VID goes whatever its FID.
        const std::uint32_t ignore_fid = *argc >= 2 ? 0 : 1;
        SwitchDelVlan(fd, static_cast<std::uint32_t>(cli_number(argv[0], 10)),
                      cli_fid_or_0(*argc, argv, 1), ignore_fid, 0);
    }
    return cli_handler_done(*argc, argv);
}

template <std::uint32_t Add>
int vlan_port_handler(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd) {
    if (!cli_take_tokens(*argc, argv, 2, usage_index))
        return 1;
    const auto vid = static_cast<std::uint32_t>(cli_number(argv[0], 10));
    const auto port_index = cli_port_index(argv[1]);
    SwitchUpdateVlanPort(fd, vid, cli_fid_or_0(*argc, argv, 2), port_index, Add);
    return cli_handler_done(*argc, argv);
}

template int vlan_port_handler<1>(std::uint16_t *argc, char **argv, std::uint16_t usage_index,
                                  int fd);
template int vlan_port_handler<0>(std::uint16_t *argc, char **argv, std::uint16_t usage_index,
                                  int fd);
