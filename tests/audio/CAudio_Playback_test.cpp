#include "audio/CAudio_Playback.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/ReportRecorder.h"

namespace {
using Clock = std::chrono::steady_clock;

// Plays through the clocked device for the life of the fixture.
class Playback : public testing::Test {
  protected:
    void SetUp() override { setenv("QK_ALSA_DEVICE", "virtual", 1); }
    void TearDown() override { unsetenv("QK_ALSA_DEVICE"); }
};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}
}  // namespace

TEST_F(Playback, TheFirstBlockOpensTheDeviceAndALengthChangeDoesNotReopen) {
    CAudio_Playback playback;
    EXPECT_FALSE(playback.IsOpen());
    EXPECT_EQ(playback._quit(), -1);  // nothing open yet
    std::vector<float> block(2 * 512, 1000.0f);
    ASSERT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 512, 0), 0);
    EXPECT_TRUE(playback.IsOpen());
    EXPECT_EQ(playback.GetCurrent(), 0);
    EXPECT_EQ(playback.GetFormat().nBlockAlign, 4);
    EXPECT_EQ(playback.GetFormat().nAvgBytesPerSec, 4u * 44100u);

    ASSERT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 256, 0), 0);
    EXPECT_EQ(playback.GetOpenCount(), 1);
    EXPECT_EQ(playback.GetCurrent(), 1);

    ASSERT_EQ(playback._process(-1, 1, 16, 22050, block.data(), 256, 0), 0);  // new format
    EXPECT_EQ(playback.GetOpenCount(), 2);
    EXPECT_EQ(playback.GetCurrent(), 0);
    EXPECT_EQ(playback._quit(), 0);
    EXPECT_FALSE(playback.IsOpen());
}

TEST_F(Playback, TheRingPacesBlocksToRealTime) {
    CAudio_Playback playback;
    const int frames = 1024;
    std::vector<float> block(2 * frames, 0.0f);
    const int blocks = 3 * 44100 / frames;  // three seconds
    const auto start = Clock::now();
    for (int i = 0; i < blocks; ++i) {
        ASSERT_EQ(playback._process(-1, 2, 16, 44100, block.data(), frames, 0), 0);
    }
    // All but the six buffers in flight have sounded.
    EXPECT_GE(secondsSince(start), (blocks - 6) * frames / 44100.0 - 0.02);
    EXPECT_LT(secondsSince(start), 4.0);
}

TEST_F(Playback, AStuckDeviceDropsTheBlockAfterFiveSecondsAndTheNextTriesTheNextBuffer) {
    CAudio_Playback playback;
    // Six buffers of 32 s each at 1000 Hz: none comes back during the test.
    std::vector<uint8_t> raw(2 * 32000, 0);
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(playback._process(-1, 1, 16, 1000, raw.data(), 32000, 1), 0);
    }
    const auto start = Clock::now();
    EXPECT_EQ(playback._process(-1, 1, 16, 1000, raw.data(), 32000, 1), -1);
    EXPECT_GE(secondsSince(start), 4.9);
    EXPECT_EQ(playback.GetCurrent(), 0);
    playback._quit();  // a reset hands every buffer back at once
    EXPECT_EQ(playback._process(-1, 1, 16, 1000, raw.data(), 100, 1), 0);
}

TEST_F(Playback, BlocksItCannotPlayAreRefused) {
    CAudio_Playback playback;
    std::vector<float> block(2 * 40000, 0.0f);
    EXPECT_EQ(playback._process(-1, 2, 16, 44100, nullptr, 512, 0), -1);
    EXPECT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 40000, 0), -1);
    EXPECT_EQ(playback._process(-1, 2, 12, 44100, block.data(), 512, 0), -1);
    EXPECT_EQ(playback._process(-1, 0, 16, 44100, block.data(), 512, 0), -1);
    EXPECT_FALSE(playback.IsOpen());
    // A device number with no device behind it: nothing opens, every block fails.
    EXPECT_EQ(playback._process(100000, 2, 16, 44100, block.data(), 512, 0), -1);
}

// Without a device each block is dropped at once; the open is tried again every two seconds,
// not at every block, and the user hears of the failure once, of the recovery once, and never
// from ALSA on standard error.
TEST_F(Playback, AMissingDeviceIsReportedOnceAndTriedAgainEveryTwoSeconds) {
    setenv("QK_ALSA_DEVICE", "no-such-device", 1);
    qktest::ReportRecorder reports(qk::kAnswerOk);
    CAudio_Playback playback;
    std::vector<float> block(2 * 256, 0.0f);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 256, 0), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(reports.entries.size(), 1u);
    const std::string &text = reports.entries[0].text;
    EXPECT_EQ(text.rfind("the audio device no-such-device could not be opened: ", 0), 0u) << text;

    setenv("QK_ALSA_DEVICE", "virtual", 1);                                    // plugged in
    EXPECT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 256, 0), -1);  // not yet tried
    std::this_thread::sleep_for(std::chrono::milliseconds(CAudio_Playback::kRetryMs + 100));
    EXPECT_EQ(playback._process(-1, 2, 16, 44100, block.data(), 256, 0), 0);
    EXPECT_EQ(playback.GetOpenCount(), 1);
    ASSERT_EQ(reports.entries.size(), 2u);
    EXPECT_EQ(reports.entries[1].text, "the audio device virtual is open");
}
