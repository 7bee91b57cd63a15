#include "binaural/CHELPER_HRTF.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "platform/Archive.h"
#include "support/HrtfSets.h"

using qktest::Code;
using qktest::MakeSet;
using qktest::ReportCatcher;

namespace {
// Owns the pair of arrays a lookup hands out, and passes them back in as the callers do.
struct Pair {
    ~Pair() {
        ippsFree(left);
        ippsFree(right);
    }
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
};

// A "BOTH" set with one measurement per direction, m = TableIndex(az, el), whose left
// response starts with m and whose right response starts with m + 0.5.
std::unique_ptr<CHELPER_HRTF> directionSet() {
    auto set = MakeSet(CHELPER_HRTF::kDirections, 2, "BOTH", 44100);
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = i;
        set->m_pfData[4 * i] = static_cast<float>(i);
        set->m_pfData[4 * i + 2] = static_cast<float>(i) + 0.5f;
    }
    return set;
}

int index(int az, int el) {
    return CHELPER_HRTF::TableIndex(az, el);
}
}  // namespace

TEST(CHELPER_HRTF, DirectionsAreTruncatedWrappedAndClamped) {
    auto set = directionSet();
    struct Case {
        float az, el;
        int expected;
    } cases[] = {
        {360.0f, 0.0f, index(0, 0)},
        {0.0f, 0.0f, index(0, 0)},
        {-360.0f, 0.0f, index(0, 0)},
        {359.9f, 0.0f, index(359, 0)},
        {-0.5f, 0.0f, index(0, 0)},
        {-1.0f, 0.0f, index(359, 0)},
        {725.0f, 0.0f, index(5, 0)},
        {-725.0f, 0.0f, index(355, 0)},
        {10.0f, 91.0f, index(10, 90)},
        {10.0f, -120.0f, index(10, -90)},
        {10.0f, 45.9f, index(10, 45)},
        {10.0f, -45.9f, index(10, -45)},
        {1e30f, 0.0f, index(static_cast<int>(std::fmod(1e30f, 360.0f)), 0)},
    };
    for (const Case &c : cases) {
        Pair p;
        ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, c.az, c.el, 44100), 1);
        ASSERT_EQ(p.length, 2);
        EXPECT_EQ(p.left[0], static_cast<float>(c.expected)) << c.az << ", " << c.el;
        EXPECT_EQ(p.right[0], static_cast<float>(c.expected) + 0.5f) << c.az << ", " << c.el;
    }
}

TEST(CHELPER_HRTF, BothSetAtItsOwnRateGivesTheStoredTapsBitForBit) {
    auto set = MakeSet(3, 16, "BOTH", 48000);
    qktest::FillLookup(*set, 2);
    Pair p;
    p.left = ippsMalloc_32f(5);  // a buffer the caller held is freed, not leaked
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 30.0f, 10.0f, 48000), 1);
    ASSERT_EQ(p.length, 16);
    for (int k = 0; k < 16; ++k) {
        EXPECT_EQ(p.left[k], Code(4, k));
        EXPECT_EQ(p.right[k], Code(5, k));
    }
    EXPECT_EQ(set->m_iSampleRate, 48000);
}

TEST(CHELPER_HRTF, LeftSetMirrorsToRow359MinusAzimuth) {
    auto set = MakeSet(4, 8, "LEFT", 44100);
    set->m_aiLookup[index(0, 0)] = 1;
    set->m_aiLookup[index(359, 0)] = 2;
    set->m_aiLookup[index(90, 0)] = 3;
    set->m_aiLookup[index(269, 0)] = 0;
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 1);
    EXPECT_EQ(p.left[3], Code(1, 3));
    EXPECT_EQ(p.right[3], Code(2, 3));  // row 359, not row 0
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 90.0f, 0.0f, 44100), 1);
    EXPECT_EQ(p.left[0], Code(3, 0));
    EXPECT_EQ(p.right[0], Code(0, 0));
}

