#include "sources/CSOURCE_HOSTFED.h"

#include <gtest/gtest.h>

#include <vector>

#include "quendarik/CQKSDK.h"

namespace {
std::vector<float> planar(const CSOURCE &source, int count) {
    return std::vector<float>(source.m_pfData.get(), source.m_pfData.get() + count);
}
}  // namespace

TEST(HostFed, EachLayoutBecomesThePlanarBlock) {
    CSOURCE_WINAMP winamp;
    const int16_t shorts[] = {-32768, 1, 2, 3, 4, 32767};  // L0 R0 L1 R1 L2 R2
    EXPECT_EQ(winamp._process_1P(const_cast<int16_t *>(shorts), 3, 16, 2, 44100), 3);
    EXPECT_EQ(winamp.m_iSource_Channels, 2);
    EXPECT_EQ(planar(winamp, 6), (std::vector<float>{-32768.0f, 2, 4, 1, 3, 32767.0f}));

    CSOURCE_DXi2 dxi;
    const float interleaved[] = {0.5f, -0.5f, 0.25f, -0.25f};
    EXPECT_EQ(dxi._process_1P(const_cast<float *>(interleaved), 2, 32, 2, 48000), 2);
    EXPECT_EQ(planar(dxi, 4), (std::vector<float>{0.5f, 0.25f, -0.5f, -0.25f}));

    CSOURCE_WMP wmp;
    const float mono[] = {1, 2, 3};
    EXPECT_EQ(wmp._process_1P(const_cast<float *>(mono), 3, 32, 1, 44100), 3);
    EXPECT_EQ(wmp.m_iSource_Channels, 1);
    EXPECT_EQ(planar(wmp, 3), (std::vector<float>{1, 2, 3}));

    CSOURCE_VST vst;
    float left[] = {1, 2};
    float right[] = {3, 4};
    void *both[] = {left, right};
    EXPECT_EQ(vst._process_2P(both, 2, 32, 1, 44100), 2);  // two channels read anyway
    EXPECT_EQ(vst.m_iSource_Channels, 1);
    EXPECT_EQ(planar(vst, 4), (std::vector<float>{1, 2, 3, 4}));
}

TEST(HostFed, BlocksThatCannotFitOrHaveNoDataChangeNothing) {
    CSOURCE_WMP wmp;
    std::vector<float> big(2 * (wmp.m_iBufferLength + 1), 1.0f);
    EXPECT_EQ(wmp._process_1P(big.data(), wmp.m_iBufferLength + 1, 32, 2, 44100), -1);
    EXPECT_EQ(wmp.m_pfData, nullptr);
    EXPECT_EQ(wmp._process_1P(nullptr, 16, 32, 2, 44100), -1);

    // The first block fixes the buffer's channels; a later one with more can't fit.
    EXPECT_EQ(wmp._process_1P(big.data(), wmp.m_iBufferLength, 32, 1, 44100), wmp.m_iBufferLength);
    EXPECT_EQ(wmp._process_1P(big.data(), wmp.m_iBufferLength, 32, 2, 44100), -1);

    CSOURCE_VST vst;
    void *halfNull[] = {big.data(), nullptr};
    EXPECT_EQ(vst._process_2P(halfNull, 16, 32, 2, 44100), -1);
    EXPECT_EQ(vst._process_2P(nullptr, 16, 32, 2, 44100), -1);
}

TEST(HostFed, TheFacadeFeedsByIdAndTheWrongPathGivesTheBaseResult) {
    CQKSDK sdk;
    int winamp = 0;
    int vst = 0;
    ASSERT_EQ(sdk.qk_Ssrc_Add_Winamp(winamp), 0);
    ASSERT_EQ(sdk.qk_Ssrc_Add_VST(vst), 0);
    int16_t shorts[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(winamp, shorts, 4, 16, 2, 44100), 4);
    float block[4] = {};
    void *pointers[] = {block, block};
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_2P(winamp, pointers, 4, 16, 2, 44100), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(vst, shorts, 4, 16, 2, 44100), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_2P(vst, pointers, 4, 16, 2, 44100), 4);
    int dxi = 0;
    int wmp = 0;
    EXPECT_EQ(sdk.qk_Ssrc_Add_DXi2(dxi), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Add_WMP(wmp), 0);
    EXPECT_EQ(wmp, dxi + 1);
}
