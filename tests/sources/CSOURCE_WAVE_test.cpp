#include "sources/CSOURCE_WAVE.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

#include "support/ReportRecorder.h"
#include "support/ScratchFiles.h"

namespace {
// A mono ramp 1, 2, 3, ... of `frames` 16-bit samples.
std::vector<int> ramp(int frames, int start = 1) {
    std::vector<int> values(static_cast<size_t>(frames));
    std::iota(values.begin(), values.end(), start);
    return values;
}

class WaveSource : public testing::Test {
  protected:
    std::vector<float> Block(const CSOURCE &s, int count) const {
        return std::vector<float>(s.m_pfData.get(), s.m_pfData.get() + count);
    }
    // Plays one block of four frames and gives its first channel.
    std::vector<float> Next(CSOURCE_WAVE &s) const {
        EXPECT_EQ(s._process_1P(nullptr, 4, 16, 2, 44100), 4);
        return Block(s, 4);
    }
    qktest::ScratchFiles files;
};
}  // namespace

TEST_F(WaveSource, StereoAndMonoBlocksComeOutPlanarInTheIntegerScale) {
    CSOURCE_WAVE stereo;
    stereo.SetFile(files.Wave("stereo.wav", {-32768, 10, 32767, 20, 5, 30, 6, 40}, 2, 44100));
    ASSERT_EQ(stereo._process_1P(nullptr, 4, 16, 2, 44100), 4);
    EXPECT_EQ(stereo.m_iSource_Channels, 2);
    EXPECT_EQ(Block(stereo, 8), (std::vector<float>{-32768, 32767, 5, 6, 10, 20, 30, 40}));

    CSOURCE_WAVE mono;
    mono.SetFile(files.Wave("mono8.wav", {0, 128, 255, 7}, 1, 44100, 8));
    EXPECT_EQ(Next(mono), (std::vector<float>{0, 128, 255, 7}));  // no offset of 128
    EXPECT_EQ(mono.m_iSource_Channels, 1);
}

TEST_F(WaveSource, WrapsToTheStartAndOnlyTheLastReadIsConverted) {
    CSOURCE_WAVE wave;
    wave.SetFile(files.Wave("six.wav", ramp(6), 1, 44100));
    EXPECT_EQ(Next(wave), (std::vector<float>{1, 2, 3, 4}));
    // Two frames remain, then the file starts again: the fresh frames 1, 2 land at the start
    // and the rest of the block keeps what it held.
    EXPECT_EQ(Next(wave), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_EQ(Next(wave), (std::vector<float>{3, 4, 5, 6}));
}

TEST_F(WaveSource, AFileEndingExactlyOnABlockStartsAgainInsteadOfReadingForever) {
    CSOURCE_WAVE wave;
    wave.SetFile(files.Wave("eight.wav", ramp(8), 1, 44100));
    for (int block = 0; block < 2; ++block) {
        ASSERT_EQ(wave._process_1P(nullptr, 4, 16, 2, 44100), 4);
    }
    EXPECT_EQ(Next(wave), (std::vector<float>{1, 2, 3, 4}));

    CSOURCE_WAVE empty;  // nothing to play at all: silence, and the call returns
    empty.SetFile(files.Wave("empty.wav", {}, 1, 44100));
    EXPECT_EQ(empty._process_1P(nullptr, 4, 16, 2, 44100), 4);
}

TEST_F(WaveSource, TheOffsetIsSkippedAtTheStartAndAtEachWrap) {
    CSOURCE_WAVE wave;
    wave.SetFile(files.Wave("offset.wav", ramp(10), 1, 44100));
    wave.SetVariable("Offset", "3");
    EXPECT_EQ(Next(wave), (std::vector<float>{4, 5, 6, 7}));
    // 8, 9, 10 remain; at the wrap the offset's frames are read to the start of the byte
    // block and are what this block converts; the file then goes on behind the offset.
    EXPECT_EQ(Next(wave), (std::vector<float>{1, 2, 3, 7}));
    EXPECT_EQ(Next(wave), (std::vector<float>{4, 5, 6, 7}));

    // An offset of three blocks: the wrap block holds as much of it as fits, and every pass
    // after the first goes on at the offset, never at the frames it skips.
    CSOURCE_WAVE longer;
    longer.SetFile(files.Wave("offset-long.wav", ramp(30), 1, 44100));
    longer.SetVariable("Offset", "12");
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_EQ(Next(longer), (std::vector<float>{13, 14, 15, 16}));
        for (int block = 0; block < 3; ++block) {
            Next(longer);
        }
        EXPECT_EQ(Next(longer), (std::vector<float>{1, 2, 3, 4}));  // 29, 30, then the wrap
    }
}

