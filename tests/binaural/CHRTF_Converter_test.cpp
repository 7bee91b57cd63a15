#include "binaural/CHRTF_Converter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/WaveWriter.h"

using qktest::MakeSet;
using qktest::ReportRecorder;

namespace {
// Magnitudes of bins 0..n/2 of a real sequence, by a plain DFT in double precision.
std::vector<double> dftMagnitude(const float *x, int n) {
    std::vector<double> mag(static_cast<size_t>(n / 2 + 1));
    for (int k = 0; k <= n / 2; ++k) {
        std::complex<double> sum = 0.0;
        for (int i = 0; i < n; ++i) {
            sum += static_cast<double>(x[i]) * std::polar(1.0, -2.0 * M_PI * k * i / n);
        }
        mag[static_cast<size_t>(k)] = std::abs(sum);
    }
    return mag;
}

// A "BOTH" set of iMeasurements whose every response is the given one, stored as 32f.
std::string writeUniformSet(const std::string &name, const std::vector<float> &response,
                            int iMeasurements = 4) {
    const int taps = static_cast<int>(response.size());
    auto set = MakeSet(iMeasurements, taps, "BOTH", 44100);
    for (int s = 0; s < 2 * iMeasurements; ++s) {
        std::copy(response.begin(), response.end(), set->m_pfData.get() + s * taps);
    }
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = i % iMeasurements;
        set->m_aiTableA[static_cast<size_t>(i)] = -i;
    }
    const std::string path = qktest::ScratchPath(name);
    EXPECT_EQ(set->ReadWrite(1, path), 0);
    return path;
}

// A response with a gentle, uneven spectrum (between 0.4 and 1.6): 1 at sample 20, 0.6 at 21.
std::vector<float> gentleResponse(int taps) {
    std::vector<float> r(static_cast<size_t>(taps), 0.0f);
    r[20] = 1.0f;
    r[21] = 0.6f;
    return r;
}
}  // namespace

TEST(CHRTF_Converter, DiffuseFieldEqualisationFlattensAndNormalises) {
    const std::string path = writeUniformSet("flat.qkhrtf", gentleResponse(512));
    CHELPER_HRTF before(path);
    CHRTF_Converter converter;
    // The regularised inverse is centred at N / 2, which the offset of 256 takes away again.
    converter.m_iInverseMethod = 1;
    ASSERT_EQ(converter.ConvertDFE(path), 0);
    // "flat.qkhrtf" loses six characters: the dot stays before the suffix.
    EXPECT_EQ(converter.m_sOutputName, qktest::ScratchPath("flat._DFE.qkhrtf"));
    CHELPER_HRTF after(converter.m_sOutputName);
    qktest::ExpectSameSet(before, after, false);

    float peak = 0.0f;
    for (int i = 0; i < after.DataLength(); ++i) {
        peak = std::max(peak, std::fabs(after.m_pfData[i]));
    }
    EXPECT_EQ(peak, 1.0f);

    // A response times its own inverse: flat within 0.5 dB (the 12 dB of the input lie
    // inside the 24 dB the inversion allows), and still arriving at sample 20.
    const std::vector<double> mag = dftMagnitude(after.m_pfData.get(), 512);
    const double ref = mag[128];
    for (size_t k = 0; k < mag.size(); ++k) {
        EXPECT_NEAR(20.0 * std::log10(mag[k] / ref), 0.0, 0.5) << k;
    }
    EXPECT_EQ(after.m_pfData[20], 1.0f);
    // Right ears were equalised too.
    EXPECT_EQ(after.m_pfData[512 + 100], after.m_pfData[100]);
    std::remove(path.c_str());
    std::remove(converter.m_sOutputName.c_str());
}

TEST(CHRTF_Converter, NothingIsWrittenForEmptyOrUnreadableSets) {
    ReportRecorder catcher;
    CHRTF_Converter converter;
    EXPECT_EQ(converter.ConvertDFE(""), -1);
    EXPECT_EQ(converter.ConvertMFR("", 100.0f), -1);
    const std::string junk = qktest::ScratchPath("junk.qkhrtf");
    std::ofstream(junk) << "not a set";
    EXPECT_EQ(converter.ConvertDFE(junk), -1);
    EXPECT_FALSE(std::ifstream(qktest::ScratchPath("junk._DFE.qkhrtf")).good());
    float *average = nullptr;
    int length = 0;
    EXPECT_EQ(converter.GetAverage(junk, average, length), -1);
    EXPECT_EQ(average, nullptr);
    EXPECT_EQ(converter.Equalise(nullptr, 0), -1);
    std::remove(junk.c_str());
}
