// The reflection-list synthesis: responses placed at whole-sample delays with gains and
// reflection filters.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "support/HrtfSets.h"

using qktest::MakeSet;

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
