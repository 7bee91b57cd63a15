#include "sources/CSOURCE_AC3.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <vector>

#include "support/CodecFiles.h"
#include "support/ReportRecorder.h"
#include "support/ScopedSettingsDir.h"
#include "support/ScratchFiles.h"
#include "support/SignalReference.h"

namespace {
// Plays `frames` frames in blocks of `block` and gives each channel as one run, read at the
// source's own channel stride of 256 x frames per block.
std::vector<std::vector<float>> play(CSOURCE_AC3 &source, int frames, int block) {
    std::vector<std::vector<float>> out(6);
    for (int done = 0; done < frames; done += block) {
        EXPECT_EQ(source._process_1P(nullptr, block, 16, 2, 44100), block);
        const int stride = 256 * source.m_iFramesPerBlock;
        for (int k = 0; k < source.m_iSource_Channels; ++k) {
            const float *plane = source.m_pfData + k * stride;
            out[static_cast<size_t>(k)].insert(out[static_cast<size_t>(k)].end(), plane,
                                               plane + block);
        }
    }
    return out;
}

class Ac3Source : public testing::Test {
  protected:
    void Settings(const std::string &text) { std::ofstream(settings.File("ac3.ini")) << text; }
    qktest::ReportRecorder reports{qk::kAnswerOk};
    qktest::ScratchFiles files;
    qktest::ScopedSettingsDir settings{"ac3"};
};
}  // namespace
TEST_F(Ac3Source, BlocksTakeWholeFramesAndWhatIsLeftOpensTheNextBlock) {
    struct Step {
        int length;
        int framesPerBlock;
        int spillAfter;
    };
    const Step steps[] = {{1024, 4, 0}, {1000, 4, 24}, {1000, 4, 48},
                          {256, 1, 48}, {30, 0, 18},   {713, 3, 73}};
    CSOURCE_AC3 source;
    source.SetFile(qktest::CodecFile("src44.ac3"));
    for (const Step &s : steps) {
        EXPECT_EQ(source._process_1P(nullptr, s.length, 16, 2, 44100), s.length);
        EXPECT_EQ(source.m_iFramesPerBlock, s.framesPerBlock) << s.length;
        EXPECT_EQ(source.m_iSpillCount, s.spillAfter) << s.length;
    }
    // The first channel joins the same way whatever the block length. (The second starts at
    // 256 x frames per block, so with a block of 1000 and 240 samples waiting it begins at
    // 768, inside the first channel's block, and its start is overwritten: kept as it was.)
    CSOURCE_AC3 whole, uneven;
    whole.SetFile(qktest::CodecFile("src44.ac3"));
    uneven.SetFile(qktest::CodecFile("src44.ac3"));
    const auto a = play(whole, 1024 * 20, 1024);
    const auto b = play(uneven, 1000 * 20, 1000);
    for (size_t i = 0; i < b[0].size(); ++i) {
        ASSERT_EQ(a[0][i], b[0][i]) << i;
    }
}

TEST_F(Ac3Source, DecodesLikeTheWaveItWasEncodedFrom) {
    const auto reference = qktest::WaveChannels(qktest::CodecFile("src44.wav"));
    CSOURCE_AC3 source;
    source.SetFile(qktest::CodecFile("src44.ac3"));
    const auto decoded = play(source, 1024 * 40, 1024);
    EXPECT_EQ(source.m_iSource_Channels, 2);
    EXPECT_EQ(source.m_iSource_SampleRate, 44100);
    EXPECT_EQ(source.m_iSource_Bits, 16);
    for (size_t k = 0; k < 2; ++k) {
        int lag = -1;
        EXPECT_GE(qktest::BestCorrelation(decoded[k], reference[k], 30000, 2400, &lag), 0.99)
            << "channel " << k;
    }
    char title[CSOURCE_AC3::kInfoTextLength];
    int ms = 0;
    source.GetFileInfo(nullptr, title, &ms);
    EXPECT_STREQ(title, "src44.ac3");
    EXPECT_NEAR(ms, 1000, 80);
    // At the end the stream stops and the blocks keep their old samples.
    play(source, 1024 * 10, 1024);
    const std::vector<float> before(source.m_pfData.get(), source.m_pfData.get() + 2048);
    EXPECT_EQ(source._process_1P(nullptr, 1024, 16, 2, 44100), 1024);
    EXPECT_EQ(std::vector<float>(source.m_pfData.get(), source.m_pfData.get() + 2048), before);
}

