#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dsp/ipps.h"

namespace {
// Single-precision arithmetic on values of order 1.
constexpr float kTol = 1e-6f;

std::vector<float> vec(const float *p, int n) {
    return std::vector<float>(p, p + n);
}
}  // namespace

TEST(IppsVector, SubtractsTheFirstOperandFromTheSecond) {
    const float a[3] = {1.0f, 2.0f, 3.0f};
    const float b[3] = {10.0f, 20.0f, 30.0f};
    float d[3] = {};
    ippsSub_32f(a, b, d, 3);
    EXPECT_EQ(vec(d, 3), (std::vector<float>{9, 18, 27}));
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

TEST(IppsVector, MaxIndxGivesTheFirstOfEqualSignedMaxima) {
    const float v[6] = {-5.0f, 3.0f, 1.0f, 3.0f, -7.0f, 2.0f};
    const float negative[3] = {-3.0f, -1.0f, -2.0f};  // the signed maximum, not the magnitude
    float max = 0.0f;
    int index = -1;
    ippsMaxIndx_32f(v, 6, &max, &index);
    EXPECT_EQ(max, 3.0f);
    EXPECT_EQ(index, 1);
    ippsMaxIndx_32f(negative, 3, &max, &index);
    EXPECT_EQ(max, -1.0f);
    EXPECT_EQ(index, 1);
}

TEST(IppsVector, ConvolutionAndAutoCorrelation) {
    const float a[3] = {1.0f, 2.0f, 3.0f};
    const float b[2] = {1.0f, -1.0f};
    float d[4] = {};
    ippsConv_32f(a, 3, b, 2, d);
    EXPECT_EQ(vec(d, 4), (std::vector<float>{1, 1, 1, -3}));
    ippsConv_32f(b, 2, a, 3, d);  // either operand may be the longer
    EXPECT_EQ(vec(d, 4), (std::vector<float>{1, 1, 1, -3}));
    // Unnormalised, and zero beyond the source: 1 + 4 + 9, 1*2 + 2*3, 1*3, 0, 0.
    float r[5] = {-1.0f, -1.0f, -1.0f, -1.0f, -1.0f};
    ippsAutoCorr_32f(a, 3, r, 5);
    EXPECT_EQ(vec(r, 5), (std::vector<float>{14, 8, 3, 0, 0}));
}

TEST(IppsVector, SampleDownContinuesAStreamAcrossCalls) {
    std::vector<float> x(23);
    for (int i = 0; i < 23; ++i) {
        x[i] = static_cast<float>(i);
    }
    // In blocks of 10, 10, 3 the phase carries the pattern 1, 4, 7, ... 22 on.
    std::vector<float> pieces;
    int phase = 1;
    for (int start : {0, 10, 20}) {
        float out[10];
        int outLen = 0;
        ippsSampleDown_32f(x.data() + start, start == 20 ? 3 : 10, out, &outLen, 3, &phase);
        pieces.insert(pieces.end(), out, out + outLen);
    }
    EXPECT_EQ(pieces, (std::vector<float>{1, 4, 7, 10, 13, 16, 19, 22}));
}

TEST(IppsVector, ThresholdClipsFromAboveOnlyInModeFour) {
    float v[4] = {-2.0f, 0.5f, 1.0f, 3.0f};
    ThresholdAbove(v, 4, 1.0f, ippCmpGreater);
    EXPECT_EQ(vec(v, 4), (std::vector<float>{-2, 0.5f, 1, 1}));
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
    EXPECT_NEAR(phase[0], std::atan2(4.0f, 3.0f), kTol);
    EXPECT_NEAR(phase[1], -1.5707963f, kTol);
    ippsRealToCplx_32f(re, nullptr, c, 2);  // a missing imaginary part counts as zeros
    EXPECT_EQ(c[0].im, 0.0f);
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
    float max = 0.0f;
    EXPECT_NE(ippsMaxIndx_32f(v, 4, &max, nullptr), ippStsNoErr);
    int outLen = 7;
    int phase = 0;
    EXPECT_NE(ippsSampleDown_32f(v, 4, v, &outLen, 0, &phase), ippStsNoErr);
    EXPECT_EQ(outLen, 7);
    EXPECT_NE(ippsMulPack_32f(v, v, nullptr, 4), ippStsNoErr);
    EXPECT_EQ(vec(v, 4), vec(original, 4));
}
