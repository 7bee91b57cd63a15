#include "audio/CSOURCE_SOUNDCARD.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "audio/WaveOutDevice.h"
#include "quendarik/CQKSDK.h"
#include "support/CodecFiles.h"
#include "support/ReportRecorder.h"
#include "support/SignalReference.h"
#include "support/WaveWriter.h"

namespace {
using Clock = std::chrono::steady_clock;
constexpr int kRate = 44100;
const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

class SoundCard : public testing::Test {
  protected:
    void SetUp() override { setenv("QK_ALSA_CAPTURE_DEVICE", "virtual", 1); }
    void TearDown() override { unsetenv("QK_ALSA_CAPTURE_DEVICE"); }
    qktest::ReportRecorder reports{qk::kAnswerOk};
};

double power(const std::vector<float> &x, double hz) {
    return qktest::TonePower(x, hz, kRate);
}

// Plays with a capture source rendered by a virtual source 2 m to the left (azimuth 90),
// records the output until `blocks` blocks are made, and gives the file's two channels.
// `during` runs once play has made 8 blocks.
template <typename During>
std::vector<std::vector<float>> renderCapture(int blocks, During during) {
    const std::string path = qktest::ScratchPath("capture.wav");
    {
        CQKSDK sdk;
        sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
        sdk.qk_Asnk_Set(-2);  // no output device: the capture paces play
        sdk.qk_Siml_Set_PO(1);
        sdk.qkSimSetBlockLength(4096);
        int before = 0;
        sdk.qk_Ssrc_Add_WMP(before);
        int card = -7;
        EXPECT_EQ(sdk.qk_Ssrc_Add_SoundCard(card, 3), 0);
        EXPECT_EQ(card, -7);  // not written, as it never was
        card = before + 1;
        int enable = 0;
        EXPECT_EQ(sdk.qk_Ssrc_Get_Enable(card, enable), 0);
        int listener = 0, object = 0;
        sdk.qk_Vrcv_Add(listener);
        sdk.qk_Vsrc_Add(object, card, 0, -2.0f, 0.0f, 0.0f, "line in");
        sdk.qk_Save_Wave_Start(path);
        sdk.qkPlay();
        const auto start = Clock::now();
        int made = 0;
        bool done = false;
        while (made < blocks && Clock::now() - start < std::chrono::seconds(30)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            sdk.qk_Siml_Get_Blocks(made);
            if (made >= 8 && !done) {
                done = true;
                during();
            }
        }
        EXPECT_GE(made, blocks);
        const auto stop = Clock::now();
        sdk.qkStop();
        EXPECT_LT(std::chrono::duration<double>(Clock::now() - stop).count(), 3.0);
        sdk.qk_Save_Wave_Stop();
    }
    auto channels = qktest::WaveChannels(path);
    std::remove(path.c_str());
    return channels;
}

void expectToneOnTheLeft(const std::vector<std::vector<float>> &out) {
    ASSERT_EQ(out.size(), 2u);
    const double left = power(out[0], 1000.0);
    const double right = power(out[1], 1000.0);
    EXPECT_GT(left, 2.0 * right);                    // louder on the left
    EXPECT_GT(left, 100.0 * power(out[0], 2500.0));  // and it is the tone
}
}  // namespace

TEST_F(SoundCard, ItHasTwoChannelsTheFirstBlockIsSilentAndTheNextHoldsTheInput) {
    CSOURCE_SOUNDCARD source;
    EXPECT_EQ(source._init(512, kRate), 0);
    EXPECT_EQ(source.m_iSource_Channels, 2);
    EXPECT_TRUE(source.m_Capture.IsActive());
    EXPECT_EQ(source._process_1P(nullptr, 512, 16, 2, kRate), 0);
    EXPECT_EQ(*std::max_element(source.m_pfData.get(), source.m_pfData.get() + 1024), 0.0f);
    EXPECT_EQ(source._process_1P(nullptr, 512, 16, 2, kRate), 0);
    const float *right = source.m_pfData + 512;
    EXPECT_NEAR(*std::max_element(right, right + 512), 16383.0f, 20.0f);
    EXPECT_EQ(source._quit(), 0);
    EXPECT_FALSE(source.m_Capture.IsActive());

    CSOURCE_SOUNDCARD unused;  // ended before any block: the device still closes
    unused._init(512, kRate);
    EXPECT_EQ(unused._quit(), 0);
    EXPECT_FALSE(unused.m_Capture.IsActive());
}