TEST_F(Ac3Source, TheOutputLayoutAndFormatComeFromTheSettingsFile) {
    struct Case {
        const char *ini;
        int channels;
        int bits;
        std::vector<double> tones;  // Hz of each output channel, in the layout's order
        double lowPeak, highPeak;   // bounds of the largest sample
    };
    // six48.ac3 has 3/2+LFE with L 300, R 500, C 700, LFE 60, SL 900, SR 1100 Hz at -12 dB.
    const Case cases[] = {
        {"", 2, 16, {}, 1000.0, 32767.0},  // no file: 2/0, a down-mix
        {"[preset/_default]\nmode = 13\n",
         6,
         16,
         {300, 700, 500, 900, 1100, 60},
         7000.0,
         9400.0},  // -12 dB of 32767 in each
        {"[preset/_default]\nmode = 2 ; 3/0\nformat = 2\n",
         3,
         24,
         {300, 700, 500},
         1.5e6,
         8388607.0},
        {"[preset/_default]\nformat = 4\nmode = 99\n", 2, 0, {}, 0.1, 1.0},
        {"[preset/other]\nmode = 0\n[preset/_default]\nmode = 0\nmaster = 0.5\n",
         1,
         16,
         {},
         1000.0,
         16384.0},
    };
    for (const Case &c : cases) {
        Settings(c.ini);
        CSOURCE_AC3 source;
        source.SetFile(qktest::CodecFile("six48.ac3"));
        const auto out = play(source, 256 * 40, 256);
        EXPECT_EQ(source.m_iSource_Channels, c.channels) << c.ini;
        EXPECT_EQ(source.m_iSource_Bits, c.bits) << c.ini;
        EXPECT_EQ(source.m_iSource_SampleRate, 48000) << c.ini;
        for (size_t k = 0; k < c.tones.size(); ++k) {
            // Each channel's own tone stands far above the others.
            const double own = qktest::TonePower(out[k], c.tones[k], 48000.0);
            for (double other : c.tones) {
                if (other != c.tones[k]) {
                    EXPECT_GT(own, 100.0 * qktest::TonePower(out[k], other, 48000.0))
                        << c.ini << " channel " << k << " against " << other;
                }
            }
        }
        float peak = 0.0f;
        for (int k = 0; k < c.channels; ++k) {
            for (float v : out[static_cast<size_t>(k)]) {
                peak = std::max(peak, std::fabs(v));
            }
        }
        EXPECT_GE(peak, c.lowPeak) << c.ini;
        EXPECT_LE(peak, c.highPeak) << c.ini;
    }
}

TEST_F(Ac3Source, HostileFilesGiveSilenceOrAFailureButNeverCrash) {
    const qktest::Bytes ac3 = qktest::ReadFileBytes(qktest::CodecFile("src44.ac3"));
    qktest::Bytes corrupt = ac3;
    for (size_t at = 3000; at < 9000; at += 97) {
        corrupt[at] ^= 0x5A;  // inside frames 1 to 4: their CRCs no longer match
    }
    qktest::Bytes noise(30000);
    for (size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<uint8_t>((i * 2654435761u) >> 11);
    }
    struct Case {
        const char *name;
        qktest::Bytes bytes;
        int init;
    };
    const Case cases[] = {
        {"empty.ac3", {}, -1},
        {"truncated.ac3", qktest::Bytes(ac3.begin(), ac3.begin() + 2000), 0},
        {"wave.ac3", qktest::ReadFileBytes(qktest::CodecFile("src44.wav")), -1},
        {"corrupt.ac3", corrupt, 0},
        {"noise.ac3", noise, -1},
    };
    for (const Case &c : cases) {
        CSOURCE_AC3 source;
        source.m_strFile = files.Write(c.name, c.bytes);
        reports.entries.clear();
        EXPECT_EQ(source._init(1024, 44100), c.init) << c.name;
        EXPECT_EQ(reports.entries.size(), c.init == 0 ? 0u : 1u) << c.name;
        play(source, 1024 * 50, 1024);  // past the end of every one of them
        EXPECT_EQ(source.m_iSource_Channels, 2) << c.name;
    }
    // The frames with bad CRCs are silence; the rest decodes as before.
    CSOURCE_AC3 good, bad;
    good.m_strFile = qktest::CodecFile("src44.ac3");
    bad.m_strFile = files.Write("corrupt2.ac3", corrupt);
    const auto a = play(good, 1536 * 12, 1536);
    const auto b = play(bad, 1536 * 12, 1536);
    const auto frame = [](const std::vector<float> &x, int f) {
        return std::vector<float>(x.begin() + 1536 * f, x.begin() + 1536 * (f + 1));
    };
    const std::vector<float> silence(1536, 0.0f);
    EXPECT_EQ(frame(b[0], 3), silence);
    EXPECT_EQ(frame(b[0], 0), frame(a[0], 0));
}
