#include "sources/CSOURCE.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "sources/CSOURCE_GAUSS.h"
#include "sources/CSOURCE_WAVE.h"
#include "support/ArchiveBytes.h"

namespace {
// Relative single-precision rounding of a scaled block maximum.
constexpr float kFloatRounding = 1e-6f;

std::vector<float> block(const CSSS &s, int n) {
    return std::vector<float>(s.m_pfData.get(), s.m_pfData.get() + n);
}
}  // namespace

TEST(CSSS, IdsRiseAcrossAllKindsOfObject) {
    CSSS base;
    CSOURCE source;
    CSOURCE_GAUSS noise;
    EXPECT_EQ(source.m_iID, base.m_iID + 1);
    EXPECT_EQ(noise.m_iID, base.m_iID + 2);
    EXPECT_EQ(CSSS::m_iObjectCounter, noise.m_iID);
}

TEST(CSSS, DataBufferGrowsKeepingItsStartAndNeverShrinks) {
    CSSS s;
    s._adjustDataBuffer(4);
    ASSERT_NE(s.m_pfData, nullptr);
    EXPECT_EQ(s.m_iDataLength, 4);
    for (int i = 0; i < 4; ++i) {
        s.m_pfData[i] = static_cast<float>(i + 1);
    }
    s._adjustDataBuffer(2);
    EXPECT_EQ(s.m_iDataLength, 4);
    EXPECT_EQ(s.m_pfData[3], 4.0f);

    s._adjustDataBuffer(8);
    EXPECT_EQ(s.m_iDataLength, 8);
    EXPECT_EQ(block(s, 8), (std::vector<float>{1, 2, 3, 4, 0, 0, 0, 0}));
}

TEST(CSSS, ButterworthCoefficientsFollowTheTangentForm) {
    float *coefs = nullptr;
    // fc = fs/4: K = tan(pi/4) = 1, so a0 = 2 + sqrt 2, a1 = 0, a2 = 2 - sqrt 2.
    CSSS::GetLPCoefs(coefs, 11025.0f, 44100);
    ASSERT_NE(coefs, nullptr);
    const float k = static_cast<float>(std::tan(static_cast<double>(3.1415927f) / 4.0));
    EXPECT_FLOAT_EQ(coefs[0], k * k);
    EXPECT_FLOAT_EQ(coefs[1], 2 * k * k);
    EXPECT_FLOAT_EQ(coefs[3], static_cast<float>(2.0 + std::sqrt(2.0)));
    EXPECT_NEAR(coefs[4], 0.0f, 1e-6f);
    EXPECT_FLOAT_EQ(coefs[5], static_cast<float>(2.0 - std::sqrt(2.0)));
    CSSS::GetHPCoefs(coefs, 11025.0f, 44100);  // frees the old array
    EXPECT_EQ(coefs[1], -2.0f);
    ippsFree(coefs);
}

TEST(CSOURCE, VariablesCanBeSetButTheBaseKeysNotRead) {
    CSOURCE source;
    EXPECT_EQ(source.SetVariable("Offset", "12"), 1);
    EXPECT_EQ(source.m_iOffset, 12);
    std::string value = "untouched";
    EXPECT_EQ(source.GetVariable("Offset", value), 0);
    EXPECT_EQ(value, "untouched");

    EXPECT_EQ(source.SetVariable("Enable", "true"), 1);
    EXPECT_EQ(source.m_iEnable, 0);  // only the upper-case word enables
    EXPECT_EQ(source.SetVariable("Enable", "TRUE"), 1);
    EXPECT_EQ(source.m_iEnable, 1);

    EXPECT_EQ(source.SetVariable("offset", "3"), 0);  // keys are case-sensitive
    EXPECT_EQ(source.m_iOffset, 12);
}

TEST(CSOURCE, ResampleIsIntegerZeroStuffingOnly) {
    CSOURCE source;
    std::vector<float> in(2048);
    for (size_t i = 0; i < in.size(); ++i) {
        in[i] = static_cast<float>(i + 1);
    }
    std::vector<float> out(8192, -1.0f);

    int outLength = 1024;  // a source slower than the engine: factor 0, nothing happens
    source.Resample(in.data(), 512, out.data(), outLength);
    EXPECT_EQ(outLength, 1024);
    EXPECT_EQ(out[0], -1.0f);

    outLength = 1024;  // 2048 / 1024: factor 2
    source.Resample(in.data(), 2048, out.data(), outLength);
    EXPECT_EQ(outLength, 4096);
    EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 3), (std::vector<float>{1, 0, 2}));
    EXPECT_EQ(out[4095], 0.0f);

    outLength = 0;  // no factor can be formed: defined, nothing written
    source.Resample(in.data(), 2048, out.data(), outLength);
    EXPECT_EQ(outLength, 0);
}

