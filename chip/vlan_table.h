// The chip's 4096-row VLAN table, four 13-bit rows per table address.
#pragma once

#include "chip/device_database.h"
#include "console/cli.h"

inline constexpr unsigned VLAN_ROWS = 4096;

// The chip packs four 13-bit rows into one 56-bit word at table address
// VID / 4, held in the data registers 114 (bits 55-48) to 120 (bits 7-0). The
// row at position p = VID & 3 takes word bits 13p to 13p + 12: FID in its bits
// 6-0, port mask in 11-7, valid in 12. Word bits 55-52 belong to no row.
inline constexpr unsigned VLAN_REG_HIGH = 114;
inline constexpr unsigned VLAN_REG_LOW = 120;
inline constexpr unsigned VLAN_ROW_BITS = 13;
inline constexpr std::uint64_t VLAN_ROW_MASK = (1u << VLAN_ROW_BITS) - 1;

// Bit position in the word of the byte held by a data register.
constexpr unsigned vlan_register_shift(unsigned reg) {
    return (VLAN_REG_LOW - reg) * 8;
}

constexpr std::uint16_t vlan_row_pack(std::uint8_t fid, std::uint16_t ports, bool valid) {
    return static_cast<std::uint16_t>((fid & 0x7Fu) | ((ports & 0x1Fu) << 7) |
                                      (valid ? 1u << 12 : 0u));
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

std::uint32_t HardwareReadVlan(int fd, std::uint16_t vid, std::uint16_t *out_vid, std::uint8_t *fid,
                               std::uint16_t *ports, std::uint32_t *valid);
void HardwareWriteVlan(int fd, std::uint16_t vid, std::uint8_t fid, std::uint16_t ports,
                       std::uint32_t valid);
void SwitchShowVlanTable(int fd, std::int32_t first, std::int32_t count);
void SwitchCreateVlan(int fd, std::int32_t vid, std::uint8_t fid);
void SwitchDelVlan(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t ignore_fid,
                   std::uint32_t all);
void SwitchUpdateVlanPort(int fd, std::uint32_t vid, std::uint8_t fid, std::uint32_t port_index,
                          std::uint32_t add);

int vlan_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlancreate_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandel_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlanaddport_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);
int vlandelport_cmd(std::uint16_t *argc, char **argv, std::uint16_t usage_index, int fd);

inline constexpr std::array<CliCommand, 5> vlan_table_commands{{
    {"vlan", 2, 32, vlan_cmd},
    {"vlancreate", 2, 33, vlancreate_cmd},
    {"vlandel", 2, 34, vlandel_cmd},
    {"vlanaddport", 3, 35, vlanaddport_cmd},
    {"vlandelport", 3, 36, vlandelport_cmd},
}};
