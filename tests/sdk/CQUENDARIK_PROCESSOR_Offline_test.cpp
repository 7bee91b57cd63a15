#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "support/CodecFiles.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"
#include "support/SdkAccess.h"
#include "support/WaveWriter.h"

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
    const std::string path = qktest::ScratchPath("scaled.wav");
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
    const std::string set = qktest::ScratchPath("offline.qkhrtf");
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

namespace {
const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

class ResponseSets : public testing::Test {
  protected:
    void SetUp() override {
        if (!fs::exists(kDefaultSet)) {
            GTEST_SKIP() << "the build's default HRTF set is missing";
        }
        fs::remove_all(folder);
        fs::create_directories(folder);
        sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
        sdk.qk_Asnk_Set(-2);
        sdk.qk_Siml_Set_PO(1);
        sdk.qk_SFM_Set_DirPreComputedWav(folder.c_str());
        sdk.qk_Vrcv_Add(listener);
    }
    void TearDown() override { fs::remove_all(folder); }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    const std::string folder = qktest::ScratchPath("response_set");
    qktest::ScopedCommonRoot root{"response_sets"};
    qktest::ScopedSettingsDir settings{"response_sets"};
    CQKSDK sdk;
    int listener = 0;
};
}  // namespace

TEST_F(ResponseSets, OneFileForEachEnabledSourceNamedByTheGeometry) {
    sdk.qk_Wrld_None();
    int sound = 0, source = 0, off = 0;
    sdk.qk_Ssrc_Add_WMP(sound);
    sdk.qk_Vsrc_Add(source, sound, 0, 1.5f, 2.0f, 0.0f, "heard");
    sdk.qk_Vsrc_Add(off, sound, 0, -1.0f, 1.0f, 0.0f, "off");
    sdk.qk_Vsrc_Set_Enable(off, 0);
    ASSERT_EQ(sdk.qk_SFM_PreComputeWav(), 0);
    const std::string name = std::to_string(listener) + "_0_0_0_0_100_0_" + std::to_string(source) +
                             "_150_200_0_0_0_0.wav";
    EXPECT_EQ(Files(), std::vector<std::string>{name});
    const auto channels = qktest::WaveChannels(folder + "/" + name);
    EXPECT_EQ(channels.size(), 2u);
}

// What the image model gave, read back by model 4 for the same places: the same response
// within 16-bit quantisation (truncation: less than one step of 1 / 32768), times the set's
// 1 / d law for the source's distance.
TEST_F(ResponseSets, ModelFourPlaysBackWhatTheImageModelWrote) {
    sdk.qk_Wrld_Preset(2);
    sdk.qk_Siml_Set_SpecularOrder(2);
    sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.6f, -0.2f, 1.9f, -0.6f, 5.0f, 1.9f);
    int sound = 0, source = 0;
    sdk.qk_Ssrc_Add_WMP(sound);
    sdk.qk_Vsrc_Add(source, sound, 0, 1.2f, 0.3f, 1.3f, "noise");
    ASSERT_EQ(sdk.qk_SFM_PreComputeWav(), 0);
    float *left = nullptr, *right = nullptr;
    int length = 0;
    ASSERT_EQ(sdk.qk_Vsrc_Get_BIR(source, left, right, length), 0);
    ASSERT_GT(length, 100);
    const std::vector<float> imageLeft(left, left + length);
    const std::vector<float> imageRight(right, right + length);
    ASSERT_EQ(Files().size(), 1u);

    sdk.qk_SFM_Set(4);
    sdk.qk_SFM_Set_DirPreComputedWav(folder.c_str());
    std::vector<float> silence(1024, 0.0f);
    sdk.qk_Ssrc_Gen_Samples_1P(sound, silence.data(), 1024, 16, 1, 44100);
    ASSERT_EQ(sdk.qk_Siml_Process_WinAmp(1024, 16, 2, 44100), 0);
    ASSERT_EQ(sdk.qk_Vsrc_Get_BIR(source, left, right, length), 0);
    ASSERT_EQ(length, static_cast<int>(imageLeft.size()));
    const double d = std::sqrt(1.8 * 1.8 + 0.5 * 0.5 + 0.6 * 0.6);
    const float gain = static_cast<float>(1.0 / d);
    const float step = 1.0f / 32768.0f;
    float peak = 0.0f;
    for (int i = 0; i < length; ++i) {
        ASSERT_NEAR(left[i], imageLeft[i] * gain, step) << i;
        ASSERT_NEAR(right[i], imageRight[i] * gain, step) << i;
        peak = std::max(peak, std::fabs(imageLeft[i]));
    }
    EXPECT_GT(peak, 100 * step);  // a response, not silence
    EXPECT_LT(peak, 1.0f);        // within the 16-bit range, so nothing wrapped
}

// Moves a host made since the last block are taken before the responses: a source moved to a
// place gives the file of a source added there, under the name of the new place, and the
// listener's move is seen too.
TEST_F(ResponseSets, MovesNotYetRenderedAreTakenFirst) {
    sdk.qk_Wrld_Preset(2);
    sdk.qk_Siml_Set_SpecularOrder(1);
    int sound = 0, moved = 0, placed = 0;
    sdk.qk_Ssrc_Add_WMP(sound);
    sdk.qk_Vsrc_Add(moved, sound, 0, -1.0f, 1.0f, 0.5f, "moved");
    sdk.qk_Vsrc_Add(placed, sound, 0, 1.2f, 0.3f, 1.3f, "placed");
    sdk.qk_Vsrc_Set_Position(moved, 1.2f, 0.3f, 1.3f);
    sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.6f, -0.2f, 1.9f, -0.6f, 5.0f, 1.9f);
    ASSERT_EQ(sdk.qk_SFM_PreComputeWav(), 0);
    const std::string l = std::to_string(listener) + "_-60_-20_190_-60_500_190_";
    const std::string movedName = l + std::to_string(moved) + "_120_30_130_0_0_0.wav";
    const std::string placedName = l + std::to_string(placed) + "_120_30_130_0_0_0.wav";
    std::vector<std::string> names = Files();
    std::sort(names.begin(), names.end());
    std::vector<std::string> wanted{movedName, placedName};
    std::sort(wanted.begin(), wanted.end());
    ASSERT_EQ(names, wanted);
    const auto a = qktest::WaveChannels(folder + "/" + movedName);
    const auto b = qktest::WaveChannels(folder + "/" + placedName);
    ASSERT_EQ(a.size(), 2u);
    EXPECT_EQ(a, b);
}
