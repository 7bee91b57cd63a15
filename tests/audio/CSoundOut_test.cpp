#include "audio/CSoundOut.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "support/ReportRecorder.h"

namespace {
using Clock = std::chrono::steady_clock;

// Gives `left` buffers of a ramp, then 0 bytes.
struct Feed {
    std::atomic<int> left{0};
    std::atomic<int> calls{0};
};
unsigned long fill(CSoundBuffer *pBuffer, void *pUser) {
    auto *feed = static_cast<Feed *>(pUser);
    ++feed->calls;
    if (feed->left.fetch_sub(1) <= 0) {
        return 0;
    }
    std::memset(pBuffer->data, 0x11, pBuffer->size);
    return pBuffer->size;
}

bool waitFor(const std::function<bool()> &done, double seconds) {
    const auto until = Clock::now() + std::chrono::duration<double>(seconds);
    while (!done() && Clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return done();
}

class SoundOut : public testing::Test {
  protected:
    void SetUp() override { setenv("QK_ALSA_DEVICE", "virtual", 1); }
    void TearDown() override { unsetenv("QK_ALSA_DEVICE"); }
    qktest::ReportRecorder reports{qk::kAnswerOk};
};
}  // namespace

TEST(SoundBase, TheFormatFollowsEachSetterWithItsOldAverage) {
    CSoundBase base;
    struct Step {
        int bits, channels, rate;
        int align;
        unsigned average;  // bits / 8 x rate, without the channels
    };
    EXPECT_EQ(base.GetBufferSize(), 65536);
    EXPECT_EQ(base.GetFormat()->wFormatTag, 1);
    const Step steps[] = {{16, 2, 44100, 4, 88200},
                          {8, 2, 44100, 2, 44100},
                          {8, 1, 44100, 1, 44100},
                          {24, 6, 48000, 18, 144000}};
    for (const Step &s : steps) {
        base.SetBitsPerSample(s.bits);
        base.SetNumberOfChannels(s.channels);
        base.SetSamplesPerSecond(s.rate);
        EXPECT_EQ(base.GetFormat()->nBlockAlign, s.align) << s.bits << "/" << s.channels;
        EXPECT_EQ(base.GetFormat()->nAvgBytesPerSec, s.average) << s.bits << "/" << s.channels;
    }
}

TEST(SoundBuffer, ACopySharesTheMemoryAndOnlyOwnedMemoryIsFreedWithIt) {
    CSoundBuffer owned(64, true);
    std::memset(owned.data, 7, 64);
    {
        CSoundBuffer copy = owned;  // the same memory, still alive after the copy goes
        EXPECT_EQ(copy.data, owned.data);
        EXPECT_TRUE(copy.owned);
    }
    EXPECT_EQ(static_cast<unsigned char *>(owned.data)[63], 7);
    owned.Erase();
    EXPECT_EQ(static_cast<unsigned char *>(owned.data)[0], 0);
    unsigned char bytes[4] = {1, 2, 3, 4};
    {
        CSoundBuffer wrapped(bytes, 4);
        EXPECT_FALSE(wrapped.owned);
    }
    EXPECT_EQ(bytes[3], 4);
    CSoundBuffer loose(16, false);  // allocated, not owned: the caller frees it
    CSoundBuffer::Free(loose.data);
}

TEST_F(SoundOut, BuffersArePulledUntilTheFillGivesNothingThenTheDeviceCloses) {
    Feed feed;
    feed.left = 12;
    CSoundOut out;
    out.SetBufferSize(441);                   // 10 ms
    EXPECT_FALSE(out.Start(-1, 1, nullptr));  // no fill function yet
    out.m_pfnGetData = &fill;
    EXPECT_FALSE(out.Start(-1, 1, nullptr));  // nor a user pointer
    out.m_pUser = &feed;
    const auto start = Clock::now();
    ASSERT_TRUE(out.Start(-1, 1, nullptr));
    EXPECT_TRUE(out.IsPlaying());
    EXPECT_FALSE(out.Start(-1, 1, nullptr));  // while playing
    ASSERT_TRUE(waitFor([&] { return !out.IsDeviceOpen(); }, 5.0));
    // Twelve buffers of 10 ms played in real time, the last one back before the close.
    EXPECT_GE(std::chrono::duration<double>(Clock::now() - start).count(), 0.1);
    EXPECT_FALSE(out.IsPlaying());
    EXPECT_EQ(out.GetQueued(), 0);
    EXPECT_EQ(feed.calls, 13);
    EXPECT_TRUE(reports.entries.empty());

    // Played again with a format of its own, stopped by the caller in the middle.
    feed.left = 1000000;
    WAVEFORMATEX format = *out.GetFormat();
    format.nChannels = 1;
    format.nBlockAlign = 2;
    ASSERT_TRUE(out.Start(-1, 1, &format));
    EXPECT_EQ(out.GetNumberOfChannels(), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    out.Stop();
    EXPECT_TRUE(waitFor([&] { return !out.IsDeviceOpen(); }, 5.0));
    EXPECT_EQ(out.GetQueued(), 0);
}

TEST_F(SoundOut, ADeviceThatDoesNotOpenIsReportedAndNothingPlays) {
    Feed feed;
    CSoundOut out;
    out.m_pfnGetData = &fill;
    out.m_pUser = &feed;
    EXPECT_FALSE(out.Start(100000, 1, nullptr));
    ASSERT_EQ(reports.entries.size(), 1u);
    const std::string &text = reports.entries[0].text;
    EXPECT_EQ(text.rfind("WAVEOUT:2:", 0), 0u) << text;
    EXPECT_NE(text.find("in start()"), std::string::npos);
    EXPECT_FALSE(out.IsPlaying());
    EXPECT_EQ(feed.calls, 0);
}

TEST_F(SoundOut, DestroyingItWhilePlayingStopsAndFreesEverything) {
    Feed feed;
    feed.left = 1000000;
    auto out = std::make_unique<CSoundOut>();
    out->SetBufferSize(4410);
    out->m_pfnGetData = &fill;
    out->m_pUser = &feed;
    ASSERT_TRUE(out->Start(-1, 1, nullptr));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    out.reset();  // the sanitizer build finds any buffer left behind
    EXPECT_TRUE(reports.entries.empty());
}
