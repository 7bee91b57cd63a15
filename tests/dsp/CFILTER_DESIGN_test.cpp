#include "dsp/CFILTER_DESIGN.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "dsp/ipps.h"
#include "support/SignalReference.h"

namespace {
// Transforms of a few hundred points in single precision.
constexpr float kTol = 1e-4f;

std::vector<float> copyOf(const float *p, int n) {
    return std::vector<float>(p, p + n);
}

// Magnitudes of the first N/2 + 1 bins, by the direct DFT.
std::vector<double> magnitudes(const float *p, int n) {
    const auto spectrum = qktest::DirectDft(copyOf(p, n));
    std::vector<double> out;
    for (int k = 0; k <= n / 2; ++k) {
        out.push_back(std::abs(spectrum[k]));
    }
    return out;
}

float *impulse(int n, float value = 1.0f) {
    float *p = ippsMalloc_32f(n);
    ippsZero_32f(p, n);
    p[0] = value;
    return p;
}
}  // namespace

TEST(CFILTER_DESIGN, FIR2FlatResponseIsAWindowedImpulseAtAQuarterOfTheLength) {
    // 129 taps on the 512-point grid. The grid's phase slope is that of a delay of 64 samples
    // on a transform of twice the length, so the 512-point inverse puts the impulse at 32,
    // where the Hamming window over 129 taps is 0.54 - 0.46 cos(pi / 2) = 0.54.
    CFILTER_DESIGN design;
    float freq[2] = {0.0f, 1.0f};
    float amp[2] = {1.0f, 1.0f};
    float *taps = ippsMalloc_32f(3);  // whatever was held is freed
    design.FIR2(128, freq, amp, 2, taps);
    ASSERT_NE(taps, nullptr);
    for (int i = 0; i < 129; ++i) {
        EXPECT_NEAR(taps[i], i == 32 ? 0.54f : 0.0f, kTol) << i;
    }
    // Amplitudes scale the result.
    float half[2] = {0.5f, 0.5f};
    float *scaled = nullptr;
    design.FIR2(128, freq, half, 2, scaled);
    EXPECT_NEAR(scaled[32], 0.27f, kTol);
    ippsFree(scaled);
    ippsFree(taps);
}

TEST(CFILTER_DESIGN, FIR2Failures) {
    CFILTER_DESIGN design;
    // A jump at the very start smears below the first grid point.
    float freq[3] = {0.0f, 0.0f, 1.0f};
    float amp[3] = {1.0f, 0.0f, 0.0f};
    float *taps = ippsMalloc_32f(8);
    design.FIR2(64, freq, amp, 3, taps);
    EXPECT_EQ(taps, nullptr);
    // A jump at the very end smears beyond the last.
    float freqEnd[3] = {0.0f, 1.0f, 1.0f};
    design.FIR2(64, freqEnd, amp, 3, taps);
    EXPECT_EQ(taps, nullptr);
    // 513 to 1023 taps need more than the 512 samples the grid gives.
    float flat[2] = {1.0f, 1.0f};
    float edges[2] = {0.0f, 1.0f};
    design.FIR2(600, edges, flat, 2, taps);
    EXPECT_EQ(taps, nullptr);
    // A frequency that isn't a number.
    float bad[2] = {0.0f, std::nanf("")};
    design.FIR2(64, bad, flat, 2, taps);
    EXPECT_EQ(taps, nullptr);
    // 1024 taps and more get a grid of their own size.
    design.FIR2(2047, edges, flat, 2, taps);
    ASSERT_NE(taps, nullptr);
    EXPECT_TRUE(std::isfinite(taps[2047]));
    ippsFree(taps);
}

TEST(CFILTER_DESIGN, InvertRegularisedOfAnImpulse) {
    CFILTER_DESIGN design;
    float *in = impulse(100);
    float *out = nullptr;
    int outLength = 0;
    design.InvertRegularised(in, 100, 20, out, outLength, 1);
    ASSERT_EQ(outLength, 128);
    for (int i = 0; i < 128; ++i) {
        EXPECT_NEAR(out[i], i == 64 ? 1.0f : 0.0f, kTol) << i;
    }
    for (double m : magnitudes(out, 128)) {
        EXPECT_NEAR(m, 1.0, kTol);
    }
    // A longer output asked for is given; without normalising, a gain of 2 is inverted to 0.5.
    in[0] = 2.0f;
    outLength = 300;
    design.InvertRegularised(in, 100, 20, out, outLength, 0);
    ASSERT_EQ(outLength, 512);
    EXPECT_NEAR(out[256], 0.5f, kTol);
    ippsFree(in);
    ippsFree(out);
}

