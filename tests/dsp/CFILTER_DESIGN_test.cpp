#include "dsp/CFILTER_DESIGN.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// Every sample within kTol of `value` at `at` and of zero elsewhere.
void expectImpulse(const float *p, int n, int at, float value, float tol = kTol) {
    for (int i = 0; i < n; ++i) {
        ASSERT_NEAR(p[i], i == at ? value : 0.0f, tol) << i;
    }
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
    expectImpulse(taps, 129, 32, 0.54f);
    // Amplitudes scale the result.
    float half[2] = {0.5f, 0.5f};
    float *scaled = nullptr;
    design.FIR2(128, freq, half, 2, scaled);
    EXPECT_NEAR(scaled[32], 0.27f, kTol);
    ippsFree(scaled);
    ippsFree(taps);
}

TEST(CFILTER_DESIGN, FIR2Failures) {
    struct Case {
        const char *name;
        int order;
        std::vector<float> freq;
        std::vector<float> amp;
    };
    const Case cases[] = {
        {"a jump at the start smears below the first grid point", 64, {0, 0, 1}, {1, 0, 0}},
        {"a jump at the end smears beyond the last", 64, {0, 1, 1}, {1, 0, 0}},
        {"513 to 1023 taps need more than the 512-point grid", 600, {0, 1}, {1, 1}},
        {"a frequency that isn't a number", 64, {0, std::nanf("")}, {1, 1}},
    };
    CFILTER_DESIGN design;
    float *taps = ippsMalloc_32f(8);
    for (Case c : cases) {
        design.FIR2(c.order, c.freq.data(), c.amp.data(), static_cast<int>(c.freq.size()), taps);
        EXPECT_EQ(taps, nullptr) << c.name;
    }
    // 1024 taps and more get a grid of their own size.
    float flat[2] = {1.0f, 1.0f};
    float edges[2] = {0.0f, 1.0f};
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
    expectImpulse(out, 128, 64, 1.0f);
    for (double m : magnitudes(out, 128)) {
        EXPECT_NEAR(m, 1.0, kTol);
    }
    // A longer output asked for is given; without normalising, a gain of 2 is inverted to 0.5.
    in[0] = 2.0f;
    outLength = 300;
    design.InvertRegularised(in, 100, 20, out, outLength, 0);
    ASSERT_EQ(outLength, 512);
    EXPECT_NEAR(out[256], 0.5f, kTol);
    // Silence inverts to something finite.
    std::vector<float> silence(64, 0.0f);
    outLength = 0;
    design.InvertRegularised(silence.data(), 64, 12, out, outLength, 1);
    ASSERT_EQ(outLength, 64);
    EXPECT_TRUE(std::all_of(out, out + 64, [](float v) { return std::isfinite(v); }));
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
    EXPECT_GT(*std::max_element(unit.begin(), unit.end()), 0.1f);
    const std::pair<float, float> limits[] = {{100.0f, 0.1f}, {1000.0f, 0.1f}, {0.001f, 10.0f}};
    for (const auto &[gain, factor] : limits) {
        const std::vector<float> limited = invert(gain);
        for (int i = 0; i < 64; ++i) {
            ASSERT_NEAR(limited[i], unit[i] * factor, factor * kTol)
                << "gain " << gain << " at " << i;
        }
    }
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
    expectImpulse(out, 128, 0, 1.0f);
    expectImpulse(cepstrum, 128, 0, 0.0f);
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
    const std::vector<float> right2 = {4, 5, 1, 2, 3};
    const std::pair<int, std::vector<float>> cases[] = {
        {0, {1, 2, 3, 4, 5}}, {2, right2}, {-1, {2, 3, 4, 5, 1}}, {12, right2}};  // 12 mod 5
    for (const auto &c : cases) {
        float out[5];
        design.Rotate(in, 5, c.first, out);
        EXPECT_EQ(copyOf(out, 5), c.second) << c.first;
    }
    design.RotateInPlace(in, 5, 2);
    EXPECT_EQ(copyOf(in, 5), right2);
}

TEST(CFILTER_DESIGN, InvertToeplitzSolvesTheNormalEquations) {
    // The result g satisfies R g = e0, with R the Toeplitz matrix of the autocorrelation: this
    // goes through building that matrix and inverting it.
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
    // A size whose square overflows gives no matrix.
    float *matrix = nullptr;
    int elements = 0;
    design.MakeToeplitz(h, 50000, matrix, elements);
    EXPECT_EQ(matrix, nullptr);
    EXPECT_EQ(elements, 0);
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
    expectImpulse(taps, 8, 3, 1.0f, 1e-2f);
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
