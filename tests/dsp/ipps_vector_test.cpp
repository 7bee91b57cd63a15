#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/ipps.h"

namespace {
// Single-precision arithmetic on values of order 1.
constexpr float kTol = 1e-6f;
}  // namespace

TEST(IppsVector, SubtractsTheFirstOperandFromTheSecond) {
    const float a[3] = {1.0f, 2.0f, 3.0f};
    const float b[3] = {10.0f, 20.0f, 30.0f};
    float d[3] = {};
    ippsSub_32f(a, b, d, 3);
    EXPECT_EQ(d[0], 9.0f);
    EXPECT_EQ(d[1], 18.0f);
    EXPECT_EQ(d[2], 27.0f);
}

TEST(IppsVector, HammingWindowValues) {
    // 0.54 - 0.46 cos(2 pi n / 4) for n = 0..4: 0.08, 0.54, 1.0, 0.54, 0.08.
    std::vector<float> w(5, 1.0f);
    ippsWinHamming_32f_I(w.data(), 5);
    const float expected[5] = {0.08f, 0.54f, 1.0f, 0.54f, 0.08f};
    for (int n = 0; n < 5; ++n) {
        EXPECT_NEAR(w[n], expected[n], kTol) << n;
    }
    // It multiplies rather than replaces, and both ends of an even length are 0.08.
    std::vector<float> twos(64, 2.0f);
    ippsWinHamming_32f_I(twos.data(), 64);
    EXPECT_NEAR(twos.front(), 0.16f, kTol);
    EXPECT_NEAR(twos.back(), 0.16f, kTol);
    EXPECT_NEAR(twos[32], 2.0f * (0.54f - 0.46f * std::cos(2.0f * 3.14159265f * 32 / 63)), 1e-5f);
}

TEST(IppsVector, MaxIndxGivesTheFirstOfEqualMaxima) {
    const float v[6] = {-5.0f, 3.0f, 1.0f, 3.0f, -7.0f, 2.0f};
    float max = 0.0f;
    int index = -1;
    ippsMaxIndx_32f(v, 6, &max, &index);
    EXPECT_EQ(max, 3.0f);
    EXPECT_EQ(index, 1);
    // All negative: the signed maximum, not the largest magnitude.
    const float negative[3] = {-3.0f, -1.0f, -2.0f};
    ippsMaxIndx_32f(negative, 3, &max, &index);
    EXPECT_EQ(max, -1.0f);
    EXPECT_EQ(index, 1);
}

TEST(IppsVector, LinearConvolutionWithEitherOperandLonger) {
    const float a[3] = {1.0f, 2.0f, 3.0f};
    const float b[2] = {1.0f, -1.0f};
    float d[4] = {};
    ippsConv_32f(a, 3, b, 2, d);
    const float expected[4] = {1.0f, 1.0f, 1.0f, -3.0f};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(d[i], expected[i]) << i;
    }
    float e[4] = {};
    ippsConv_32f(b, 2, a, 3, e);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(e[i], expected[i]) << i;
    }
}

TEST(IppsVector, AutoCorrelationIsUnnormalisedAndZeroBeyondTheSource) {
    const float x[3] = {1.0f, 2.0f, 3.0f};
    float r[5] = {-1.0f, -1.0f, -1.0f, -1.0f, -1.0f};
    ippsAutoCorr_32f(x, 3, r, 5);
    EXPECT_EQ(r[0], 14.0f);  // 1 + 4 + 9
    EXPECT_EQ(r[1], 8.0f);   // 1*2 + 2*3
    EXPECT_EQ(r[2], 3.0f);   // 1*3
    EXPECT_EQ(r[3], 0.0f);
    EXPECT_EQ(r[4], 0.0f);
}

