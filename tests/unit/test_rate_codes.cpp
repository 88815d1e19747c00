// Conversion between rates in Kbps and the chip's sub-Mbps rate codes.
#include "chip/rate_limit.h"

#include <gtest/gtest.h>

namespace {

struct KbpsCase {
    std::int32_t kbps;
    std::int32_t code;
};

class KbpsToCode : public ::testing::TestWithParam<KbpsCase> {};

TEST_P(KbpsToCode, TakesTheStepAtOrBelow) {
    EXPECT_EQ(RateKbpsToCode(GetParam().kbps), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Edges, KbpsToCode,
                         ::testing::Values(KbpsCase{-1, 0}, KbpsCase{0, 0}, KbpsCase{63, 0},
                                           KbpsCase{64, 101}, KbpsCase{127, 101},
                                           KbpsCase{128, 102}, KbpsCase{895, 113},
                                           KbpsCase{896, 114}, KbpsCase{959, 114},
                                           KbpsCase{960, 115}, KbpsCase{1023, 115},
                                           KbpsCase{1024, 115}, KbpsCase{102401, 115}));

struct CodeCase {
    std::int32_t code;
    std::int32_t kbps;
};

class CodeToKbps : public ::testing::TestWithParam<CodeCase> {};

TEST_P(CodeToKbps, ReadsTheTableRow) {
    EXPECT_EQ(RateCodeToKbps(GetParam().code), GetParam().kbps);
}

// Codes outside the table (the Mbps codes, 0 and 116 on) have no Kbps step.
INSTANTIATE_TEST_SUITE_P(Edges, CodeToKbps,
                         ::testing::Values(CodeCase{0, 0}, CodeCase{1, 0}, CodeCase{100, 0},
                                           CodeCase{101, 64}, CodeCase{102, 128},
                                           CodeCase{114, 896}, CodeCase{115, 960}, CodeCase{116, 0},
                                           CodeCase{127, 0}));

TEST(RateCodes, EveryStepRoundTrips) {
    for (const RateCode &row : rate_code_table) {
        EXPECT_EQ(RateKbpsToCode(row.kbps), row.code) << row.kbps;
        EXPECT_EQ(RateCodeToKbps(row.code), row.kbps) << row.code;
        // One below the step still belongs to the step before (none before 64).
        EXPECT_EQ(RateKbpsToCode(row.kbps - 1), row.code == 101 ? 0 : row.code - 1) << row.kbps;
    }
}

} // namespace