TEST(CFILTER_DESIGN, InvertRegularisedStaysWithinHalfTheDynamicRange) {
    // 1 - 0.9 z^-1 spans -20 dB at DC to +5.6 dB at Nyquist: far more than the 6 dB allowed.
    CFILTER_DESIGN design;
    float *in = impulse(256);
    in[1] = -0.9f;
    const double low = std::pow(10.0, -3.0 / 20.0);
    const double high = std::pow(10.0, 3.0 / 20.0);
    for (int dynamic : {6, 7}) {  // 7 is truncated to +-3 dB as well
        float *out = nullptr;
        int outLength = 0;
        design.InvertRegularised(in, 256, dynamic, out, outLength, 1);
        const std::vector<double> m = magnitudes(out, outLength);
        for (size_t k = 0; k < m.size(); ++k) {
            EXPECT_GE(m[k], low * (1 - kTol)) << "dynamic " << dynamic << " bin " << k;
            EXPECT_LE(m[k], high * (1 + kTol)) << "dynamic " << dynamic << " bin " << k;
        }
        // Both limits are reached: the response is clamped, not merely scaled.
        EXPECT_NEAR(m.front(), high, 1e-3);
        EXPECT_NEAR(m.back(), low, 1e-3);
        ippsFree(out);
    }
    ippsFree(in);
}

TEST(CFILTER_DESIGN, InvertRegularisedOfSilenceIsFinite) {
    CFILTER_DESIGN design;
    std::vector<float> silence(64, 0.0f);
    float *out = nullptr;
    int outLength = 0;
    design.InvertRegularised(silence.data(), 64, 12, out, outLength, 1);
    ASSERT_EQ(outLength, 64);
    for (int i = 0; i < 64; ++i) {
        EXPECT_TRUE(std::isfinite(out[i])) << i;
    }
    ippsFree(out);
}

TEST(CFILTER_DESIGN, InvertMagnitudeLimitsTheCorrectionToTwentyDecibels) {
    // The designer is linear in the inverted magnitude, so a flat response of gain g gives
    // the result for gain 1 divided by g, with g limited to 0.1 .. 10.
    CFILTER_DESIGN design;
    auto invert = [&design](float gain) {
        float *in = impulse(64, gain);
        float *out = nullptr;
        int length = 0;
        design.InvertMagnitude(in, 64, out, length, 0.1f);
        EXPECT_EQ(length, 64);
        std::vector<float> result = copyOf(out, 64);
        ippsFree(in);
        ippsFree(out);
        return result;
    };
    const std::vector<float> unit = invert(1.0f);
    const std::vector<float> loud = invert(100.0f);
    const std::vector<float> louder = invert(1000.0f);
    const std::vector<float> quiet = invert(0.001f);
    float peak = 0.0f;
    for (int i = 0; i < 64; ++i) {
        EXPECT_NEAR(loud[i], unit[i] / 10.0f, kTol) << i;
        EXPECT_NEAR(louder[i], loud[i], kTol) << i;
        EXPECT_NEAR(quiet[i], unit[i] * 10.0f, 10 * kTol) << i;
        peak = std::max(peak, std::fabs(unit[i]));
    }
    EXPECT_GT(peak, 0.1f);
}

TEST(CFILTER_DESIGN, MinimumPhase) {
    CFILTER_DESIGN design;
    // An impulse is already minimum phase.
    float *in = impulse(100);
    int length = 100;
    float *cepstrum = nullptr;
    float *out = ippsMalloc_32f(4);
    design.MinimumPhase(in, length, cepstrum, out);
    ASSERT_EQ(length, 128);
    for (int i = 0; i < 128; ++i) {
        EXPECT_NEAR(out[i], i == 0 ? 1.0f : 0.0f, kTol) << i;
        EXPECT_NEAR(cepstrum[i], 0.0f, kTol) << i;
    }
    // 0.5 + z^-1 has its zero at -2; its minimum-phase twin with the same magnitude is
    // 1 + 0.5 z^-1 (zero at -0.5).
    length = 1024;
    float *longer = impulse(1024, 0.5f);
    longer[1] = 1.0f;
    design.MinimumPhase(longer, length, cepstrum, out);
    EXPECT_NEAR(out[0], 1.0f, 1e-3f);
    EXPECT_NEAR(out[1], 0.5f, 1e-3f);
    EXPECT_NEAR(out[2], 0.0f, 1e-3f);
    ippsFree(longer);
    ippsFree(in);
    ippsFree(cepstrum);
    ippsFree(out);
}