TEST(CSOURCE, BandSplitFiltersEachChannelAndKeepsState) {
    CSOURCE source;
    const int n = 256;
    source._adjustDataBuffer(2 * n);
    for (int i = 0; i < 2 * n; ++i) {
        source.m_pfData[i] = 1000.0f;  // a constant: all low band, no high band at rest
    }
    for (int block = 0; block < 40; ++block) {
        source.ProcessBreak(n, 44100, 2, 1000.0f, 1000.0f);
    }
    ASSERT_EQ(source.m_iBreakReady, 1);
    for (int ch = 0; ch < 2; ++ch) {
        EXPECT_NEAR(source.m_pfBreakLow[ch * n + n - 1], 1000.0f, 0.5f) << ch;
        EXPECT_NEAR(source.m_pfBreakHigh[ch * n + n - 1], 0.0f, 0.5f) << ch;
    }

    // Three channels: only the first n samples of each band are cleared, nothing filtered.
    source.m_pfBreakLow[n] = 7.0f;
    source.ProcessBreak(n, 44100, 3, 1000.0f, 1000.0f);
    EXPECT_EQ(source.m_pfBreakLow[0], 0.0f);
    EXPECT_EQ(source.m_pfBreakHigh[n - 1], 0.0f);
    EXPECT_EQ(source.m_pfBreakLow[n], 7.0f);

    // A block larger than the buffer can hold is refused, not overrun.
    source.ProcessBreak(source.m_iBufferLength + 1, 44100, 1, 1000.0f, 1000.0f);
}

TEST(CSOURCE_GAUSS, BlockPeaksAtFullScaleAndMovesOn) {
    CSOURCE_GAUSS noise;
    const int n = 1024;
    ASSERT_EQ(noise._process_1P(nullptr, n, 16, 2, 44100), 0);
    EXPECT_EQ(noise.m_iSource_Channels, 1);
    const std::vector<float> first = block(noise, n);
    const std::vector<float> second(noise.m_pfData.get() + n, noise.m_pfData.get() + 2 * n);
    for (const auto &channel : {first, second}) {
        EXPECT_NEAR(*std::max_element(channel.begin(), channel.end()), 32112.64f,
                    32112.64f * kFloatRounding);
    }
    // Mean 5 with deviation 1: the block is nearly all positive.
    EXPECT_LT(std::count_if(first.begin(), first.end(), [](float v) { return v < 0.0f; }), 3);

    noise._process_1P(nullptr, n, 16, 2, 44100);
    EXPECT_NE(block(noise, n), first);

    ASSERT_EQ(noise._process_1P(nullptr, n, 8, 1, 44100), 0);
    const std::vector<float> bytes = block(noise, n);
    EXPECT_NEAR(*std::max_element(bytes.begin(), bytes.end()), 125.44f, 125.44f * kFloatRounding);

    EXPECT_EQ(noise._process_1P(nullptr, noise.m_iBufferLength + 1, 16, 2, 44100), -1);
    EXPECT_EQ(noise._process_1P(nullptr, 0, 16, 2, 44100), -1);
    EXPECT_EQ(noise._process_1P(nullptr, 512, 16, -3, 44100), -1);
    EXPECT_EQ(noise._process_1P(nullptr, 512, 99, 2, 44100), -1);
}

TEST(CSOURCE_GAUSS, SourcesShareOneSeed) {
    const int n = 64;
    const unsigned start = CSOURCE_GAUSS::s_uiGaussSeed;
    CSOURCE_GAUSS a;
    CSOURCE_GAUSS b;
    a._process_1P(nullptr, n, 16, 1, 44100);
    const std::vector<float> aFirst = block(a, n);

    CSOURCE_GAUSS::s_uiGaussSeed = start;
    b._process_1P(nullptr, n, 16, 1, 44100);  // b now makes what a made
    EXPECT_EQ(block(b, n), aFirst);
}

TEST(CSOURCE, ArchiveFormKeepsIdEnableAndNamesButNoiseStoresNothing) {
    CSOURCE_WAVE wave;
    wave.m_strName = "voice";
    wave.m_strFile = "/tmp/voice.wav";
    wave.m_iEnable = 0;
    const auto bytes = qktest::StoreBytes(wave);
    // CSSS: version, id, enable, two strings; then one version each for the three levels.
    EXPECT_EQ(bytes.size(), 4u + 4 + 4 + 1 + 5 + 1 + 14 + 4 + 4 + 4);

    CSOURCE_WAVE back;
    qktest::LoadBytes(back, bytes);
    EXPECT_EQ(back.m_iID, wave.m_iID);
    EXPECT_EQ(back.m_iEnable, 0);
    EXPECT_EQ(back.m_strName, "voice");
    EXPECT_EQ(back.m_strFile, "/tmp/voice.wav");

    CSOURCE_GAUSS noise;
    EXPECT_TRUE(qktest::StoreBytes(noise).empty());
}
