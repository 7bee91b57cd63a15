// Import of SOFA files, and the physical sense of the set made from the MIT KEMAR
// measurements that libmysofa ships.
#include "binaural/SofaImport.h"

#include <gtest/gtest.h>
#include <mysofa.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "binaural/HrtfTools.h"
#include "support/HrtfSets.h"

namespace {
const char *const kKemar = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";

bool haveKemar() {
    return std::ifstream(kKemar).good();
}

struct Ears {
    std::vector<float> left, right;
};

Ears responses(CHELPER_HRTF &set, float az, float el) {
    float *l = nullptr;
    float *r = nullptr;
    int n = 0;
    EXPECT_EQ(set.GetHRTF(l, r, n, az, el, set.m_iFileRate), 1);
    Ears e{std::vector<float>(l, l + n), std::vector<float>(r, r + n)};
    ippsFree(l);
    ippsFree(r);
    return e;
}

double energyDb(const std::vector<float> &v) {
    double sum = 0.0;
    for (float f : v) {
        sum += static_cast<double>(f) * f;
    }
    return 10.0 * std::log10(sum);
}

// First sample whose magnitude reaches a fifth of the response's peak: the arrival.
int onset(const std::vector<float> &v) {
    float peak = 0.0f;
    for (float f : v) {
        peak = std::max(peak, std::fabs(f));
    }
    for (size_t i = 0; i < v.size(); ++i) {
        if (std::fabs(v[i]) >= 0.2f * peak) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

class KemarImport : public testing::Test {
  protected:
    void SetUp() override {
        if (!haveKemar()) {
            GTEST_SKIP() << kKemar << " is not installed";
        }
        std::string error;
        ASSERT_EQ(qk::ImportSofa(kKemar, qk::SofaImportOptions(), set, error), 0) << error;
    }
    CHELPER_HRTF set;
};
}  // namespace

TEST_F(KemarImport, SoundFromTheLeftIsLouderAndEarlierInTheLeftEar) {
    const Ears left = responses(set, 90.0f, 0.0f);
    EXPECT_GT(energyDb(left.left), energyDb(left.right) + 6.0);
    EXPECT_LT(onset(left.left) + 10, onset(left.right));  // some 0.6 ms at 44.1 kHz

    const Ears right = responses(set, 270.0f, 0.0f);
    EXPECT_GT(energyDb(right.right), energyDb(right.left) + 6.0);
    EXPECT_LT(onset(right.right) + 10, onset(right.left));

    const Ears ahead = responses(set, 0.0f, 0.0f);
    EXPECT_NEAR(energyDb(ahead.left), energyDb(ahead.right), 1.0);
    EXPECT_NEAR(onset(ahead.left), onset(ahead.right), 1);
}

TEST_F(KemarImport, MeasurementsKeepFileOrderAndEveryDirectionHasOne) {
    EXPECT_EQ(set.m_iMeasurements, 710);
    EXPECT_EQ(set.m_iFileTaps, 512);
    EXPECT_EQ(set.m_iFileRate, 44100);
    EXPECT_STREQ(set.m_szEars, "BOTH");
    int err = 0;
    MYSOFA_HRTF *h = mysofa_load(kKemar, &err);
    ASSERT_NE(h, nullptr);
    // Measurement 7, left (receiver 0, on +y) and right ear, exactly as in the file.
    for (int k = 0; k < 512; k += 31) {
        EXPECT_EQ(set.m_pfData[(2 * 7) * 512 + k], h->DataIR.values[(7 * 2 + 0) * 512 + k]);
        EXPECT_EQ(set.m_pfData[(2 * 7 + 1) * 512 + k], h->DataIR.values[(7 * 2 + 1) * 512 + k]);
    }
    // The first measurement lies at azimuth 0, elevation -40, and is its own nearest.
    EXPECT_EQ(h->SourcePosition.values[0], 0.0f);
    EXPECT_EQ(h->SourcePosition.values[1], -40.0f);
    mysofa_free(h);
    EXPECT_EQ(set.m_aiLookup[CHELPER_HRTF::TableIndex(0, -40)], 0);
    const qk::HrtfCoverage c = qk::DescribeCoverage(set);
    EXPECT_EQ(c.iDirections, CHELPER_HRTF::kDirections);
    EXPECT_EQ(c.iDistinctMeasurements, 710);
    EXPECT_EQ(set.m_aiTableA, set.m_aiLookup);
}

TEST_F(KemarImport, ShortRateAndTypeOptions) {
    qk::SofaImportOptions options;
    options.iTaps = 128;
    options.iSampleRate = 48000;
    options.strDataType = "16s";
    CHELPER_HRTF small;
    std::string error;
    ASSERT_EQ(qk::ImportSofa(kKemar, options, small, error), 0) << error;
    EXPECT_EQ(small.m_iFileTaps, 128);
    EXPECT_EQ(small.m_iFileRate, 48000);
    EXPECT_STREQ(small.m_szDataType, "16s");
    EXPECT_EQ(small.DataLength(), 710 * 2 * 128);
    // The importer's fade ends each cut response close to silence.
    const Ears e = responses(small, 90.0f, 0.0f);
    EXPECT_LT(
        std::fabs(e.left[127]),
        0.01f * std::fabs(*std::max_element(e.left.begin(), e.left.end(), [](float a, float b) {
            return std::fabs(a) < std::fabs(b);
        })));
}

TEST(SofaImport, FilesItCannotUseAreRefusedWithAReason) {
    CHELPER_HRTF set;
    std::string error;
    EXPECT_EQ(qk::ImportSofa(qktest::TempPath("absent.sofa"), {}, set, error), -1);
    EXPECT_NE(error.find("absent.sofa"), std::string::npos);
    const std::string junk = qktest::TempPath("junk.sofa");
    std::ofstream(junk) << "this is not an HDF5 file at all";
    error.clear();
    EXPECT_EQ(qk::ImportSofa(junk, {}, set, error), -1);
    EXPECT_FALSE(error.empty());
    qk::SofaImportOptions badType;
    badType.strDataType = "8u";
    EXPECT_EQ(qk::ImportSofa(kKemar, badType, set, error), -1);
    EXPECT_EQ(set.m_iMeasurements, 0);  // untouched
    std::remove(junk.c_str());
}

TEST(SofaImport, NearestDirectionWrapsAroundAndReachesThePoles) {
    CHELPER_HRTF set;
    const float az[] = {0.0f, 90.0f, 180.0f, 270.0f, 123.0f};
    const float el[] = {0.0f, 0.0f, 0.0f, 0.0f, 90.0f};
    qk::FillNearestDirections(set, az, el, 5);
    auto at = [&set](int a, int e) { return set.m_aiLookup[CHELPER_HRTF::TableIndex(a, e)]; };
    EXPECT_EQ(at(44, 0), 0);
    EXPECT_EQ(at(46, 0), 1);
    EXPECT_EQ(at(359, 0), 0);
    EXPECT_EQ(at(316, 10), 0);
    EXPECT_EQ(at(314, -10), 3);
    EXPECT_EQ(at(200, 50), 4);  // nearer the pole than the ring
    EXPECT_EQ(at(200, 40), 2);
    EXPECT_EQ(at(0, -90), 0);  // all of the ring is 90 degrees away: the first wins
}

TEST(HrtfTools, ResizeCutsWithAFadeOrPadsWithZeros) {
    auto set = qktest::MakeSet(2, 16, "BOTH", 44100);
    for (int i = 0; i < set->DataLength(); ++i) {
        set->m_pfData[i] = 1.0f;
    }
    ASSERT_EQ(qk::ResizeResponses(*set, 8, 3), 0);
    EXPECT_EQ(set->m_iFileTaps, 8);
    EXPECT_EQ(set->m_iTaps, 8);
    ASSERT_EQ(set->DataLength(), 4 * 8);
    // Raised cosine over three samples: 0.5 (1 + cos(pi k / 4)), k = 1..3.
    const float expected[8] = {1, 1, 1, 1, 1, 0.853553f, 0.5f, 0.146447f};
    for (int s = 0; s < 4; ++s) {
        for (int k = 0; k < 8; ++k) {
            EXPECT_NEAR(set->m_pfData[s * 8 + k], expected[k], 1e-6f);
        }
    }
    ASSERT_EQ(qk::ResizeResponses(*set, 10, 3), 0);
    EXPECT_EQ(set->m_pfData[9], 0.0f);
    EXPECT_NEAR(set->m_pfData[10 + 7], expected[7], 1e-6f);
    EXPECT_EQ(qk::ResizeResponses(*set, 0, 0), -1);
    EXPECT_EQ(set->m_iFileTaps, 10);
}

TEST(HrtfTools, CoverageCountsWhatTheTableNames) {
    auto set = qktest::MakeSet(3, 4, "BOTH", 44100);
    set->m_aiLookup[CHELPER_HRTF::TableIndex(10, -5)] = 2;
    set->m_aiLookup[CHELPER_HRTF::TableIndex(200, 30)] = 2;
    set->m_aiLookup[CHELPER_HRTF::TableIndex(100, 0)] = 0;
    set->m_aiLookup[CHELPER_HRTF::TableIndex(300, 0)] = 9;  // not held: not counted
    const qk::HrtfCoverage c = qk::DescribeCoverage(*set);
    EXPECT_EQ(c.iDistinctMeasurements, 2);
    EXPECT_EQ(c.iDirections, 3);
    EXPECT_EQ(c.iMinAzimuth, 10);
    EXPECT_EQ(c.iMaxAzimuth, 200);
    EXPECT_EQ(c.iMinElevation, -5);
    EXPECT_EQ(c.iMaxElevation, 30);
    EXPECT_NE(qk::DescribeSet(*set).find("2 distinct measurements"), std::string::npos);
}
