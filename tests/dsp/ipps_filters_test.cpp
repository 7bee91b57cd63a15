#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/ipps.h"
#include "support/SignalReference.h"

namespace {
// Sums of up to a few hundred float products of values of order 1.
constexpr float kTol = 1e-5f;

// Filters x in blocks of the given length through one state.
std::vector<float> firInBlocks(const std::vector<float> &taps, const std::vector<float> &x,
                               int block) {
    IppsFIRState_32f *state = nullptr;
    ippsFIRInitAlloc_32f(&state, taps.data(), static_cast<int>(taps.size()), nullptr);
    std::vector<float> y(x.size());
    for (size_t start = 0; start < x.size(); start += static_cast<size_t>(block)) {
        const int len = static_cast<int>(std::min(x.size() - start, static_cast<size_t>(block)));
        ippsFIR_32f(x.data() + start, y.data() + start, len, state);
    }
    ippsFIRFree_32f(state);
    return y;
}
}  // namespace

TEST(IppsFIR, MatchesDirectConvolutionWhateverTheBlockLength) {
    const std::vector<float> taps = qktest::Noise(37, 1);
    const std::vector<float> x = qktest::Noise(9000, 2);
    for (int block : {1, 713, 8192, 9000}) {
        const std::vector<float> y = firInBlocks(taps, x, block);
        for (size_t n = 0; n < x.size(); n += 97) {
            double expected = 0.0;
            for (size_t k = 0; k < taps.size() && k <= n; ++k) {
                expected += static_cast<double>(taps[k]) * x[n - k];
            }
            ASSERT_NEAR(y[n], expected, kTol) << "block " << block << " sample " << n;
        }
    }
}

TEST(IppsFIR, FiltersInPlaceAndStartsFromAGivenDelayLine) {
    const float taps[3] = {1.0f, 2.0f, 3.0f};
    const float history[2] = {10.0f, 100.0f};  // x[-1], x[-2]
    IppsFIRState_32f *state = nullptr;
    ASSERT_EQ(ippsFIRInitAlloc_32f(&state, taps, 3, history), ippStsNoErr);
    float x[3] = {1.0f, 0.0f, 0.0f};
    ippsFIR_32f(x, x, 3, state);
    EXPECT_EQ(std::vector<float>(x, x + 3), (std::vector<float>{321, 32, 3}));  // 1 + 2*10 + 3*100
    ippsFIRFree_32f(state);
}

TEST(IppsIIR, TapsAreNormalisedByAZero) {
    // b = 2, 0, 0 and a = 2, 0, 0: after division by a0 the filter is the identity.
    const float taps[6] = {2.0f, 0.0f, 0.0f, 2.0f, 0.0f, 0.0f};
    IppsIIRState_32f *state = nullptr;
    ASSERT_EQ(ippsIIRInitAlloc_32f(&state, taps, 2, nullptr), ippStsNoErr);
    const std::vector<float> x = qktest::Noise(64, 5);
    std::vector<float> y(64);
    ippsIIR_32f(x.data(), y.data(), 64, state);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(y[i], x[i]) << i;
    }
    ippsIIRFree_32f(state);
}

TEST(IppsLMS, OneStepComputesTheOutputBeforeUpdatingTheTaps) {
    IppsFIRLMSState_32f *state = nullptr;
    ASSERT_EQ(ippsFIRLMSInitAlloc_32f(&state, nullptr, 2, nullptr, 0), ippStsNoErr);
    // x = 1, 0; reference = 2, 3; mu = 0.5.
    // n = 0: y = 0, error 2, taps += 2 * 0.5 * 2 * (1, 0) -> (2, 0).
    // n = 1: y = 2 * 0 + 0 * 1 = 0, error 3, taps += 2 * 0.5 * 3 * (0, 1) -> (2, 3).
    const float x[2] = {1.0f, 0.0f};
    const float ref[2] = {2.0f, 3.0f};
    float y[2] = {-1.0f, -1.0f};
    ippsFIRLMS_32f(x, ref, y, 2, 0.5f, state);
    float taps[2];
    ippsFIRLMSGetTaps_32f(state, taps);
    EXPECT_EQ(std::vector<float>(y, y + 2), (std::vector<float>{0, 0}));
    EXPECT_EQ(std::vector<float>(taps, taps + 2), (std::vector<float>{2, 3}));
    // The next sample sees x[n-1] = 0 and x[n-2] has left the two-tap line.
    const float x2[1] = {1.0f};
    const float ref2[1] = {0.0f};
    ippsFIRLMS_32f(x2, ref2, y, 1, 0.0f, state);
    EXPECT_EQ(y[0], 2.0f);
    ippsFIRLMSFree_32f(state);

    // Given taps and a delay line read from index 1: x[-1] = 2, x[-2] = 3.
    const float given[3] = {1.0f, 10.0f, 100.0f};
    const float line[3] = {7.0f, 2.0f, 3.0f};
    ippsFIRLMSInitAlloc_32f(&state, given, 3, line, 1);
    ippsFIRLMS_32f(x2, ref2, y, 1, 0.0f, state);
    EXPECT_EQ(y[0], 1.0f + 10.0f * 2.0f + 100.0f * 3.0f);
    ippsFIRLMSFree_32f(state);
}

TEST(IppsLMS, ConvergesToAKnownFilter) {
    const std::vector<float> h = {0.5f, -0.3f, 0.2f, 0.1f};
    const std::vector<float> x = qktest::Noise(20000, 9);
    const std::vector<float> d = firInBlocks(h, x, 20000);  // the reference: x through h
    IppsFIRLMSState_32f *state = nullptr;
    ippsFIRLMSInitAlloc_32f(&state, nullptr, 6, nullptr, 0);
    std::vector<float> y(x.size());
    // Split in two calls: the taps and delay line carry over.
    ippsFIRLMS_32f(x.data(), d.data(), y.data(), 10000, 0.01f, state);
    ippsFIRLMS_32f(x.data() + 10000, d.data() + 10000, y.data() + 10000, 10000, 0.01f, state);
    float taps[6];
    ippsFIRLMSGetTaps_32f(state, taps);
    for (int k = 0; k < 6; ++k) {
        EXPECT_NEAR(taps[k], k < 4 ? h[k] : 0.0f, 1e-3f) << k;
    }
    // By the end the output follows the reference.
    EXPECT_NEAR(y.back(), d.back(), 1e-3f);
    ippsFIRLMSFree_32f(state);
}
