// Conversion between rates in Kbps and the chip's sub-Mbps rate codes.
#include "chip/rate_limit.h"

#include <gtest/gtest.h>

namespace {

TEST(RateCodes, KbpsTakesTheStepAtOrBelowAndCodesOutsideTheTableHaveNoKbps) {
    // Below the first step, and past the last (the Mbps codes take those).
    const std::int32_t kbps_to_code[][2] = {{-1, 0}, {0, 0}, {1024, 115}, {102401, 115}};
    for (const auto &c : kbps_to_code)
        EXPECT_EQ(RateKbpsToCode(c[0]), c[1]) << c[0];
    // The Mbps codes, 0 and 116 on.
    for (const std::int32_t code : {0, 1, 100, 116, 127})
        EXPECT_EQ(RateCodeToKbps(code), 0) << code;
    for (const RateCode &row : rate_code_table) {
        // 64 Kbps steps: code 101 is 64 Kbps, code 115 is 960.
        EXPECT_EQ(row.kbps, 64 * (row.code - 100)) << row.code;
        EXPECT_EQ(RateKbpsToCode(row.kbps), row.code) << row.kbps;
        EXPECT_EQ(RateCodeToKbps(row.code), row.kbps) << row.code;
        // One below the step still belongs to the step before (none before 64).
        EXPECT_EQ(RateKbpsToCode(row.kbps - 1), row.code == 101 ? 0 : row.code - 1) << row.kbps;
    }
}

} // namespace
