#include "binaural/CSERVICE_QKEQ.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/SignalReference.h"

namespace {
constexpr int kRate = 44100;
constexpr int kTaps = 64;

// One measurement for every direction: a left ear with a strong high shelf (an impulse and
// its echo), a right ear with a plain impulse.
std::unique_ptr<CHELPER_HRTF> aheadSet() {
    auto set = qktest::MakeSet(1, kTaps, "BOTH", kRate);
    std::fill(set->m_pfData.get(), set->m_pfData.get() + 2 * kTaps, 0.0f);
    set->m_pfData[0] = 1.0f;
    set->m_pfData[1] = -0.8f;
    set->m_pfData[kTaps] = 1.0f;
    qktest::FillLookup(*set, 0);
    return set;
}

// Steady level (rms of the second half) of a sine through one ear's filter.
double level(CSERVICE_QKEQ &eq, CHELPER_HRTF *set, double hz, float limit, bool right) {
    const int n = 8192;
    std::vector<float> block(2 * n, 0.0f);
    for (int i = 0; i < n; ++i) {
        block[static_cast<size_t>((right ? n : 0) + i)] =
            static_cast<float>(std::sin(2.0 * M_PI * hz * i / kRate));
    }
    eq._process(set, block.data(), n, limit, kRate);
    double sum = 0.0;
    for (int i = n / 2; i < n; ++i) {
        const double v = block[static_cast<size_t>((right ? n : 0) + i)];
        sum += v * v;
    }
    return std::sqrt(sum / (n / 2));
}
}  // namespace

// The left ear's response is 1 - 0.8 z^-1: 0.2 at DC, 1.8 at the top. A limit of 1 makes
// every magnitude 1: the inverse is flat (at the level the frequency-sampling design gives a
// flat grid). Within a limit of 0.1 the inverse lifts 300 Hz by the response's own loss
// there; the right ear, already flat, stays as the flat design.
TEST(CSERVICE_QKEQ, InvertsTheResponseAheadWithinTheLimit) {
    auto set = aheadSet();
    CSERVICE_QKEQ flat;
    ASSERT_EQ(flat._init(set.get(), 1.0f, kRate), 0);
    const double flatLow = level(flat, set.get(), 300.0, 1.0f, false);
    const double flatHigh = level(flat, set.get(), 15000.0, 1.0f, false);
    EXPECT_NEAR(flatHigh / flatLow, 1.0, 0.05);
    CSERVICE_QKEQ eq;
    ASSERT_EQ(eq._init(set.get(), 0.1f, kRate), 0);
    const double loss = std::abs(1.0 - 0.8 * std::polar(1.0, -2 * M_PI * 300.0 / kRate));
    EXPECT_NEAR(level(eq, set.get(), 300.0, 0.1f, false) / flatLow, 1.0 / loss, 0.1 / loss);
    EXPECT_NEAR(level(eq, set.get(), 3000.0, 0.1f, true) / flatLow, 1.0, 0.05);
}

TEST(CSERVICE_QKEQ, MissingSetsAndDirectionsLeaveItAsItWas) {
    CSERVICE_QKEQ eq;
    EXPECT_EQ(eq._init(nullptr, 0.1f, kRate), -1);
    auto none = qktest::MakeSet(1, kTaps, "BOTH", kRate);
    none->m_aiLookup.assign(CHELPER_HRTF::kDirections, -1);
    qktest::ReportRecorder quiet;
    EXPECT_EQ(eq._init(none.get(), 0.1f, kRate), -1);
    EXPECT_EQ(eq.m_pFIRLeft, nullptr);
    // A silent ear has no inverse without a limit: that ear passes unfiltered.
    auto set = aheadSet();
    std::fill(set->m_pfData.get(), set->m_pfData.get() + kTaps, 0.0f);
    ASSERT_EQ(eq._init(set.get(), 0.0f, kRate), 0);
    EXPECT_EQ(eq.m_pFIRLeft, nullptr);
    EXPECT_NE(eq.m_pFIRRight, nullptr);
    std::vector<float> block = qktest::Noise(64, 1);
    const std::vector<float> before = block;
    eq._process(set.get(), block.data(), 32, 0.0f, kRate);
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + 32, block.begin()));

    CSERVICE_DISPLACEMENT displacement;
    const float paths[12] = {0, 0, 1, 90, 0, 2, 180, 10, 3, 270, -10, 4};
    EXPECT_EQ(displacement._init(set.get(), paths, kRate), 0);
    EXPECT_EQ(displacement._init(nullptr, paths, kRate), -1);
}