TEST_F(WaveSource, OtherRatesAreZeroStuffedOrPlayedAsRead) {
    CSOURCE_WAVE slow;  // 22050 Hz: half a block is read, and the factor 0 changes nothing
    slow.SetFile(files.Wave("slow.wav", ramp(64), 1, 22050));
    EXPECT_EQ(slow._process_1P(nullptr, 8, 16, 2, 44100), 8);
    EXPECT_EQ(Block(slow, 4), (std::vector<float>{1, 2, 3, 4}));

    CSOURCE_WAVE fast;  // 88200 Hz: twice the frames, each followed by a zero
    fast.SetFile(files.Wave("fast.wav", ramp(64), 1, 88200));
    EXPECT_EQ(fast._process_1P(nullptr, 8, 16, 2, 44100), 32);
    EXPECT_EQ(Block(fast, 6), (std::vector<float>{1, 0, 2, 0, 3, 0}));
    EXPECT_EQ(fast.m_pfData[31], 0.0f);
}

TEST_F(WaveSource, ADisabledSourceKeepsItsPlaceAndAnotherFileTakesOverAtTheNextBlock) {
    CSOURCE_WAVE wave;
    wave.SetFile(files.Wave("place.wav", ramp(100), 1, 44100));
    wave._process_1P(nullptr, 4, 16, 2, 44100);
    wave.m_iEnable = 0;
    EXPECT_EQ(wave._process_1P(nullptr, 4, 16, 2, 44100), 0);
    wave.m_iEnable = 1;
    wave.m_fGain_dB = 20.0f;  // in decibels
    EXPECT_EQ(Next(wave), (std::vector<float>{50, 60, 70, 80}));
    wave.m_fGain_dB = 0.0f;
    wave.SetFile(files.Wave("second.wav", ramp(100, 500), 1, 44100));
    EXPECT_EQ(Next(wave), (std::vector<float>{500, 501, 502, 503}));
    EXPECT_EQ(wave.CheckFileName(files.paths[1]), 0);
    EXPECT_EQ(wave.CheckFileName(qktest::ScratchPath("none.wav")), -1);
}

TEST_F(WaveSource, MissingForeignAndTruncatedFilesGiveMinusOneAndOneReport) {
    qktest::ReportRecorder reports(qk::kAnswerOk);
    CSOURCE_WAVE missing;
    missing.SetFile(qktest::ScratchPath("missing.wav"));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(missing._process_1P(nullptr, 4, 16, 2, 44100), -1);
    }
    EXPECT_EQ(reports.entries.size(), 1u);  // not once a block

    const std::string text = "ID3 this is not a wave file at all";
    CSOURCE_WAVE notWave;
    notWave.SetFile(files.Write("foreign.wav", qktest::Bytes(text.begin(), text.end())));
    EXPECT_EQ(notWave._process_1P(nullptr, 4, 16, 2, 44100), -1);
    EXPECT_EQ(reports.entries.size(), 2u);

    // A header that promises more data than the file holds plays what is there.
    const std::string cut = files.Wave("cut.wav", ramp(50), 1, 44100);
    qktest::Bytes bytes = qktest::ReadFileBytes(cut);
    bytes.resize(bytes.size() - 60);
    qktest::WriteFileBytes(cut, bytes);
    CSOURCE_WAVE truncated;
    truncated.SetFile(cut);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(truncated._process_1P(nullptr, 8, 16, 2, 44100), 8);
    }
}

