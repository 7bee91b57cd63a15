// The reflection-list synthesis: responses placed at whole-sample delays with gains and
// reflection filters.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "support/HrtfSets.h"

using qktest::Code;
using qktest::MakeSet;
using qktest::ReportCatcher;

namespace {
struct Pair {
    ~Pair() {
        ippsFree(left);
        ippsFree(right);
    }
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
};

int index(int az, int el) {
    return CHELPER_HRTF::TableIndex(az, el);
}

// Measurement 0 at azimuth 0, measurement 1 at azimuth 90, nothing elsewhere; 4 taps, 1 kHz
// so that one millisecond is one sample.
std::unique_ptr<CHELPER_HRTF> twoDirections() {
    auto set = MakeSet(2, 4, "BOTH", 1000);
    set->m_aiLookup[static_cast<size_t>(index(0, 0))] = 0;
    set->m_aiLookup[static_cast<size_t>(index(90, 0))] = 1;
    return set;
}
}  // namespace

TEST(CHELPER_HRTF_Synthesis, ReflectionsAddAtTheirDelaysWithTheirGains) {
    auto set = twoDirections();
    const float az[] = {0.0f, 90.0f, 0.0f};
    const float el[] = {0.0f, 0.0f, 0.0f};
    const float delays[] = {0.0f, 5.9f, 2.0f};  // 5.9 ms truncates to sample 5
    const float gains[] = {1.0f, 0.5f, -2.0f};
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, nullptr, nullptr, 3, 0,
                           1000),
              1);
    ASSERT_EQ(p.length, 5 + 4);  // trunc(5.9) + taps
    std::vector<float> left(9, 0.0f), right(9, 0.0f);
    for (int k = 0; k < 4; ++k) {
        left[k] += Code(0, k);
        right[k] += Code(1, k);
        left[5 + k] += 0.5f * Code(2, k);
        right[5 + k] += 0.5f * Code(3, k);
        left[2 + k] += -2.0f * Code(0, k);
        right[2 + k] += -2.0f * Code(1, k);
    }
    for (int k = 0; k < 9; ++k) {
        EXPECT_FLOAT_EQ(p.left[k], left[k]) << k;
        EXPECT_FLOAT_EQ(p.right[k], right[k]) << k;
    }
}

TEST(CHELPER_HRTF_Synthesis, PowerOfTwoRaisesTheLength) {
    auto set = twoDirections();
    const float az[] = {0.0f}, el[] = {0.0f}, delays[] = {4.0f}, gains[] = {1.0f};
    Pair p;
    set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, nullptr, nullptr, 1, 1, 1000);
    EXPECT_EQ(p.length, 8);  // 4 + 4 is a power of two already
    const float later[] = {5.0f};
    set->GetHRTF(p.left, p.right, p.length, az, el, later, gains, nullptr, nullptr, 1, 1, 1000);
    EXPECT_EQ(p.length, 16);
    EXPECT_EQ(p.left[9], 0.0f);
    EXPECT_EQ(p.left[15], 0.0f);
}

TEST(CHELPER_HRTF_Synthesis, ReflectionsWithoutMeasurementAreSkipped) {
    ReportCatcher catcher;
    auto set = twoDirections();
    const float az[] = {45.0f, 0.0f}, el[] = {0.0f, 0.0f};
    const float delays[] = {3.0f, 0.0f}, gains[] = {1.0f, 1.0f};
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, nullptr, nullptr, 2, 0,
                           1000),
              1);
    ASSERT_EQ(p.length, 7);  // the skipped reflection's delay still sizes the response
    EXPECT_EQ(p.left[0], Code(0, 0));
    EXPECT_EQ(p.left[4], 0.0f);
    EXPECT_EQ(catcher.texts.size(), 1u);
}

TEST(CHELPER_HRTF_Synthesis, PathsBecomeDelaysAtTheSpeedOfSoundWithGainOne) {
    auto set = twoDirections();
    const float az[] = {90.0f}, el[] = {0.0f}, paths[] = {3.43f};  // 10 ms
    Pair p;
    ASSERT_EQ(set->GetHRTFForPaths(p.left, p.right, p.length, az, el, paths, 1, 0, 1000), 1);
    ASSERT_EQ(p.length, 14);
    EXPECT_EQ(p.left[9], 0.0f);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(p.left[10 + k], Code(2, k));
        EXPECT_EQ(p.right[10 + k], Code(3, k));
    }
}

