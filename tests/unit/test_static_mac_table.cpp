// MAC address text as macadd and macdel read it.
#include "chip/mac_tables.h"

#include <array>
#include <gtest/gtest.h>

namespace {

TEST(MacText, ParsesSixBytes) {
    using Mac = std::array<std::uint8_t, 6>;
    const struct {
        const char *text;
        Mac mac;
    } cases[] = {// Short texts leave the remaining bytes 0.
                 {"12:34", {0x12, 0x34, 0, 0, 0, 0}},
                 // Each byte keeps its low 8 bits.
                 {"123:4:5:6:7:8", {0x23, 0x04, 0x05, 0x06, 0x07, 0x08}},
                 // The separator is any one character; one that is no digit
                 // in a byte's place gives 0 and is stepped over.
                 {"AA-bb::Cc/dd", {0xAA, 0xBB, 0x00, 0xCC, 0xDD, 0x00}},
                 // Bytes past the sixth are not looked at.
                 {"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6}}};
    for (const auto &c : cases) {
        Mac mac;
        mac.fill(0xEE);
        parse_mac_text(c.text, mac.data());
        EXPECT_EQ(mac, c.mac) << c.text;
    }
}

} // namespace