namespace {
constexpr double kPi = 3.14159265358979323846;

// Frequency of a sine from its rising zero crossings, interpolated between samples.
double sineFrequency(const std::vector<float> &x, double rate) {
    double first = -1.0;
    double last = -1.0;
    int crossings = 0;
    for (size_t i = 1; i < x.size(); ++i) {
        if (x[i - 1] < 0.0f && x[i] >= 0.0f) {
            const double at = static_cast<double>(i - 1) + x[i - 1] / (x[i - 1] - x[i]);
            first = first < 0.0 ? at : first;
            last = at;
            ++crossings;
        }
    }
    return crossings > 1 ? (crossings - 1) * rate / (last - first) : 0.0;
}

// What is left after the best sine of frequency f is taken out, against that sine, in dB:
// distortion and noise together.
double thdPlusNoiseDb(const std::vector<float> &x, double f, double rate) {
    double ss = 0, sc = 0, cc = 0, xs = 0, xc = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double s = std::sin(2.0 * kPi * f * i / rate);
        const double c = std::cos(2.0 * kPi * f * i / rate);
        ss += s * s, sc += s * c, cc += c * c, xs += x[i] * s, xc += x[i] * c;
    }
    const double det = ss * cc - sc * sc;
    const double a = (xs * cc - xc * sc) / det;
    const double b = (xc * ss - xs * sc) / det;
    double signal = 0, rest = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        const double fit =
            a * std::sin(2.0 * kPi * f * i / rate) + b * std::cos(2.0 * kPi * f * i / rate);
        signal += fit * fit;
        rest += (x[i] - fit) * (x[i] - fit);
    }
    return 10.0 * std::log10(rest / signal);
}
}  // namespace

// A 48 kHz tone at the engine's 44.1 kHz: converted, it keeps its pitch and stays clean over
// many blocks and a wrap of the file; without conversion the source base's zero-stuffing
// plays the file's frames as read.
TEST_F(WaveSource, AFileAtAnotherRateIsConvertedWhenAskedAndOtherwiseStuffed) {
    std::vector<int> tone(3 * 48000);  // 1320 whole periods: the wrap is seamless too
    for (size_t i = 0; i < tone.size(); ++i) {
        tone[i] =
            static_cast<int>(std::lround(16000.0 * std::sin(2.0 * kPi * 440.0 * i / 48000.0)));
    }
    const std::string path = files.Wave("tone48.wav", tone, 1, 48000);

    CSOURCE_WAVE converted;
    converted.SetFile(path);
    converted.m_iResampleQuality = 1;
    constexpr int kBlock = 1024;
    std::vector<float> out;
    for (int block = 0; block < 5 * 44100 / kBlock; ++block) {
        ASSERT_EQ(converted._process_1P(nullptr, kBlock, 16, 2, 44100), kBlock);
        if (block >= 2) {  // past the converter's start
            out.insert(out.end(), converted.m_pfData.get(), converted.m_pfData.get() + kBlock);
        }
    }
    const double f = sineFrequency(out, 44100.0);
    EXPECT_NEAR(f, 440.0, 1.0);
    EXPECT_LT(thdPlusNoiseDb(out, f, 44100.0), -60.0);

    CSOURCE_WAVE stuffed;
    stuffed.SetFile(path);
    EXPECT_EQ(stuffed._process_1P(nullptr, kBlock, 16, 2, 44100), kBlock * 48000 / 44100);
    EXPECT_EQ(Block(stuffed, 4),
              (std::vector<float>{0, static_cast<float>(tone[1]), static_cast<float>(tone[2]),
                                  static_cast<float>(tone[3])}));
}
