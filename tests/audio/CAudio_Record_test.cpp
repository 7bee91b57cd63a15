#include "audio/CAudio_Record.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/ReportRecorder.h"

namespace {
using Clock = std::chrono::steady_clock;

// A rate at which a whole buffer of 32768 frames lasts 0.1 s on the clocked input.
constexpr int kFastRate = 327680;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class Record : public testing::Test {
  protected:
    void SetUp() override { Use("virtual"); }
    void TearDown() override { unsetenv("QK_ALSA_CAPTURE_DEVICE"); }
    static void Use(const char *device) { setenv("QK_ALSA_CAPTURE_DEVICE", device, 1); }
    int Open(int channels, int bits, int rate, std::string *error = nullptr) {
        std::string text;
        const int result =
            record.InitializeSoundCapture(-1, 0, 0, 0, 1152, 4, channels, bits, rate, text);
        if (error != nullptr) {
            *error = text;
        }
        return result;
    }
    qktest::ReportRecorder reports{qk::kAnswerOk};
    CAudio_Record record;
};
}  // namespace

TEST_F(Record, TheFirstBlockStartsTheDeviceAndClearsOnlyItsLengthInBytes) {
    std::vector<float> block(2 * 64, 7.0f);
    record.GetNextSamplesSoundCapture(block.data(), 64, 0);  // before set-up: nothing
    EXPECT_EQ(block[0], 7.0f);

    ASSERT_EQ(Open(2, 16, kFastRate), 1);
    EXPECT_EQ(record.GetBufferFrames(), 32768);
    EXPECT_EQ(record.GetFormat().nBlockAlign, 4);
    record.GetNextSamplesSoundCapture(block.data(), 64, 0);
    EXPECT_EQ(block[15], 0.0f);  // 64 bytes are 16 floats
    EXPECT_EQ(block[16], 7.0f);
}

TEST_F(Record, TheFirstBuffersAreWholeAndLaterOnesAreTheBlockLength) {
    ASSERT_EQ(Open(2, 16, kFastRate), 1);
    const int n = 3277;  // 10 ms
    std::vector<float> block(2 * n, 0.0f);
    record.GetNextSamplesSoundCapture(block.data(), n, 0);
    auto start = Clock::now();
    record.GetNextSamplesSoundCapture(block.data(), n, 0);
    EXPECT_GE(secondsSince(start), 0.09);  // the whole first buffer, 32768 frames
    // The clocked tone: half of full scale in both planes, the second at element n.
    const float peak = *std::max_element(block.begin(), block.begin() + n);
    EXPECT_NEAR(peak, 16383.0f, 20.0f);
    EXPECT_EQ(block[100], block[n + 100]);
    for (int i = 0; i < 3; ++i) {
        record.GetNextSamplesSoundCapture(block.data(), n, 0);  // the other large ones
    }
    start = Clock::now();
    for (int i = 0; i < 20; ++i) {
        record.GetNextSamplesSoundCapture(block.data(), n, 0);
    }
    // Twenty blocks of 10 ms, with four in the ring already recorded.
    EXPECT_LT(secondsSince(start), 0.5);
    EXPECT_GE(secondsSince(start), 0.1);
}

TEST_F(Record, RawBlocksAreTheDeviceBytesInterleaved) {
    ASSERT_EQ(Open(2, 16, kFastRate), 1);
    std::vector<uint8_t> bytes(4 * 256, 0);
    record.GetNextSamplesSoundCapture(bytes.data(), 256, 1);
    record.GetNextSamplesSoundCapture(bytes.data(), 256, 1);
    int nonZero = 0;
    for (size_t frame = 0; frame < 256; ++frame) {
        // Left and right carry the same tone, frame by frame.
        EXPECT_EQ(std::memcmp(&bytes[4 * frame], &bytes[4 * frame + 2], 2), 0);
        nonZero += bytes[4 * frame] != 0 || bytes[4 * frame + 1] != 0;
    }
    EXPECT_GT(nonZero, 200);
}