TEST(CHELPER_HRTF_Synthesis, AbsurdDelaysAndEmptyListsStaySafe) {
    auto set = twoDirections();
    const float az[] = {0.0f, 0.0f, 0.0f}, el[] = {0.0f, 0.0f, 0.0f};
    const float delays[] = {NAN, -5.0f, 1e12f}, gains[] = {1.0f, 1.0f, 1.0f};
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, nullptr, nullptr, 3, 0,
                           1000),
              1);
    // Only the negative delay, taken as 0, contributes; the others are left out.
    ASSERT_EQ(p.length, 4);
    EXPECT_EQ(p.left[1], Code(0, 1));
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, 5, 0, 1000),
              1);
    EXPECT_EQ(p.length, 4);
    EXPECT_EQ(p.left[0], 0.0f);
}

namespace {
// Direct convolution in double precision, as the reference for the filtered reflections.
std::vector<double> convolve(const float *a, int na, const float *b, int nb) {
    std::vector<double> out(static_cast<size_t>(na + nb - 1), 0.0);
    for (int i = 0; i < na; ++i) {
        for (int j = 0; j < nb; ++j) {
            out[static_cast<size_t>(i + j)] += static_cast<double>(a[i]) * b[j];
        }
    }
    return out;
}
}  // namespace

TEST(CHELPER_HRTF_Synthesis, EachReflectionIsConvolvedWithItsOwnFilter) {
    // Filters of 3 and 40 coefficients: the short one by direct convolution, the long one
    // through a FIR state; both must give the full linear convolution.
    auto set = twoDirections();
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
    const auto l0 = convolve(d + 0, 4, coefs.data(), 3);
    const auto r0 = convolve(d + 4, 4, coefs.data(), 3);
    const auto l1 = convolve(d + 8, 4, coefs.data() + 3, 40);
    const auto r1 = convolve(d + 12, 4, coefs.data() + 3, 40);
    for (size_t k = 0; k < l0.size(); ++k) {
        left[2 + k] += 0.5 * l0[k];
        right[2 + k] += 0.5 * r0[k];
    }
    for (size_t k = 0; k < l1.size(); ++k) {
        left[7 + k] += 2.0 * l1[k];
        right[7 + k] += 2.0 * r1[k];
    }
    // Single-precision sums of a few dozen products.
    constexpr double kTolerance = 1e-5;
    for (int k = 0; k < 51; ++k) {
        EXPECT_NEAR(p.left[k], left[static_cast<size_t>(k)], kTolerance) << k;
        EXPECT_NEAR(p.right[k], right[static_cast<size_t>(k)], kTolerance) << k;
    }
}

TEST(CHELPER_HRTF_Synthesis, ASkippedReflectionLeavesItsFilterToTheNext) {
    ReportCatcher catcher;
    auto set = twoDirections();
    // Reflection 0 has no measurement; reflection 1 then reads filter 0's coefficients.
    const float coefs[] = {2.0f, 0.0f, /* filter 1: */ 0.0f, 0.0f, 5.0f};
    const int lengths[] = {2, 3};
    const float az[] = {45.0f, 0.0f}, el[] = {0.0f, 0.0f};
    const float delays[] = {0.0f, 0.0f}, gains[] = {1.0f, 1.0f};
    Pair p;
    ASSERT_EQ(
        set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, coefs, lengths, 2, 0, 1000),
        1);
    for (int k = 0; k < 4; ++k) {
        EXPECT_FLOAT_EQ(p.left[k], 2.0f * Code(0, k)) << k;  // filter {2, 0}, not {0, 0, 5}
    }
    EXPECT_EQ(p.left[4], 0.0f);
}

TEST(CHELPER_HRTF_Synthesis, ZeroLengthFiltersLeaveTheirReflectionUnfiltered) {
    auto set = twoDirections();
    const float coefs[] = {3.0f};
    const int lengths[] = {0, 1};
    const float az[] = {0.0f, 90.0f}, el[] = {0.0f, 0.0f};
    const float delays[] = {0.0f, 4.0f}, gains[] = {1.0f, 1.0f};
    Pair p;
    set->GetHRTF(p.left, p.right, p.length, az, el, delays, gains, coefs, lengths, 2, 0, 1000);
    ASSERT_EQ(p.length, 4 + 1 + 4);
    EXPECT_EQ(p.left[1], Code(0, 1));
    EXPECT_FLOAT_EQ(p.left[5], 3.0f * Code(2, 1));
}
