#include "binaural/CHELPER_HRTF.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/SignalReference.h"

using qktest::Code;
using qktest::MakeSet;
using qktest::ReportRecorder;
using Pair = qktest::Responses;

namespace {
// A "BOTH" set with one measurement per direction, m = TableIndex(az, el), whose left
// response starts with m and whose right response starts with m + 0.5.
std::unique_ptr<CHELPER_HRTF> directionSet() {
    auto set = MakeSet(CHELPER_HRTF::kDirections, 2, "BOTH", 44100);
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = i;
        set->m_pfData[4 * i] = static_cast<float>(i);
        set->m_pfData[4 * i + 2] = static_cast<float>(i) + 0.5f;
    }
    return set;
}

int index(int az, int el) {
    return CHELPER_HRTF::TableIndex(az, el);
}
}  // namespace

TEST(CHELPER_HRTF, DirectionsAreTruncatedWrappedAndClamped) {
    auto set = directionSet();
    struct Case {
        float az, el;
        int expected;
    } cases[] = {
        {360.0f, 0.0f, index(0, 0)},
        {0.0f, 0.0f, index(0, 0)},
        {-360.0f, 0.0f, index(0, 0)},
        {359.9f, 0.0f, index(359, 0)},
        {-0.5f, 0.0f, index(0, 0)},
        {-1.0f, 0.0f, index(359, 0)},
        {725.0f, 0.0f, index(5, 0)},
        {-725.0f, 0.0f, index(355, 0)},
        {10.0f, 91.0f, index(10, 90)},
        {10.0f, -120.0f, index(10, -90)},
        {10.0f, 45.9f, index(10, 45)},
        {10.0f, -45.9f, index(10, -45)},
        {1e30f, 0.0f, index(static_cast<int>(std::fmod(1e30f, 360.0f)), 0)},
    };
    for (const Case &c : cases) {
        Pair p;
        ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, c.az, c.el, 44100), 1);
        ASSERT_EQ(p.length, 2);
        EXPECT_EQ(p.left[0], static_cast<float>(c.expected)) << c.az << ", " << c.el;
        EXPECT_EQ(p.right[0], static_cast<float>(c.expected) + 0.5f) << c.az << ", " << c.el;
    }
}

TEST(CHELPER_HRTF, BothSetAtItsOwnRateGivesTheStoredTapsBitForBit) {
    auto set = MakeSet(3, 16, "BOTH", 48000);
    qktest::FillLookup(*set, 2);
    Pair p;
    p.left = ippsMalloc_32f(5);  // a buffer the caller held is freed, not leaked
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 30.0f, 10.0f, 48000), 1);
    ASSERT_EQ(p.length, 16);
    for (int k = 0; k < 16; ++k) {
        EXPECT_EQ(p.left[k], Code(4, k));
        EXPECT_EQ(p.right[k], Code(5, k));
    }
    EXPECT_EQ(set->m_iSampleRate, 48000);
}

// A one-ear set gives its own ear the measurement of the direction and the other ear that of
// the mirrored direction, row 359 - azimuth.
TEST(CHELPER_HRTF, OneEarSetsMirrorTheOtherEarToRow359MinusAzimuth) {
    for (const char *ears : {"LEFT", "RIGHT"}) {
        SCOPED_TRACE(ears);
        const bool left = std::string(ears) == "LEFT";
        auto set = MakeSet(4, 8, ears, 44100);
        set->m_aiLookup[index(0, 0)] = 1;
        set->m_aiLookup[index(359, 0)] = 2;
        set->m_aiLookup[index(90, 0)] = 3;
        set->m_aiLookup[index(269, 0)] = 0;
        Pair p;
        ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 1);
        EXPECT_EQ((left ? p.left : p.right)[3], Code(1, 3));
        EXPECT_EQ((left ? p.right : p.left)[3], Code(2, 3));  // row 359, not row 0
        ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 90.0f, 0.0f, 44100), 1);
        EXPECT_EQ((left ? p.left : p.right)[0], Code(3, 0));
        EXPECT_EQ((left ? p.right : p.left)[0], Code(0, 0));
    }
}

