#include "sources/CSOURCE_MP3.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "sources/Mp3Decoder.h"
#include "support/CodecFiles.h"
#include "support/ReportRecorder.h"
#include "support/ScratchFiles.h"

namespace {
constexpr int kRate = 44100;

// Plays `frames` frames in blocks of `block` and gives each channel as one run.
std::vector<std::vector<float>> play(CSOURCE_MP3 &source, int frames, int block, int rate = kRate) {
    std::vector<std::vector<float>> out(2);
    for (int done = 0; done < frames; done += block) {
        EXPECT_EQ(source._process_1P(nullptr, block, 16, 2, rate), block);
        for (int k = 0; k < source.m_iSource_Channels; ++k) {
            const float *plane = source.m_pfData + k * block;
            out[static_cast<size_t>(k)].insert(out[static_cast<size_t>(k)].end(), plane,
                                               plane + block);
        }
    }
    return out;
}

class Mp3Source : public testing::Test {
  protected:
    qktest::ReportRecorder reports{qk::kAnswerOk};
    qktest::ScratchFiles files;
};
}  // namespace
TEST_F(Mp3Source, DecodesLikeTheWaveItWasEncodedFromInTheIntegerScale) {
    const auto reference = qktest::WaveChannels(qktest::CodecFile("src44.wav"));
    ASSERT_EQ(reference.size(), 2u);
    CSOURCE_MP3 source;
    source.SetFile(qktest::CodecFile("src44.mp3"));
    const auto decoded = play(source, 40000, 1000);
    EXPECT_EQ(source.m_iSource_Channels, 2);
    EXPECT_EQ(source.m_iSource_SampleRate, kRate);
    EXPECT_EQ(source.m_iSource_Bits, 16);
    for (size_t k = 0; k < 2; ++k) {
        int lag = -1;
        EXPECT_GE(qktest::BestCorrelation(decoded[k], reference[k], 30000, 2400, &lag), 0.99)
            << "channel " << k;
        EXPECT_LE(lag, 1200) << "channel " << k;  // at most the decoder's delay
    }
    // The sweep was made at -6 dB: its peak is near half of full scale, not near 1.
    const float peak = *std::max_element(decoded[0].begin(), decoded[0].end());
    EXPECT_GT(peak, 12000.0f);
    EXPECT_LT(peak, 22000.0f);
}

TEST_F(Mp3Source, TheStreamDoesNotDependOnTheBlockLength) {
    struct Case {
        const char *file;
        int rate;  // the engine's
    };
    // Same rate, and converted from 48000 Hz with the converter's state kept across blocks.
    const Case cases[] = {{"src44.mp3", kRate}, {"tone48.mp3", kRate}, {"src44.mp3", 48000}};
    for (const Case &c : cases) {
        CSOURCE_MP3 one, other;
        one.SetFile(qktest::CodecFile(c.file));
        other.SetFile(qktest::CodecFile(c.file));
        const auto a = play(one, 8192 * 2, 8192, c.rate);
        const auto b = play(other, 713 * 23, 713, c.rate);
        for (size_t i = 0; i < std::min(a[0].size(), b[0].size()); ++i) {
            ASSERT_NEAR(a[0][i], b[0][i], 1e-3f) << c.file << " at " << i;
        }
    }
}

TEST_F(Mp3Source, AFileAtAnotherRatePlaysAtTheEngineRateWithItsDuration) {
    CSOURCE_MP3 source;
    const std::string path = qktest::CodecFile("tone48.mp3");
    source.SetFile(path);
    const int frames = 441 * 45;  // less than the file's 0.5 s: no wrap inside
    const auto decoded = play(source, frames, 441);
    EXPECT_EQ(source.m_iSource_SampleRate, 48000);
    EXPECT_EQ(source.m_iSource_Channels, 1);
    // A 1 kHz tone stays 1 kHz: 2 crossings a period over the run (1088 Hz if not converted).
    const auto &x = decoded[0];
    int crossings = 0;
    for (size_t i = 5000; i + 1 < x.size(); ++i) {
        crossings += (x[i] < 0.0f) != (x[i + 1] < 0.0f) ? 1 : 0;
    }
    const double hz = crossings / 2.0 / ((x.size() - 5001) / static_cast<double>(kRate));
    EXPECT_NEAR(hz, 1000.0, 5.0);
    // No seam where blocks join: no step larger than the tone's own steepest one.
    const float peak = *std::max_element(x.begin() + 5000, x.end());
    const float slope = peak * 2.0f * 3.14159265f * 1000.0f / kRate;
    for (size_t i = 5000; i + 1 < x.size(); ++i) {
        ASSERT_LT(std::fabs(x[i + 1] - x[i]), 1.1f * slope) << i;
    }
    char title[CSOURCE_MP3::kInfoTextLength] = {};
    int ms = 0;
    source.GetFileInfo(nullptr, title, &ms);
    EXPECT_NEAR(ms, 500, 30);
    EXPECT_STREQ(title, "tone48.mp3");  // no tag: the file name
}

