// The default sets the build makes from the MIT KEMAR measurements (QK_TEST_HRTF_DATA names
// their folder): their form, and that equalisation kept their sense of direction.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"

namespace {
std::string defaultSet(const char *name) {
    const std::string folder = QK_TEST_HRTF_DATA;
    return folder.empty() ? std::string() : folder + "/" + name;
}

double energyDb(const float *p, int n) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += static_cast<double>(p[i]) * p[i];
    }
    return 10.0 * std::log10(sum);
}

int onset(const float *p, int n) {
    float peak = 0.0f;
    for (int i = 0; i < n; ++i) {
        peak = std::max(peak, std::fabs(p[i]));
    }
    for (int i = 0; i < n; ++i) {
        if (std::fabs(p[i]) >= 0.2f * peak) {
            return i;
        }
    }
    return -1;
}

void expectDirectionalSense(CHELPER_HRTF &set) {
    float *l = nullptr;
    float *r = nullptr;
    int n = 0;
    ASSERT_EQ(set.GetHRTF(l, r, n, 90.0f, 0.0f, 44100), 1);
    EXPECT_GT(energyDb(l, n), energyDb(r, n) + 10.0);
    EXPECT_LT(onset(l, n) + 10, onset(r, n));
    ASSERT_EQ(set.GetHRTF(l, r, n, 270.0f, 0.0f, 44100), 1);
    EXPECT_GT(energyDb(r, n), energyDb(l, n) + 10.0);
    ASSERT_EQ(set.GetHRTF(l, r, n, 0.0f, 0.0f, 44100), 1);
    EXPECT_NEAR(energyDb(l, n), energyDb(r, n), 1.0);
    ippsFree(l);
    ippsFree(r);
}

void checkDefaultSet(const char *name, int taps) {
    const std::string path = defaultSet(name);
    if (path.empty() || !std::ifstream(path).good()) {
        GTEST_SKIP() << "the default sets have not been made";
    }
    CHELPER_HRTF set(path);
    EXPECT_EQ(set.m_iMeasurements, 710);
    EXPECT_EQ(set.m_iFileTaps, taps);
    EXPECT_EQ(set.m_iFileRate, 44100);
    EXPECT_STREQ(set.m_szDataType, "16s");
    EXPECT_STREQ(set.m_szEars, "BOTH");
    float peak = 0.0f;
    for (int i = 0; i < set.DataLength(); ++i) {
        peak = std::max(peak, std::fabs(set.m_pfData[i]));
    }
    // Normalised to 1.0, which 16 bits hold as 32767 / 32768 (or exactly, when negative).
    EXPECT_GE(peak, 32767.0f / 32768.0f);
    expectDirectionalSense(set);
}
}  // namespace

TEST(DefaultSets, FullSetIsEqualisedSixteenBitKemarThatStillPointsTheRightWay) {
    checkDefaultSet("VORLAN1_16s_DFE.qkhrtf", 512);
}

TEST(DefaultSets, SmallSetIsShortenedAndStillPointsTheRightWay) {
    checkDefaultSet("KEMAR_SMALL_16s_DFE.qkhrtf", 128);
}