TEST(CHELPER_HRTF, MissingDirectionsAreReportedAndFail) {
    ReportRecorder catcher;
    auto both = MakeSet(2, 4, "BOTH", 44100);
    both->m_aiLookup[index(10, 0)] = 7;  // names a measurement the set doesn't hold
    Pair p;
    EXPECT_EQ(both->GetHRTF(p.left, p.right, p.length, 10.0f, 0.0f, 44100), 0);
    auto left = MakeSet(2, 4, "LEFT", 44100);
    left->m_aiLookup[index(0, 0)] = 0;  // row 359 stays empty
    EXPECT_EQ(left->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 0);
    EXPECT_EQ(catcher.Texts().back(), "// TODO search in run-time for closest - LEFT");
}

namespace {
// A "BOTH" set of one measurement whose responses are sines of the given period in samples.
std::unique_ptr<CHELPER_HRTF> sineSet(int iRate, int iTaps, double period) {
    auto set = MakeSet(1, iTaps, "BOTH", iRate);
    qktest::FillLookup(*set, 0);
    for (int k = 0; k < iTaps; ++k) {
        const float v = static_cast<float>(0.5 * std::sin(2.0 * M_PI * k / period));
        set->m_pfData[k] = v;
        set->m_pfData[iTaps + k] = -v;
    }
    return set;
}
}  // namespace

TEST(CHELPER_HRTF, HalfTheRateHalvesTheLengthAndKeepsTheFrequency) {
    // 44,100 Hz data asked for at 22,050 Hz: ratio 1/2, a period of 32 samples becomes 16.
    auto set = sineSet(44100, 512, 32.0);
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 22050), 1);
    EXPECT_NEAR(p.length, 256, 2);
    // Away from the ends, the output is the same sine at half the period. The converter
    // delays nothing and keeps the level within a few per cent in its pass band.
    constexpr float kTolerance = 0.03f;
    for (int k = 32; k < 224; ++k) {
        const float expected = static_cast<float>(0.5 * std::sin(2.0 * M_PI * k / 16.0));
        EXPECT_NEAR(p.left[k], expected, kTolerance) << k;
        EXPECT_NEAR(p.right[k], -expected, kTolerance) << k;
    }
}

// The reflection-list synthesis: responses placed at whole-sample delays with gains, each
// convolved with its own filter. Filters of 3 and 40 coefficients: the short one by direct
// convolution, the long one through a FIR state; both must give the full linear convolution.
TEST(CHELPER_HRTF, EachReflectionIsConvolvedWithItsOwnFilter) {
    // Measurement 0 at azimuth 0, measurement 1 at azimuth 90; 4 taps, 1 kHz so that one
    // millisecond is one sample.
    auto set = MakeSet(2, 4, "BOTH", 1000);
    set->m_aiLookup[static_cast<size_t>(index(0, 0))] = 0;
    set->m_aiLookup[static_cast<size_t>(index(90, 0))] = 1;
    std::vector<float> coefs(3 + 40);
    for (size_t k = 0; k < coefs.size(); ++k) {
        coefs[k] = std::cos(0.3f * static_cast<float>(k)) / (1.0f + static_cast<float>(k));
    }
    const int lengths[] = {3, 40};
    const float az[] = {0.0f, 90.0f}, el[] = {0.0f, 0.0f};
    const float delays[] = {2.0f, 7.0f}, gains[] = {0.5f, 2.0f};
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, coefs.data(), lengths,
                           2, 0, 1000),
              1);
    ASSERT_EQ(p.length, 7 + 40 + 4);  // trunc(delay) + longest filter + taps
    std::vector<double> left(51, 0.0), right(51, 0.0);
    const float *d = set->m_pfData.get();
    for (int r = 0; r < 2; ++r) {
        const size_t at = r == 0 ? 2 : 7;
        const double gain = gains[r];
        const float *filter = coefs.data() + (r == 0 ? 0 : 3);
        const auto l = qktest::LinearConvolution(d + 8 * r, 4, filter, lengths[r]);
        const auto rr = qktest::LinearConvolution(d + 8 * r + 4, 4, filter, lengths[r]);
        for (size_t k = 0; k < l.size(); ++k) {
            left[at + k] += gain * l[k];
            right[at + k] += gain * rr[k];
        }
    }
    // Single-precision sums of a few dozen products.
    constexpr double kTolerance = 1e-5;
    for (int k = 0; k < 51; ++k) {
        EXPECT_NEAR(p.left[k], left[static_cast<size_t>(k)], kTolerance) << k;
        EXPECT_NEAR(p.right[k], right[static_cast<size_t>(k)], kTolerance) << k;
    }
}
