#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "support/CodecFiles.h"
#include "support/HrtfSets.h"
#include "support/ScopedCommonRoot.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"

namespace fs = std::filesystem;

TEST(ResponseSetFiles, NameHoldsIdsAndCentimetres) {
    EXPECT_EQ(CQUENDARIK_PROCESSOR::PreComputedName(1, C3Point(0, 0, 0, 0), C3Point(0, 1, 0, 0), 2,
                                                    C3Point(1.5, 2, 0, 0), C3Point(0, 0, 0, 0)),
              "1_0_0_0_0_100_0_2_150_200_0_0_0_0.wav");
    EXPECT_EQ(CQUENDARIK_PROCESSOR::PreComputedName(7, C3Point(-0.256, 0, 0, 0), C3Point(), 8,
                                                    C3Point(), C3Point(0, 0, 3.004, 0)),
              "7_-26_0_0_0_0_0_8_0_0_0_0_0_300.wav");
}

TEST(ResponseSetFiles, SaveAsWaveScalesTo16BitsWithoutClipping) {
    const std::string path = qktest::TempPath("scaled.wav");
    // Left 0.5, 1.0; right -0.25, 0.0001: 1.0 is 32768, whose low word reads back as -32768.
    float block[] = {0.5f, 1.0f, -0.25f, 0.0001f};
    ASSERT_EQ(CQUENDARIK_PROCESSOR::SaveAsWave(path, block, 2, 2, 16, 44100), 0);
    EXPECT_EQ(block[0], 16384.0f);  // the caller's block is scaled in place
    const auto channels = qktest::WaveChannels(path);
    ASSERT_EQ(channels.size(), 2u);
    EXPECT_EQ(channels[0], (std::vector<float>{16384, -32768}));
    EXPECT_EQ(channels[1], (std::vector<float>{-8192, 3}));
    std::remove(path.c_str());

    float three[] = {0.5f, 0.25f, 0.125f};
    EXPECT_EQ(CQUENDARIK_PROCESSOR::SaveAsWave(path, three, 1, 3, 16, 44100), -1);
    EXPECT_EQ(three[0], 0.5f);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(CQUENDARIK_PROCESSOR::SaveAsWave("/no/such/folder/x.wav", three, 1, 1, 16, 44100),
              -2);
}

TEST(ResponseSetFiles, NeedsADataSetAndAListener) {
    qktest::ScopedCommonRoot root("offline_sets");
    qktest::ScopedSettingsDir settings("offline_sets");
    CQKSDK sdk;
    sdk.qk_HRTF_Set_Full("/no/such/set.qkhrtf");
    EXPECT_EQ(sdk.qk_SFM_PreComputeWav(), -1);
    const std::string set = qktest::TempPath("offline.qkhrtf");
    const std::vector<uint8_t> bytes = qktest::StoreToBytes(*qktest::MakeSet(3, 32, "BOTH", 44100));
    std::FILE *file = std::fopen(set.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    sdk.qk_HRTF_Set_Full(set.c_str());
    EXPECT_EQ(sdk.qk_SFM_PreComputeWav(), -2);
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    EXPECT_EQ(sdk.qk_SFM_PreComputeWav(), 0);
    std::remove(set.c_str());
}