TEST_F(Mp3Source, ItLoopsBehindTheOffsetAndSteps) {
    CMp3Decoder decoder;
    ASSERT_TRUE(decoder.OpenFile(qktest::CodecFile("src44.mp3")));
    const int length = static_cast<int>(decoder.LengthFrames(true));
    ASSERT_GT(length, 40000);

    CSOURCE_MP3 plain;
    plain.SetFile(qktest::CodecFile("src44.mp3"));
    const auto stream = play(plain, length + 1000, 500);
    // Exactly one file later the stream starts again.
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(stream[1][static_cast<size_t>(length + i)], stream[1][static_cast<size_t>(i)]);
    }

    CSOURCE_MP3 offset;
    offset.SetFile(qktest::CodecFile("src44.mp3"));
    offset.SetVariable("Offset", "3000");
    const auto skipped = play(offset, length, 500);
    EXPECT_NEAR(skipped[0][100], stream[0][3100], 1.0f);
    // At the wrap it starts behind the offset again.
    EXPECT_NEAR(skipped[0][static_cast<size_t>(length - 3000 + 10)], stream[0][3010], 1.0f);

    CSOURCE_MP3 stepped;
    stepped.SetFile(qktest::CodecFile("src44.mp3"));
    play(stepped, 500, 500);
    EXPECT_EQ(stepped.StepFordward(2000), 1);
    EXPECT_EQ(stepped.StepBackwards(1000), 1);
    EXPECT_NEAR(play(stepped, 500, 500)[0][7], stream[0][1507], 1.0f);

    plain.m_iEnable = 0;
    EXPECT_EQ(plain._process_1P(nullptr, 500, 16, 2, kRate), 0);
}

TEST_F(Mp3Source, HostileFilesAreRefusedOrPlayedButNeverCrash) {
    const qktest::Bytes mp3 = qktest::ReadFileBytes(qktest::CodecFile("src44.mp3"));
    const qktest::Bytes wave = qktest::ReadFileBytes(qktest::CodecFile("src44.wav"));
    // An ID3v2 header whose size runs far past the end of the file, then junk.
    qktest::Bytes badTag = {'I', 'D', '3', 3, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F};
    badTag.insert(badTag.end(), 500, 0xAB);
    // A sane tag of garbage frames in front of the real stream.
    qktest::Bytes junkTag = {'I', 'D', '3', 4, 0, 0, 0, 0, 1, 0};
    for (int i = 0; i < 128; ++i) {
        junkTag.push_back(static_cast<uint8_t>(i * 37));
    }
    junkTag.insert(junkTag.end(), mp3.begin(), mp3.end());
    qktest::Bytes noise(20000);
    for (size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<uint8_t>((i * 2654435761u) >> 13);
    }
    struct Case {
        const char *name;
        qktest::Bytes bytes;
        bool decodes;
    };
    const Case cases[] = {
        {"empty.mp3", {}, false},
        {"truncated.mp3", qktest::Bytes(mp3.begin(), mp3.begin() + 3000), true},
        {"wave.mp3", wave, false},
        {"badtag.mp3", badTag, false},
        {"junktag.mp3", junkTag, true},
        {"noise.mp3", noise, false},
    };
    for (const Case &c : cases) {
        const std::string path = files.Write(c.name, c.bytes);
        CSOURCE_MP3 source;
        EXPECT_EQ(source.CheckFileName(path), c.decodes ? 0 : -1) << c.name;
        source.SetFile(path);
        reports.entries.clear();
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(source._process_1P(nullptr, 4096, 16, 2, kRate), c.decodes ? 4096 : -1)
                << c.name;
        }
        EXPECT_EQ(reports.entries.size(), c.decodes ? 0u : 1u) << c.name;
        char title[CSOURCE_MP3::kInfoTextLength];
        int ms = -1;
        source.GetFileInfo(nullptr, title, &ms);
        EXPECT_EQ(ms > 0, c.decodes) << c.name;
    }
    EXPECT_LT(qktest::OpenFileCount(), 64);  // nothing leaked on the way
}

TEST_F(Mp3Source, TheFacadeRefusesAFileThatIsThereButIsNotMpegAudio) {
    CQKSDK sdk;
    const std::string renamed =
        files.Write("renamed.mp3", qktest::ReadFileBytes(qktest::CodecFile("src44.wav")));
    int id = 0;
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, renamed.c_str()), -1);
    EXPECT_EQ(reports.entries.size(), 1u);
    // A missing file is accepted as before, and told of when play opens it.
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, qktest::ScratchPath("later.mp3").c_str()), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, qktest::CodecFile("src44.mp3").c_str()), 0);
    char path[1] = {'\0'};
    char title[CSOURCE_MP3::kInfoTextLength] = {};
    int ms = 0;
    EXPECT_EQ(sdk.qk_Ssrc_File_GetInfo(id, path, title, &ms), 0);
    EXPECT_STREQ(title, "Sweep and bursts");
    EXPECT_NEAR(ms, 1000, 30);
}
