// The physical sense of the sets made from the MIT KEMAR measurements: the one imported from
// the SOFA file libmysofa ships, and the default sets the build makes (QK_TEST_HRTF_DATA names
// their folder), which equalisation must not have robbed of their sense of direction.
#include "binaural/SofaImport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/HrtfSets.h"
#include "support/WaveWriter.h"

namespace {
const char *const kKemar = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";

double energyDb(const float *p, int n) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += static_cast<double>(p[i]) * p[i];
    }
    return 10.0 * std::log10(sum);
}

// First sample whose magnitude reaches a fifth of the response's peak: the arrival.
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

// Sound from the left is louder and some 0.6 ms earlier in the left ear, from the right in
// the right ear, and sound from ahead equally loud in both.
void expectDirectionalSense(CHELPER_HRTF &set, double louderDb) {
    float *l = nullptr;
    float *r = nullptr;
    int n = 0;
    ASSERT_EQ(set.GetHRTF(l, r, n, 90.0f, 0.0f, 44100), 1);
    EXPECT_GT(energyDb(l, n), energyDb(r, n) + louderDb);
    EXPECT_LT(onset(l, n) + 10, onset(r, n));
    ASSERT_EQ(set.GetHRTF(l, r, n, 270.0f, 0.0f, 44100), 1);
    EXPECT_GT(energyDb(r, n), energyDb(l, n) + louderDb);
    EXPECT_LT(onset(r, n) + 10, onset(l, n));
    ASSERT_EQ(set.GetHRTF(l, r, n, 0.0f, 0.0f, 44100), 1);
    EXPECT_NEAR(energyDb(l, n), energyDb(r, n), 1.0);
    ippsFree(l);
    ippsFree(r);
}

void checkDefaultSet(const char *name, int taps) {
    const std::string folder = QK_TEST_HRTF_DATA;
    const std::string path = folder + "/" + name;
    if (folder.empty() || !std::ifstream(path).good()) {
        GTEST_SKIP() << "the default sets have not been made";
    }
    CHELPER_HRTF set(path);
    EXPECT_EQ(set.m_iMeasurements, 710);
    EXPECT_EQ(set.m_iFileTaps, taps);
    EXPECT_STREQ(set.m_szDataType, "16s");
    float peak = 0.0f;
    for (int i = 0; i < set.DataLength(); ++i) {
        peak = std::max(peak, std::fabs(set.m_pfData[i]));
    }
    // Normalised to 1.0, which 16 bits hold as 32767 / 32768 (or exactly, when negative).
    EXPECT_GE(peak, 32767.0f / 32768.0f);
    expectDirectionalSense(set, 10.0);
}
}  // namespace

TEST(SofaImport, ImportedKemarPointsTheRightWay) {
    if (!std::ifstream(kKemar).good()) {
        GTEST_SKIP() << kKemar << " is not installed";
    }
    CHELPER_HRTF set;
    std::string error;
    ASSERT_EQ(qk::ImportSofa(kKemar, qk::SofaImportOptions(), set, error), 0) << error;
    EXPECT_EQ(set.m_iMeasurements, 710);
    expectDirectionalSense(set, 6.0);
}

TEST(SofaImport, FilesItCannotUseAreRefusedWithAReason) {
    CHELPER_HRTF set;
    std::string error;
    EXPECT_EQ(qk::ImportSofa(qktest::ScratchPath("absent.sofa"), {}, set, error), -1);
    EXPECT_NE(error.find("absent.sofa"), std::string::npos);
    const std::string junk = qktest::ScratchPath("junk.sofa");
    std::ofstream(junk) << "this is not an HDF5 file at all";
    error.clear();
    EXPECT_EQ(qk::ImportSofa(junk, {}, set, error), -1);
    EXPECT_FALSE(error.empty());
    EXPECT_EQ(set.m_iMeasurements, 0);  // untouched
    std::remove(junk.c_str());
}

TEST(DefaultSets, FullAndSmallSetsAreEqualisedSixteenBitKemarThatStillPointsTheRightWay) {
    checkDefaultSet("VORLAN1_16s_DFE.qkhrtf", 512);
    checkDefaultSet("KEMAR_SMALL_16s_DFE.qkhrtf", 128);
}
