// MP3 and AC-3 files added by name play through the whole engine.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "quendarik/CQKSDK.h"
#include "support/CodecFiles.h"
#include "support/WaveWriter.h"

TEST(CodecFilePlay, FilesAddedByNameAreHeardThroughTheEngine) {
    const std::string set = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
    if (!std::ifstream(set).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    for (const char *name : {"src44.mp3", "src44.ac3", "six48.ac3"}) {
        const std::string path = qktest::ScratchPath("codec_play.wav");
        {
            CQKSDK sdk;
            sdk.qk_HRTF_Set_Full(set.c_str());
            sdk.qk_Asnk_Set(-2);
            sdk.qk_Siml_Set_PO(1);
            sdk.qkSimSetBlockLength(2048);
            int sound = 0, listener = 0, object = 0;
            ASSERT_EQ(sdk.qk_Ssrc_Add_File(sound, qktest::CodecFile(name).c_str()), 0) << name;
            sdk.qk_Vrcv_Add(listener);
            sdk.qk_Vsrc_Add(object, sound, 0, 0.0f, 2.0f, 0.0f, name);
            sdk.qk_Save_Wave_Start(path);
            sdk.qkPlay();
            int blocks = 0;
            const auto start = std::chrono::steady_clock::now();
            while (blocks < 12 &&
                   std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                sdk.qk_Siml_Get_Blocks(blocks);
            }
            sdk.qkStop();
            sdk.qk_Save_Wave_Stop();
        }
        const auto out = qktest::WaveChannels(path);
        std::remove(path.c_str());
        ASSERT_EQ(out.size(), 2u) << name;
        double sum = 0.0;
        for (float v : out[0]) {
            sum += static_cast<double>(v) * v;
        }
        EXPECT_GT(std::sqrt(sum / static_cast<double>(out[0].size() + 1)), 100.0) << name;
    }
}