TEST(IppsVector, SampleDownContinuesAStreamAcrossCalls) {
    std::vector<float> x(23);
    for (int i = 0; i < 23; ++i) {
        x[i] = static_cast<float>(i);
    }
    // Whole: 1, 4, 7, ... 22.
    std::vector<float> whole(23);
    int wholeLen = 0;
    int phase = 1;
    ippsSampleDown_32f(x.data(), 23, whole.data(), &wholeLen, 3, &phase);
    ASSERT_EQ(wholeLen, 8);
    EXPECT_EQ(whole[7], 22.0f);
    // In blocks of 10, 10, 3 the phase carries the pattern on.
    std::vector<float> pieces;
    phase = 1;
    for (int start : {0, 10, 20}) {
        const int len = start == 20 ? 3 : 10;
        float out[10];
        int outLen = 0;
        ippsSampleDown_32f(x.data() + start, len, out, &outLen, 3, &phase);
        pieces.insert(pieces.end(), out, out + outLen);
    }
    ASSERT_EQ(pieces.size(), 8u);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(pieces[i], whole[i]) << i;
    }
}

TEST(IppsVector, ThresholdClipsFromAboveOnlyInModeFour) {
    float v[4] = {-2.0f, 0.5f, 1.0f, 3.0f};
    ThresholdAbove(v, 4, 1.0f, ippCmpGreater);
    EXPECT_EQ(v[0], -2.0f);
    EXPECT_EQ(v[1], 0.5f);
    EXPECT_EQ(v[2], 1.0f);
    EXPECT_EQ(v[3], 1.0f);
    // A comparison the operation doesn't know leaves the data alone.
    EXPECT_NE(ThresholdAbove(v, 4, 0.0f, 2), ippStsNoErr);
    EXPECT_EQ(v[3], 1.0f);
}

TEST(IppsVector, ComplexHelpers) {
    const float re[2] = {3.0f, 0.0f};
    const float im[2] = {4.0f, -1.0f};
    Ipp32fc c[2];
    ippsRealToCplx_32f(re, im, c, 2);
    float magnitude[2];
    float phase[2];
    ippsMagnitude_32fc(c, magnitude, 2);
    ippsPhase_32fc(c, phase, 2);
    EXPECT_NEAR(magnitude[0], 5.0f, kTol);
    EXPECT_NEAR(magnitude[1], 1.0f, kTol);
    EXPECT_NEAR(phase[0], std::atan2(4.0f, 3.0f), kTol);
    EXPECT_NEAR(phase[1], -1.5707963f, kTol);
    // A missing imaginary part counts as zeros.
    ippsRealToCplx_32f(re, nullptr, c, 2);
    EXPECT_EQ(c[0].im, 0.0f);
    EXPECT_EQ(c[0].re, 3.0f);
}

TEST(IppsVector, NullPointersAndEmptyLengthsDoNothing) {
    float v[4] = {1, 2, 3, 4};
    const float original[4] = {1, 2, 3, 4};
    EXPECT_NE(ippsCopy_32f(nullptr, v, 4), ippStsNoErr);
    EXPECT_NE(ippsCopy_32f(original, v, 0), ippStsNoErr);
    EXPECT_NE(ippsZero_32f(v, -3), ippStsNoErr);
    EXPECT_NE(ippsAdd_32f_I(nullptr, v, 4), ippStsNoErr);
    EXPECT_NE(ippsSub_32f(v, nullptr, v, 4), ippStsNoErr);
    EXPECT_NE(ippsConv_32f(v, 4, v, 0, v), ippStsNoErr);
    EXPECT_NE(ippsWinHamming_32f_I(v, 0), ippStsNoErr);
    EXPECT_NE(ippsLn_32f_I(v, 0), ippStsNoErr);
    float max = 0.0f;
    EXPECT_NE(ippsMaxIndx_32f(v, 4, &max, nullptr), ippStsNoErr);
    int outLen = 7;
    int phase = 0;
    EXPECT_NE(ippsSampleDown_32f(v, 4, v, &outLen, 0, &phase), ippStsNoErr);
    EXPECT_EQ(outLen, 7);
    EXPECT_NE(ippsMulPack_32f(v, v, nullptr, 4), ippStsNoErr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(v[i], original[i]);
    }
}