TEST(CHELPER_HRTF, RightSetExchangesTheEars) {
    auto set = MakeSet(4, 8, "RIGHT", 44100);
    set->m_aiLookup[index(0, 0)] = 1;
    set->m_aiLookup[index(359, 0)] = 2;
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 1);
    EXPECT_EQ(p.right[3], Code(1, 3));
    EXPECT_EQ(p.left[3], Code(2, 3));
}

TEST(CHELPER_HRTF, MissingDirectionsAreReportedAndFail) {
    ReportCatcher catcher;
    auto both = MakeSet(2, 4, "BOTH", 44100);
    both->m_aiLookup[index(10, 0)] = 7;  // names a measurement the set doesn't hold
    Pair p;
    EXPECT_EQ(both->GetHRTF(p.left, p.right, p.length, 20.0f, 0.0f, 44100), 0);
    EXPECT_EQ(both->GetHRTF(p.left, p.right, p.length, 10.0f, 0.0f, 44100), 0);
    auto left = MakeSet(2, 4, "LEFT", 44100);
    left->m_aiLookup[index(0, 0)] = 0;  // row 359 stays empty
    EXPECT_EQ(left->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 0);
    auto right = MakeSet(2, 4, "RIGHT", 44100);
    EXPECT_EQ(right->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 0);
    const std::vector<std::string> expected = {"// TODO search in run-time for closest - BOTH",
                                               "// TODO search in run-time for closest - BOTH",
                                               "// TODO search in run-time for closest - LEFT",
                                               "// TODO search in run-time for closest - RIGHT"};
    EXPECT_EQ(catcher.texts, expected);
    EXPECT_EQ(catcher.captions.front(), "FAILURE");
}

TEST(CHELPER_HRTF, OddSetsGiveSilenceRatherThanGarbage) {
    // An ears word none of the three: success, with zeroed responses.
    auto set = MakeSet(1, 4, "BOTH", 44100);
    std::strcpy(set->m_szEars, "MONO");
    qktest::FillLookup(*set, 0);
    Pair p;
    EXPECT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 1);
    ASSERT_EQ(p.length, 4);
    EXPECT_EQ(p.left[0], 0.0f);
    EXPECT_EQ(p.right[3], 0.0f);
    // A set without samples, and a rate of 0: nothing.
    ReportCatcher catcher;
    CHELPER_HRTF empty;
    EXPECT_EQ(empty.GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 0);
    EXPECT_EQ(p.length, 0);
    std::strcpy(set->m_szEars, "BOTH");
    EXPECT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 0), 0);
}

TEST(CHELPER_HRTF, ArchiveRecordsTheSetInUseButLoadsOnlyTheVersion) {
    auto set = MakeSet(3, 16, "BOTH", 48000);
    qk::CMemoryStream out;
    {
        qk::CArchive ar(out, qk::CArchive::store);
        set->Serialize(ar);
    }
    const std::vector<uint8_t> expected = {0, 0, 0x80, 0x3F, 0x80, 0xBB, 0,  0, 2, 0,
                                           0, 0, 3,    0,    0,    0,    16, 0, 0, 0};
    EXPECT_EQ(out.Bytes(), expected);

    CHELPER_HRTF other;
    qk::CMemoryStream in(out.Bytes().data(), out.Bytes().size());
    qk::CArchive ar(in, qk::CArchive::load);
    other.Serialize(ar);
    EXPECT_EQ(other.m_iFileRate, 0);
    EXPECT_EQ(other.m_iMeasurements, 0);
    EXPECT_EQ(in.Remaining(), 16);
}

namespace {
// A "BOTH" set of one measurement whose responses are sines of the given period in samples.
std::unique_ptr<CHELPER_HRTF> sineSet(int iRate, int iTaps, double period) {
    auto set = MakeSet(1, iTaps, "BOTH", iRate);
    qktest::FillLookup(*set, 0);
    for (int k = 0; k < iTaps; ++k) {
        const float v = static_cast<float>(0.5 * std::sin(2.0 * M_PI * k / period));
        set->m_pfData[k] = v;
        set->m_pfData[iTaps + k] = -v;
    }
    return set;
}
}  // namespace

