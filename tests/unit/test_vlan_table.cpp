// Packing of the four VLAN rows that share one table address.
#include "chip/vlan_table.h"

#include <array>
#include <gtest/gtest.h>

namespace {

struct PackCase {
    unsigned vid;
    std::uint8_t fid;
    std::uint16_t ports;
    std::array<std::uint8_t, 7> regs; // 114 first
};

class VlanPacking : public testing::TestWithParam<PackCase> {};

TEST_P(VlanPacking, RowTakesOnlyItsOwnBits) {
    const PackCase &c = GetParam();
    std::uint64_t expected = 0;
    for (unsigned reg = VLAN_REG_HIGH; reg <= VLAN_REG_LOW; ++reg)
        expected |= std::uint64_t{c.regs[reg - VLAN_REG_HIGH]} << vlan_register_shift(reg);
    const std::uint16_t row = vlan_row_pack(c.fid, c.ports, true);
    EXPECT_EQ(vlan_word_put_row(0, c.vid & 3, row), expected);
    EXPECT_EQ(vlan_word_row(expected, c.vid & 3), row);
    // The three other rows and word bits 55-52 stay as they were.
    const std::uint64_t ones = (std::uint64_t{1} << 56) - 1;
    EXPECT_EQ(vlan_word_put_row(ones, c.vid & 3, 0), ones & ~(VLAN_ROW_MASK << 13 * (c.vid & 3)));
}

// The chip's worked rows, each alone at table address 1.
INSTANTIATE_TEST_SUITE_P(WorkedRows, VlanPacking,
                         testing::Values(PackCase{4, 0x55, 0x0A, {0, 0, 0, 0, 0, 0x15, 0x55}},
                                         PackCase{5, 0x03, 0x11, {0, 0, 0, 0x03, 0x10, 0x60, 0}},
                                         PackCase{6, 0x55, 0x0A, {0, 0, 0x55, 0x54, 0, 0, 0}},
                                         PackCase{7, 0x55, 0x0A, {0x0A, 0xAA, 0x80, 0, 0, 0, 0}}));

TEST(VlanRowPack, FieldsAreCutToTheirWidths) {
    EXPECT_EQ(vlan_row_pack(0xFF, 0xFFFF, false), 0x0FFFu);
    EXPECT_EQ(vlan_row_pack(0x80, 0x20, true), 0x1000u);
}

} // namespace
