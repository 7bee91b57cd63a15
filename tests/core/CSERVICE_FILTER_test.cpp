#include "core/CSERVICE_FILTER.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {
constexpr float kRate = 44100.0f;

std::vector<float> sine(double hz, int n, double rate = kRate) {
    std::vector<float> v(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        v[static_cast<size_t>(i)] = static_cast<float>(std::sin(2.0 * M_PI * hz * i / rate));
    }
    return v;
}

// Peak of the second half of a filtered sine: the steady-state gain at its frequency.
double steadyGain(CSERVICE_FILTER &f, double hz, float gainDb, float frequency) {
    std::vector<float> v = sine(hz, 44100);
    f._process(v.data(), static_cast<int>(v.size()), gainDb, frequency, kRate);
    float peak = 0.0f;
    for (size_t i = v.size() / 2; i < v.size(); ++i) {
        peak = std::max(peak, std::fabs(v[i]));
    }
    return peak;
}

double dB(double g) {
    return 20.0 * std::log10(g);
}
}  // namespace

// Gains measured on the running filter against the analogue prototype's values: the
// cookbook shapes have exactly unit, A^2 or zero gain at DC, centre and Nyquist. The
// tolerance covers the sampled sine's peak falling between samples (0.05 dB at 1 kHz).
constexpr double kGainToleranceDb = 0.1;

// Steady-state gain in dB of a fresh section at one frequency.
double gainDbAt(int type, float gainDb, float q, float frequency, double hz) {
    CSERVICE_FILTER f;
    f._init(type, gainDb, 1.0f, q, frequency, kRate);
    return dB(steadyGain(f, hz, gainDb, frequency));
}

TEST(CSERVICE_FILTER, LowAndHighPassPassTheirBandAndStopTheOther) {
    EXPECT_NEAR(gainDbAt(1, 0.0f, 0.707f, 1000.0f, 50.0), 0.0, kGainToleranceDb);
    EXPECT_LT(gainDbAt(1, 0.0f, 0.707f, 1000.0f, 10000.0), -40.0);  // 12 dB/octave
    EXPECT_NEAR(gainDbAt(2, 0.0f, 0.707f, 1000.0f, 15000.0), 0.0, kGainToleranceDb);
    EXPECT_LT(gainDbAt(2, 0.0f, 0.707f, 1000.0f, 100.0), -30.0);
    // At the corner with q = 1/sqrt(2): -3 dB.
    EXPECT_NEAR(gainDbAt(1, 0.0f, 0.7071f, 1000.0f, 1000.0), -3.01, kGainToleranceDb);
}

TEST(CSERVICE_FILTER, PeakingAndShelvesReachTheirGain) {
    EXPECT_NEAR(gainDbAt(7, 9.0f, 1.0f, 2000.0f, 2000.0), 9.0, kGainToleranceDb);
    EXPECT_NEAR(gainDbAt(8, -12.0f, 0.5f, 1000.0f, 20.0), -12.0, kGainToleranceDb);
    EXPECT_NEAR(gainDbAt(8, -12.0f, 0.5f, 1000.0f, 18000.0), 0.0, 0.3);
    EXPECT_NEAR(gainDbAt(9, 6.0f, 0.5f, 3000.0f, 20000.0), 6.0, 0.3);
    EXPECT_NEAR(gainDbAt(9, 6.0f, 0.5f, 3000.0f, 50.0), 0.0, kGainToleranceDb);
}

TEST(CSERVICE_FILTER, StateRunsOnAcrossBlocksOfAnySize) {
    const std::vector<float> signal = sine(3000.0, 9000);
    CSERVICE_FILTER whole;
    whole._init(9, 6.0f, 1.0f, 0.5f, 2000.0f, kRate);
    std::vector<float> expected = signal;
    whole._process(expected.data(), 9000, 6.0f, 2000.0f, kRate);
    for (int block : {1, 713, 8192}) {
        CSERVICE_FILTER f;
        f._init(9, 6.0f, 1.0f, 0.5f, 2000.0f, kRate);
        std::vector<float> v = signal;
        for (int at = 0; at < 9000; at += block) {
            // A rate of 0 keeps the stored rate and the running state.
            f._process(v.data() + at, std::min(block, 9000 - at), 6.0f, 2000.0f,
                       at % 2 == 0 ? kRate : 0.0f);
        }
        for (size_t i = 0; i < v.size(); i += 97) {
            ASSERT_FLOAT_EQ(v[i], expected[i]) << block << " at " << i;
        }
    }
}