TEST(CHELPER_HRTF, FasterDataWithinTenPercentKeepTheirLengthButPassTheConverter) {
    auto set = sineSet(48000, 256, 32.0);
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 44100), 1);
    EXPECT_EQ(p.length, 256);
    // Ratio 1: the sine comes back nearly as it was, yet not as the stored bits.
    float maxDiff = 0.0f;
    bool same = true;
    for (int k = 32; k < 224; ++k) {
        maxDiff = std::max(maxDiff, std::fabs(p.left[k] - set->m_pfData[k]));
        same = same && p.left[k] == set->m_pfData[k];
    }
    EXPECT_LT(maxDiff, 0.02f);
    EXPECT_FALSE(same);
    EXPECT_EQ(set->m_iSampleRate, 44100);
    EXPECT_EQ(set->m_iFileRate, 48000);
}

TEST(CHELPER_HRTF, HalfTheRateHalvesTheLengthAndKeepsTheFrequency) {
    // 44,100 Hz data asked for at 22,050 Hz: ratio 1/2, a period of 32 samples becomes 16.
    auto set = sineSet(44100, 512, 32.0);
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 22050), 1);
    EXPECT_NEAR(p.length, 256, 2);
    // Away from the ends, the output is the same sine at half the period. The converter
    // delays nothing and keeps the level within a few per cent in its pass band.
    constexpr float kTolerance = 0.03f;
    for (int k = 32; k < 224; ++k) {
        const float expected = static_cast<float>(0.5 * std::sin(2.0 * M_PI * k / 16.0));
        EXPECT_NEAR(p.left[k], expected, kTolerance) << k;
        EXPECT_NEAR(p.right[k], -expected, kTolerance) << k;
    }
}

TEST(CHELPER_HRTF, SlowerDataAreStretchedAndFarRatesAreBounded) {
    // 44,100 Hz data asked for at 48,000 Hz: r < 1 gives 10 / trunc(10 r) = 10 / 9.
    auto set = sineSet(44100, 450, 45.0);
    Pair p;
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 48000), 1);
    EXPECT_NEAR(p.length, 500, 2);
    for (int k = 50; k < 450; k += 7) {
        const float expected = static_cast<float>(0.5 * std::sin(2.0 * M_PI * k / 50.0));
        EXPECT_NEAR(p.left[k], expected, 0.03f) << k;
    }
    // Rates far apart stay within the converter's range.
    set = sineSet(192000, 64, 16.0);
    // r = 24: no fraction of the search fits, the smallest (1 / 10) is taken.
    ASSERT_EQ(set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 8000), 1);
    EXPECT_NEAR(p.length, 6, 1);
    // r = 1 / 24: 10 / trunc(0.4) would divide by zero; the ratio stays at 10.
    auto slow = sineSet(8000, 64, 16.0);
    ASSERT_EQ(slow->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 192000), 1);
    EXPECT_NEAR(p.length, 640, 2);
}

TEST(CHELPER_HRTF, UpdateTapsFollowsTheRateInForce) {
    auto set = sineSet(44100, 128, 32.0);
    set->m_iSampleRate = 44100;
    set->m_iTaps = 0;
    set->UpdateTaps();
    EXPECT_EQ(set->m_iTaps, 128);
    set->m_iSampleRate = 22050;
    set->UpdateTaps();
    Pair p;
    set->GetHRTF(p.left, p.right, p.length, 0.0f, 0.0f, 22050);
    EXPECT_EQ(set->m_iTaps, p.length);
    EXPECT_NE(set->m_iTaps, 128);
    EXPECT_EQ(set->m_iFileTaps, 128);
}
