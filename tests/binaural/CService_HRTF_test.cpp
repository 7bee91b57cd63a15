#include "binaural/CService_HRTF.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/SignalReference.h"

namespace {
constexpr int kRate = 44100;
constexpr int kTaps = 64;
constexpr int kBlock = 256;  // N = 512 = 2n: the fast convolution is exact
// Float transforms of 512 points on signals within +-1 and responses of 64 taps within +-1.
constexpr double kTolerance = 1e-4;

// A set with two measured directions: azimuth 0 (measurement 0) and 90 (measurement 1), both
// at elevation 0. Slot 2m is the left ear of measurement m, 2m + 1 the right.
std::unique_ptr<CHELPER_HRTF> twoDirectionSet() {
    auto set = qktest::MakeSet(2, kTaps, "BOTH", kRate);
    set->m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(0, 0))] = 0;
    set->m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(90, 0))] = 1;
    return set;
}

std::vector<float> slot(int s) {
    std::vector<float> h(kTaps);
    for (int k = 0; k < kTaps; ++k) {
        h[static_cast<size_t>(k)] = qktest::Code(s, k);
    }
    return h;
}

using qktest::ConvolveAt;

class HrtfService : public testing::TestWithParam<const char *> {
  protected:
    void SetUp() override {
        service.m_pHelper = set.get();
        service.m_sMethod = GetParam();
    }
    // Renders block b of x and returns the service's 2n output floats.
    std::vector<float> block(int b) {
        EXPECT_EQ(service._process(x.data() + b * kBlock, kBlock, 0), 0);
        return std::vector<float>(service.m_pfData.get(), service.m_pfData.get() + 2 * kBlock);
    }

    std::unique_ptr<CHELPER_HRTF> set = twoDirectionSet();
    CService_HRTF service;
    std::vector<float> x = qktest::Noise(4 * kBlock, 21);
};

