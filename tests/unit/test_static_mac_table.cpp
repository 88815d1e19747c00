// MAC address text as macadd and macdel read it.
#include "chip/mac_tables.h"

#include <array>
#include <gtest/gtest.h>

namespace {

TEST(MacText, ParsesSixBytes) {
    // One byte more than a MAC address, which the parser leaves alone.
    using Mac = std::array<std::uint8_t, 7>;
    const struct {
        const char *text;
        Mac mac;
    } cases[] = {// Short texts leave the remaining bytes 0.
                 {"12:34", {0x12, 0x34, 0, 0, 0, 0, 0xEE}},
                 // Each byte keeps its low 8 bits.
                 {"123:4:5:6:7:8", {0x23, 0x04, 0x05, 0x06, 0x07, 0x08, 0xEE}},
                 // The separator is any one character; one that is no digit
                 // in a byte's place gives 0 and is stepped over.
                 {"AA-bb::Cc/dd", {0xAA, 0xBB, 0x00, 0xCC, 0xDD, 0x00, 0xEE}},
                 // Bytes past the sixth are neither looked at nor stored.
                 {"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 0xEE}}};
    for (const auto &c : cases) {
        Mac mac;
        mac.fill(0xEE);
        parse_mac_text(c.text, mac.data());
        EXPECT_EQ(mac, c.mac) << c.text;
    }
}

} // namespace
