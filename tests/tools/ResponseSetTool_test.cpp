// quendarik precompute and quendarik render --project, run as a user runs them: a response set
// over a grid, and a project that plays a wave file through it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "field/CSFM_PCIRS.h"
#include "quendarik/CQKSDK.h"
#include "support/CodecFiles.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"
#include "support/WaveWriter.h"

#ifdef QK_TEST_CLI
namespace {
namespace fs = std::filesystem;
const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

int run(const std::string &arguments) {
    return std::system((std::string(QK_TEST_CLI) + " " + arguments + " > /dev/null 2>&1").c_str());
}
}  // namespace

TEST(ResponseSetTool, GridOfResponsesPlayedBackByAProject) {
    if (!fs::exists(kDefaultSet)) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    qktest::ScopedCommonRoot root("response_set_tool");
    qktest::ScopedSettingsDir settings("response_set_tool");
    const std::string folder = qktest::ScratchPath("tool_set");
    fs::remove_all(folder);
    ASSERT_EQ(run("precompute --room 5 5 3 --listener-grid -0.5:0.5:0.5 0:0:1 1.2 --source 1 2 "
                  "1.2 --source -1 1 1.5 --out " +
                  folder + " --threads 2 --hrtf " + kDefaultSet),
              0);
    CSFM_PCIRS set;
    set.init(folder);
    ASSERT_EQ(set.m_Positions.size(), 6u);
    EXPECT_EQ(set.GetNumberOf3DSources(), 2);
    for (const CPCIR &record : set.m_Positions) {
        EXPECT_GT(record.m_iSamples, 100);
        EXPECT_FLOAT_EQ(record.m_ListenerPos.z, 1.2f);
    }
    for (const auto &entry : fs::directory_iterator(folder)) {
        EXPECT_TRUE(entry.path().extension() == ".wav" ||
                    entry.path().filename() == "shard-0-of-1.manifest.jsonl")
            << entry.path() << ": no temporary file is left";
    }

    const std::string project = qktest::ScratchPath("tool.qkproject");
    const std::string out = qktest::ScratchPath("tool_project.wav");
    {
        CQKSDK sdk;
        int sound = 0, source = 0;
        sdk.qk_Ssrc_Add_File(sound, qktest::CodecFile("src44.wav").c_str());
        sdk.qk_Vsrc_Add(source, sound, 0, 1.0f, 2.0f, 1.2f, "one");
        sdk.qk_Siml_Set_PO(1);
        sdk.qk_SFM_Set(4);
        sdk.qk_SFM_Set_DirPreComputedWav(folder.c_str());
        ASSERT_EQ(sdk.qk_File_Save(project.c_str(), nullptr), 0);
    }
    ASSERT_EQ(run("render --project " + project + " --out " + out +
                  " --seconds 0.5 --block 1024 --listener 0 0 1.2 0 1 1.2 --hrtf " + kDefaultSet),
              0);
    const auto channels = qktest::WaveChannels(out);
    ASSERT_EQ(channels.size(), 2u);
    EXPECT_EQ(channels[0].size(), 21u * 1024u);  // whole blocks of the half second
    float peak = 0.0f;
    for (float v : channels[0]) {
        peak = std::max(peak, std::fabs(v));
    }
    EXPECT_GT(peak, 100.0f);
    fs::remove_all(folder);
    std::remove(project.c_str());
    std::remove(out.c_str());
}
#endif
