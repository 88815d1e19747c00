// Conversion between rates in Kbps and the chip's sub-Mbps rate codes.
#include "chip/rate_limit.h"

#include <gtest/gtest.h>

namespace {

TEST(RateCodes, KbpsTakesTheStepAtOrBelowAndCodesOutsideTheTableHaveNoKbps) {
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