// Blocks 0 and 1 with the first direction; a new direction before block 2. Block 2 fades the
// old filter out and the new one in; block 3 is the new filter alone.
TEST_P(HrtfService, RendersTheDirectionAndCrossFadesOneBlockOnAChange) {
    const bool fir = std::string(GetParam()) == "FIR";
    // The partitioned convolver applies the new filter to the whole input history; the other
    // methods start it at the change.
    const bool partitioned = std::string(GetParam()) == "PARTITIONED";
    const int from = partitioned ? 0 : 2 * kBlock;
    ASSERT_EQ(service._init(kBlock, kRate), 0);
    EXPECT_EQ(service.m_strStatus, "OK");
    EXPECT_EQ(service.m_iLength, kTaps);
    const std::vector<float> oldL = slot(0), oldR = slot(1), newL = slot(2), newR = slot(3);
    for (int b = 0; b < 2; ++b) {
        const std::vector<float> out = block(b);
        for (int j = 0; j < kBlock; ++j) {
            ASSERT_NEAR(out[static_cast<size_t>(j)], ConvolveAt(x, oldL, b * kBlock + j),
                        kTolerance);
            ASSERT_NEAR(out[static_cast<size_t>(kBlock + j)], ConvolveAt(x, oldR, b * kBlock + j),
                        kTolerance);
        }
    }
    ASSERT_EQ(service.ReInitialize(90, 0, kRate), 0);
    EXPECT_EQ(service.m_bReInitialize, 1);
    EXPECT_EQ(service.m_iAzimuth, 90);

    const std::vector<float> fade = block(2);
    EXPECT_EQ(service.m_bReInitialize, 0);
    const int start = 2 * kBlock;
    for (int j = 0; j < kBlock; ++j) {
        const double up = static_cast<double>(j) / (kBlock - 1);
        const int t = start + j;
        // The old filter runs on; the new one starts from this block, and the fast
        // convolver's second pass hears the old filter's tail of this block once more.
        const double aL = ConvolveAt(x, oldL, t);
        double bL = ConvolveAt(x, newL, t, from);
        double bR = ConvolveAt(x, newR, t, from);
        if (!fir && !partitioned) {
            bL += ConvolveAt(x, oldL, t + kBlock, start) -
                  ConvolveAt(x, oldL, t + kBlock, start + kBlock);
            bR += ConvolveAt(x, oldR, t + kBlock, start) -
                  ConvolveAt(x, oldR, t + kBlock, start + kBlock);
        }
        ASSERT_NEAR(fade[static_cast<size_t>(j)], aL * (1.0 - up) + bL * up, kTolerance) << j;
        ASSERT_NEAR(fade[static_cast<size_t>(kBlock + j)],
                    ConvolveAt(x, oldR, t) * (1.0 - up) + bR * up, kTolerance)
            << j;
    }
    const std::vector<float> after = block(3);
    for (int j = 0; j < kBlock; ++j) {
        ASSERT_NEAR(after[static_cast<size_t>(j)], ConvolveAt(x, newL, 3 * kBlock + j, from),
                    kTolerance);
        ASSERT_NEAR(after[static_cast<size_t>(kBlock + j)],
                    ConvolveAt(x, newR, 3 * kBlock + j, from), kTolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(Methods, HrtfService, testing::Values("OVERLAP", "FIR", "PARTITIONED"));

// The partitioned method takes a measured direction from the set's shared spectra. Asking
// again for the direction in use, once it is in use, is no change: no cross-fade, and a
// response still waiting gives way to it. Another direction still fades.
TEST(CService_HRTF, PartitionedKeepsTheFilterWhenTheDirectionStays) {
    auto set = twoDirectionSet();
    CService_HRTF service;
    service.m_pHelper = set.get();
    service.m_sMethod = CService_HRTF::kPartitioned;
    std::vector<float> x = qktest::Noise(kBlock, 22);
    ASSERT_EQ(service._init(kBlock, kRate), 0);
    ASSERT_EQ(service.ReInitialize(90, 0, kRate), 0);
    ASSERT_EQ(service._process(x.data(), kBlock, 0), 0);  // fades to the set's spectra
    ASSERT_EQ(service.ReInitialize(90, 0, kRate), 0);
    EXPECT_EQ(service.m_bReInitialize, 0);
    ASSERT_EQ(service.ReInitialize(0, 0, kRate), 0);
    EXPECT_EQ(service.m_bReInitialize, 1);
    ASSERT_EQ(service.ReInitialize(90, 0, kRate), 0);
    EXPECT_EQ(service.m_bReInitialize, 0);
    const std::vector<float> newL = slot(2);
    ASSERT_EQ(service._process(x.data(), kBlock, 0), 0);
    std::vector<float> twice(2 * static_cast<size_t>(kBlock));
    std::copy(x.begin(), x.end(), twice.begin());
    std::copy(x.begin(), x.end(), twice.begin() + kBlock);
    for (int j = 0; j < kBlock; ++j) {
        ASSERT_NEAR(service.m_pfData[j], ConvolveAt(twice, newL, kBlock + j), kTolerance) << j;
    }
}

TEST(CService_HRTF, FailuresWithoutSetOrMeasurement) {
    qktest::ReportRecorder reports;
    CService_HRTF service;
    std::vector<float> in(kBlock, 1.0f);
    EXPECT_EQ(service._init(kBlock, kRate), -1);
    EXPECT_EQ(service.ReInitialize(0, 0, kRate), -1);
    EXPECT_EQ(service._process(in.data(), kBlock, 0), -1);

    auto set = twoDirectionSet();
    service.m_pHelper = set.get();
    service.m_iAzimuth = 45;
    EXPECT_EQ(service._init(kBlock, kRate), -1);
    // Nothing is in use: the block is silent.
    EXPECT_EQ(service._process(in.data(), kBlock, 0), 0);
    EXPECT_TRUE(std::all_of(service.m_pfData.get(), service.m_pfData.get() + 2 * kBlock,
                            [](float f) { return f == 0.0f; }));
}

}  // namespace
