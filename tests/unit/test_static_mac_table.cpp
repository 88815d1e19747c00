// MAC address text as macadd and macdel read it.
#include "chip/mac_tables.h"

#include <array>
#include <gtest/gtest.h>

namespace {

using Mac = std::array<std::uint8_t, 6>;

struct MacTextCase {
    const char *text;
    Mac mac;
};

class MacText : public testing::TestWithParam<MacTextCase> {};

TEST_P(MacText, ParsesSixBytes) {
    Mac mac;
    mac.fill(0xEE);
    parse_mac_text(GetParam().text, mac.data());
    EXPECT_EQ(mac, GetParam().mac) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, MacText,
    testing::Values(MacTextCase{"08:00:70:22:44:01", {0x08, 0x00, 0x70, 0x22, 0x44, 0x01}},
                    // Short texts leave the remaining bytes 0.
                    MacTextCase{"12:34", {0x12, 0x34, 0, 0, 0, 0}},
                    // Each byte keeps its low 8 bits; the separator is any one character.
                    MacTextCase{"123:4:5:6:7:8", {0x23, 0x04, 0x05, 0x06, 0x07, 0x08}},
                    MacTextCase{"AA-bb::Cc/dd", {0xAA, 0xBB, 0x00, 0xCC, 0xDD, 0x00}},
                    // A character that is no digit gives 0 and is stepped over.
                    MacTextCase{"zz:01:02", {0x00, 0x00, 0x00, 0x01, 0x02, 0x00}},
                    // Bytes past the sixth are not looked at.
                    MacTextCase{"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6}}));

} // namespace