TEST(CFILTER_DESIGN, RotateShiftsRightAndCountsZeroAsAFullTurn) {
    CFILTER_DESIGN design;
    float in[5] = {1, 2, 3, 4, 5};
    float out[5];
    design.Rotate(in, 5, 0, out);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(out[i], in[i]);
    }
    design.Rotate(in, 5, 2, out);
    const float right2[5] = {4, 5, 1, 2, 3};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(out[i], right2[i]);
    }
    design.Rotate(in, 5, -1, out);  // -1 + 5: four to the right, one to the left
    const float left1[5] = {2, 3, 4, 5, 1};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(out[i], left1[i]);
    }
    design.Rotate(in, 5, 12, out);  // beyond a turn: 12 mod 5
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(out[i], right2[i]);
    }
    design.RotateInPlace(in, 5, 2);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(in[i], right2[i]);
    }
}

TEST(CFILTER_DESIGN, ToeplitzPair) {
    CFILTER_DESIGN design;
    float row[3] = {4.0f, 2.0f, 1.0f};
    float *matrix = nullptr;
    int elements = 0;
    design.MakeToeplitz(row, 3, matrix, elements);
    ASSERT_EQ(elements, 9);
    const float expected[9] = {4, 2, 1, 2, 4, 2, 1, 2, 4};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(matrix[i], expected[i]) << i;
    }
    // The inverse times the matrix is the identity.
    design.InvertMatrix(matrix, 3);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 3; ++k) {
                sum += static_cast<double>(matrix[i * 3 + k]) * expected[k * 3 + j];
            }
            EXPECT_NEAR(sum, i == j ? 1.0 : 0.0, 1e-6) << i << "," << j;
        }
    }
    ippsFree(matrix);
    matrix = nullptr;
    // A size whose square overflows gives nothing.
    design.MakeToeplitz(row, 50000, matrix, elements);
    EXPECT_EQ(matrix, nullptr);
    EXPECT_EQ(elements, 0);
}

TEST(CFILTER_DESIGN, InvertToeplitzSolvesTheNormalEquations) {
    // The result g satisfies R g = e0, with R the Toeplitz matrix of the autocorrelation.
    CFILTER_DESIGN design;
    float h[8] = {1.0f, 0.5f, -0.25f, 0.1f, 0, 0, 0, 0};
    float g[8];
    design.InvertToeplitz(h, 8, g);
    float r[8];
    ippsAutoCorr_32f(h, 8, r, 8);
    for (int i = 0; i < 8; ++i) {
        double sum = 0.0;
        for (int j = 0; j < 8; ++j) {
            sum += static_cast<double>(r[std::abs(i - j)]) * g[j];
        }
        EXPECT_NEAR(sum, i == 0 ? 1.0 : 0.0, 1e-4) << i;
    }
}

TEST(CFILTER_DESIGN, InvertLMSOfAnImpulseLearnsTheDelayOfTheResponseLength) {
    // With the response a unit impulse of length 3, the target is the noise delayed by 3
    // samples, so the learnt taps approach a unit impulse at 3.
    CFILTER_DESIGN design;
    float h[3] = {1.0f, 0.0f, 0.0f};
    float *taps = ippsMalloc_32f(2);
    int tapCount = 8;
    design.InvertLMS(h, 3, &taps, &tapCount, 20000, 0, 0.005f, 2);
    ASSERT_NE(taps, nullptr);
    for (int k = 0; k < 8; ++k) {
        EXPECT_NEAR(taps[k], k == 3 ? 1.0f : 0.0f, 1e-2f) << k;
    }
    ippsFree(taps);
}

TEST(CFILTER_DESIGN, SetLowMagnitudeFlattensTheBinsBelowTheCorner) {
    // 64 samples at 64 Hz: 33 bins over 32 Hz, so a corner of 8 Hz sets ceil(33 * 8 / 32) = 9.
    CFILTER_DESIGN design;
    std::vector<float> x = qktest::Noise(64, 4);
    const std::vector<double> before = magnitudes(x.data(), 64);
    const auto phaseBefore = qktest::DirectDft(x);
    design.SetLowMagnitude(x.data(), 64, 64, 8.0f, 0.5f);
    const std::vector<double> after = magnitudes(x.data(), 64);
    const auto phaseAfter = qktest::DirectDft(x);
    for (int k = 0; k <= 32; ++k) {
        EXPECT_NEAR(after[k], k < 9 ? 0.5 : before[k], 1e-4) << k;
        if (k > 0 && k < 9) {
            EXPECT_NEAR(std::arg(phaseAfter[k]), std::arg(phaseBefore[k]), 1e-3) << k;
        }
    }
}