TEST_F(SoundCard, NoDeviceIsToldOnceAndTheSourceStaysSilentWithoutWaiting) {
    setenv("QK_ALSA_CAPTURE_DEVICE", "no_such_pcm", 1);
    CSOURCE_SOUNDCARD source;
    for (int run = 0; run < 3; ++run) {
        EXPECT_EQ(source._init(512, kRate), 0);
        const auto start = Clock::now();
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(source._process_1P(nullptr, 512, 16, 1, kRate), 0);
        }
        EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 0.5);
        EXPECT_EQ(*std::max_element(source.m_pfData.get(), source.m_pfData.get() + 1024), 0.0f);
        source._quit();
    }
    EXPECT_EQ(reports.entries.size(), 1u);
}

TEST_F(SoundCard, TheClockedInputIsHeardOnTheLeftOfASourceAtNinetyDegrees) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    expectToneOnTheLeft(renderCapture(16, [] {}));
}

// On the test run's own PulseAudio server: a tone played into a null sink of its own is
// captured from the sink's monitor; then the sink and the capture stream go away during play,
// which must end in silence and a message, not a hang.
TEST_F(SoundCard, ATonePlayedIntoANullSinkIsCapturedFromItsMonitorUntilTheSinkGoes) {
    if (std::getenv("QK_PULSE_SERVER") == nullptr || !std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "no PulseAudio server for this run, or no default set";
    }
    const std::string sink = "qk_capture_" + std::to_string(::getpid());
    FILE *load = popen(("pactl load-module module-null-sink sink_name=" + sink).c_str(), "r");
    ASSERT_NE(load, nullptr);
    char number[32] = {};
    const bool loaded = std::fgets(number, sizeof number, load) != nullptr;
    pclose(load);
    ASSERT_TRUE(loaded);
    const std::string module = std::string(number).substr(0, std::string(number).find('\n'));
    setenv("QK_ALSA_CAPTURE_DEVICE", ("pulse:DEVICE=" + sink + ".monitor").c_str(), 1);

    // Eight seconds of the tone, queued at once and played in real time.
    auto player = CWaveOutDevice::CreateByName("pulse:DEVICE=" + sink);
    ASSERT_EQ(player->Open(WaveOutFormat{2, kRate, 16}, [](int) {}), 0);
    std::vector<int16_t> tone(2 * kRate / 10);
    for (size_t i = 0; i < tone.size() / 2; ++i) {
        tone[2 * i] = tone[2 * i + 1] =
            static_cast<int16_t>(12000.0 * std::sin(2.0 * M_PI * 1000.0 * i / kRate));
    }
    for (int i = 0; i < 80; ++i) {
        player->Write(reinterpret_cast<const uint8_t *>(tone.data()), 2 * tone.size(), i);
    }
    const auto out = renderCapture(40, [&] {
        player->Close();
        // The server moves a stream whose source goes to another source; the stream is then
        // killed too, which is what an unplugged device looks like to a reader.
        std::system(("pactl unload-module " + module +
                     "; cli=$(pactl load-module module-cli-protocol-unix)"
                     "; for s in $(pactl list short source-outputs | cut -f1); do "
                     "pacmd kill-source-output $s; done; pactl unload-module $cli")
                        .c_str());
    });
    expectToneOnTheLeft(out);
    EXPECT_TRUE(reports.Told("capture device"));
}

TEST_F(SoundCard, StopDuringAWaitForADeadDeviceReturns) {
    setenv("QK_ALSA_CAPTURE_DEVICE", "virtual:0.01", 1);  // unplugged before its first buffer
    CQKSDK sdk;
    sdk.qk_Asnk_Set(-2);
    int card = 0;
    sdk.qk_Ssrc_Add_SoundCard(card, -1);
    sdk.qkPlay();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // inside the first wait
    const auto stop = Clock::now();
    EXPECT_EQ(sdk.qkStop(), 0);
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - stop).count(), 3.5);
    EXPECT_TRUE(reports.Told("capture device"));
}