TEST_F(Record, TheCallbackCountsOnlyFullBuffers) {
    ASSERT_EQ(Open(1, 16, 44100), 1);
    const uintptr_t self = reinterpret_cast<uintptr_t>(&record);
    EXPECT_EQ(record.GetDoneCount(), -1);
    for (unsigned message : {CAudio_Record::WIM_OPEN, CAudio_Record::WIM_CLOSE, 0x3BDu}) {
        CAudio_Record::waveInProc(nullptr, message, self, 0, 0);
    }
    EXPECT_EQ(record.GetDoneCount(), -1);
    CAudio_Record::waveInProc(nullptr, CAudio_Record::WIM_DATA, self, 0, 0);
    EXPECT_EQ(record.GetDoneCount(), 0);
}

TEST_F(Record, SetUpFailuresNameTheirStepAndLeaveCaptureInactive) {
    struct Case {
        const char *device;
        int number;
        int channels, bits;
        const char *error;
    };
    const Case cases[] = {
        {"virtual", -1, 2, 12, "waveInOpen"},               // no such word length
        {"virtual", -1, 0, 16, "waveInOpen"},               // no channels
        {"virtual", 100000, 2, 16, "waveInOpen"},           // no device with that number
        {"no_such_pcm", -1, 2, 16, "waveInPrepareHeader"},  // the default goes on, then fails
    };
    for (const Case &c : cases) {
        Use(c.device);
        std::string error;
        EXPECT_EQ(record.InitializeSoundCapture(c.number, 0, 0, 0, 0, 0, c.channels, c.bits, 44100,
                                                error),
                  0)
            << c.device << " " << c.bits;
        EXPECT_EQ(error, c.error) << c.device << " " << c.bits;
        EXPECT_FALSE(record.IsActive());
        std::vector<float> block(2 * 16, 7.0f);
        record.GetNextSamplesSoundCapture(block.data(), 16, 0);
        EXPECT_EQ(block[0], 7.0f);
    }
    // A block longer than a buffer is refused rather than overrun.
    Use("virtual");
    ASSERT_EQ(Open(1, 16, kFastRate), 1);
    std::vector<float> big(40000, 7.0f);
    record.GetNextSamplesSoundCapture(big.data(), 40000, 0);
    EXPECT_EQ(big[0], 7.0f);
}

TEST_F(Record, ADeviceThatGoesAwayGivesSilenceAndOneMessageAndKeepsRealTime) {
    Use("virtual:0.2");  // two whole buffers, then unplugged
    ASSERT_EQ(Open(1, 16, kFastRate), 1);
    const int n = 3277;
    std::vector<float> block(n, 0.0f);
    for (int i = 0; i < 3; ++i) {
        record.GetNextSamplesSoundCapture(block.data(), n, 0);
    }
    EXPECT_GT(*std::max_element(block.begin(), block.end()), 16000.0f);
    auto start = Clock::now();
    record.GetNextSamplesSoundCapture(block.data(), n, 0);
    EXPECT_GE(secondsSince(start), 2.0);  // two seconds late
    EXPECT_LT(secondsSince(start), 3.0);
    EXPECT_EQ(*std::max_element(block.begin(), block.end()), 0.0f);
    EXPECT_EQ(reports.entries.size(), 1u);
    EXPECT_NE(reports.entries.back().text.find("gone"), std::string::npos);
    start = Clock::now();
    for (int i = 0; i < 10; ++i) {
        record.GetNextSamplesSoundCapture(block.data(), n, 0);  // each as long as it lasts
    }
    EXPECT_GE(secondsSince(start), 0.09);
    EXPECT_LT(secondsSince(start), 0.5);
    EXPECT_EQ(reports.entries.size(), 1u);
    record.TerminateSoundCapture();
    EXPECT_FALSE(record.IsActive());
}
