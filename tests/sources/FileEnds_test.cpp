// How the end of a file source is heard: as the sources always have (the default), or exactly
// under the engine's FileEnd switch; and a wave file cut short, which plays what it holds,
// wrapping to its start like any wave file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "sources/CSOURCE_AC3.h"
#include "sources/CSOURCE_WAVE.h"
#include "support/CodecFiles.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/ScratchFiles.h"
#include "support/SdkAccess.h"

namespace {
constexpr int kBlock = 1024;

// The largest magnitude of the first channel of the block the source holds.
float peakOfBlock(const CSOURCE &source, int frames) {
    float peak = 0.0f;
    for (int i = 0; i < frames; ++i) {
        peak = std::max(peak, std::fabs(source.m_pfData[i]));
    }
    return peak;
}

// Plays the one-second AC-3 file for two seconds; the peak of each block's first channel.
std::vector<float> playAc3(int iExactEnd) {
    CSOURCE_AC3 source;
    source.m_iExactEnd = iExactEnd;
    source.SetFile(qktest::CodecFile("src44.ac3"));
    std::vector<float> peaks;
    for (int b = 0; b < 2 * 44100 / kBlock; ++b) {
        EXPECT_EQ(source._process_1P(nullptr, kBlock, 16, 2, 44100), kBlock);
        peaks.push_back(peakOfBlock(source, kBlock));
    }
    return peaks;
}

// A mono 16-bit file whose header gives 44100 frames but whose data stops after `held`
// frames of the ramp 1, 2, 3, ...
qktest::Bytes cutWave(int held) {
    qktest::Bytes samples;
    for (int i = 1; i <= held; ++i) {
        samples.push_back(static_cast<uint8_t>(i & 0xFF));
        samples.push_back(static_cast<uint8_t>((i >> 8) & 0xFF));
    }
    qktest::Bytes chunks;
    qktest::AppendChunk(chunks, "fmt ", qktest::PcmFormat(1, 44100, 16));
    qktest::AppendChunk(chunks, "data", samples, 2 * 44100);
    return qktest::RiffWave(chunks, 4 + chunks.size());
}
}  // namespace

TEST(FileEnds, AnEndedAc3StreamKeepsOldSamplesByDefaultAndIsSilentWhenEndsAreExact) {
    qktest::ScopedSettingsDir settings("file_ends_ac3");
    const std::vector<float> kept = playAc3(0);
    const std::vector<float> exact = playAc3(1);
    // The file holds a second: the first blocks sound in both modes, alike.
    for (int b = 0; b < 40; ++b) {
        EXPECT_GT(kept[static_cast<size_t>(b)], 100.0f) << "block " << b;
        EXPECT_EQ(kept[static_cast<size_t>(b)], exact[static_cast<size_t>(b)]) << "block " << b;
    }
    // Half a second after the end: the old samples go on by default, silence when exact.
    EXPECT_GT(kept.back(), 1000.0f);
    EXPECT_EQ(exact.back(), 0.0f);
}

TEST(FileEnds, TheEngineSwitchReachesFileSourcesNowAndLater) {
    CQKSDK sdk;
    int mode = -1;
    EXPECT_EQ(sdk.qk_Siml_Get_FileEnd(mode), 0);
    EXPECT_EQ(mode, 0);
    int before = 0;
    ASSERT_EQ(sdk.qk_Ssrc_Add_File(before, qktest::CodecFile("src44.ac3").c_str()), 0);
    EXPECT_EQ(sdk.qk_Siml_Set_FileEnd(1), 0);
    EXPECT_EQ(sdk.qk_Siml_Set_FileEnd(7), 0);  // ignored
    sdk.qk_Siml_Get_FileEnd(mode);
    EXPECT_EQ(mode, 1);
    int after = 0;
    ASSERT_EQ(sdk.qk_Ssrc_Add_File(after, qktest::CodecFile("src44.wav").c_str()), 0);
    CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
    for (int id : {before, after}) {
        auto *file = dynamic_cast<CSOURCE_FILE *>(engine.GetSourceFromID(id));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->m_iExactEnd.load(), 1) << "source " << id;
    }
}

TEST(FileEnds, AWaveFileCutShortPlaysWhatItHoldsWithOneWarning) {
    qktest::ReportRecorder reports;
    qktest::ScratchFiles files;
    const int held = 2500;  // 57 ms of the 1 s the header gives
    const std::string path = files.Write("cut.wav", cutWave(held));
    for (int exact : {0, 1}) {
        CSOURCE_WAVE source;
        source.m_iExactEnd = exact;
        source.SetFile(path);
        std::vector<float> played;
        for (int b = 0; b < 8; ++b) {
            ASSERT_EQ(source._process_1P(nullptr, kBlock, 16, 2, 44100), kBlock);
            played.insert(played.end(), source.m_pfData.get(), source.m_pfData.get() + kBlock);
        }
        // The first blocks are the ramp as far as the file holds it, in both modes.
        for (int i = 0; i < 2 * kBlock; ++i) {
            ASSERT_EQ(played[static_cast<size_t>(i)], static_cast<float>(i + 1)) << i;
        }
        if (exact == 1) {
            // Exact ends: every frame of the file, in order, round and round.
            for (size_t i = 0; i < played.size(); ++i) {
                ASSERT_EQ(played[i], static_cast<float>(i % held + 1)) << i;
            }
        } else {
            // As always: the block that wraps starts with the file's start, its last 452
            // frames unheard, and old samples stand behind (the click at each wrap).
            EXPECT_EQ(played[2 * kBlock], 1.0f);
            EXPECT_EQ(played[3 * kBlock - 1], played[2 * kBlock - 1]);
        }
    }
    // The header's size against what is there, told once for the file.
    int warnings = 0;
    for (const auto &entry : reports.entries) {
        warnings += entry.text.find("cut short") != std::string::npos ? 1 : 0;
        EXPECT_NE(entry.text.find("cut.wav"), std::string::npos) << entry.text;
    }
    EXPECT_EQ(warnings, 2);  // one for each source that opened it
}
