// The block path end to end, through the facade: hosted blocks, post-processing, recording,
// the values callback and the real device.
#include <gtest/gtest.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "support/RiffBytes.h"
#include "support/SdkAccess.h"
#include "support/WaveWriter.h"

namespace {
constexpr int kRate = 44100;

const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

bool haveDefaultSet() {
    return std::ifstream(kDefaultSet).good();
}

// A facade with the built default set, a listener at the origin looking along +y, no device
// and no canceller.
class Hosted : public testing::Test {
  protected:
    void SetUp() override {
        if (!haveDefaultSet()) {
            GTEST_SKIP() << "the build's default HRTF set is missing";
        }
        sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
        sdk.qk_Asnk_Set(-2);
        sdk.qk_Siml_Set_PO(1);
        sdk.qk_Vrcv_Add(listener);
        sdk.qk_Ssrc_Add_WMP(sound);
    }
    // One block of the given mono signal through the facade; the library's result.
    int Block(const std::vector<float> &mono) {
        sdk.qk_Ssrc_Gen_Samples_1P(sound, const_cast<float *>(mono.data()),
                                   static_cast<int>(mono.size()), 16, 1, kRate);
        return sdk.qk_Siml_Process_WinAmp(static_cast<int>(mono.size()), bits, 2, kRate);
    }
    std::vector<float> Output(int n) {
        float *data = nullptr;
        sdk.qk_Vrcv_Get_Data(listener, data);
        return data != nullptr ? std::vector<float>(data, data + 2 * n) : std::vector<float>();
    }

    CQKSDK sdk;
    int listener = 0;
    int sound = 0;
    int bits = 16;
};

std::vector<float> noise(int n, float rms, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> normal(0.0f, rms);
    std::vector<float> v(static_cast<size_t>(n));
    std::generate(v.begin(), v.end(), [&] { return normal(rng); });
    return v;
}

// A listener and a noise source in front on the left, played on the default device in
// blocks of the given length.
void addNoiseToPlay(CQKSDK &sdk, int block) {
    sdk.qk_Asnk_Set(-1);
    sdk.qkSimSetBlockLength(block);
    int listener = 0, noise = 0, object = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Ssrc_Add_Gauss(noise);
    sdk.qk_Vsrc_Add(object, noise, 0, 1.0f, 1.0f, 0.0f, "noise");
}

// Left minus right level in dB of a 16-bit stereo wave file written by the library.
double fileBalanceDb(const std::string &path) {
    const auto energies = qktest::StereoEnergies(path);
    return 10.0 * std::log10((energies.first + 1e-30) / (energies.second + 1e-30));
}
}  // namespace

TEST_F(Hosted, ASourceOnTheLeftIsLouderInTheLeftEarOfTheRecordedFile) {
    struct Case {
        float x, y;
        double minBalance, maxBalance;
    };
    // Azimuth 90 is on the left (-x), 270 on the right, 0 straight ahead.
    const Case cases[] = {
        {-2.0f, 0.0f, 6.0, 100.0}, {2.0f, 0.0f, -100.0, -6.0}, {0.0f, 2.0f, -1.0, 1.0}};
    int object = 0;
    sdk.qk_Vsrc_Add(object, sound, 0, 0.0f, 2.0f, 0.0f, "noise");
    // Both convolution methods, switched between blocks as a host may.
    for (int method = 0; method < 2; ++method)
        for (const Case &c : cases) {
            SCOPED_TRACE(method);
            sdk.qk_Siml_Set_Convolution(method);
            const std::string path = qktest::ScratchPath("balance.wav");
            sdk.qk_Vsrc_Set_Position(object, c.x, c.y, 0.0f);
            sdk.qk_Save_Wave_Start(path);
            for (int b = 0; b < 20; ++b) {
                ASSERT_EQ(Block(noise(2048, 3000.0f, 7 + b)), 0);  // made, no device
            }
            sdk.qk_Save_Wave_Stop();
            const double balance = fileBalanceDb(path);
            EXPECT_GE(balance, c.minBalance) << c.x << "," << c.y;
            EXPECT_LE(balance, c.maxBalance) << c.x << "," << c.y;
            std::remove(path.c_str());
        }
}

TEST_F(Hosted, NoListenerOrNoSetMakesNothing) {
    CQKSDK bare;
    bare.qk_Asnk_Set(-2);
    bare.qk_HRTF_Set_Full(kDefaultSet.c_str());
    EXPECT_EQ(bare.qk_Siml_Process_WinAmp(512, 16, 2, kRate), -1);  // no listener
    int id = 0;
    bare.qk_Vrcv_Add(id);
    EXPECT_EQ(bare.qk_Siml_Process_WinAmp(512, 16, 2, kRate), 0);
    bare.qk_HRTF_Set_Full("/nonexistent/set.qkhrtf");
    EXPECT_EQ(bare.qk_Siml_Process_WinAmp(512, 16, 2, kRate), -1);  // and it is reported
    EXPECT_EQ(bare.qk_Siml_Process_WinAmp(0, 16, 2, kRate), -1);
    EXPECT_EQ(bare.qk_Siml_Process_WinAmp(1 << 20, 16, 2, kRate), -1);
}

TEST_F(Hosted, TheLimiterTurnsTheGainDownOnceAndKeepsIt) {
    // Straight routing (3-D audio off, link 2): the mono block reaches both ears unchanged.
    sdk.qk_Siml_Set_3DAudio(0);
    int object = 0;
    sdk.qk_Vsrc_Add(object, sound, 2, 0.0f, 1.0f, 0.0f, "direct");
    std::vector<float> block(256, 0.0f);

    block[10] = 32768.0f;        // exactly full scale: nothing happens
    ASSERT_EQ(Block(block), 0);  // the first block also clears the world's change
    float gain = 1.0f;
    ASSERT_EQ(Block(block), 0);
    sdk.qk_Siml_Get_Gain(gain);
    EXPECT_EQ(gain, 0.0f);

    block[10] = 65536.0f;  // 6 dB over
    ASSERT_EQ(Block(block), 0);
    sdk.qk_Siml_Get_Gain(gain);
    EXPECT_NEAR(gain, -10.0f * std::log10(2.0f / 0.95f), 1e-4f);
    EXPECT_NEAR(Output(256)[10], 0.95f * 32768.0f, 0.5f);  // out at 0.95 of full scale

    block[10] = 1000.0f;  // quiet again: the gain doesn't come back
    ASSERT_EQ(Block(block), 0);
    float later = 0.0f;
    sdk.qk_Siml_Get_Gain(later);
    EXPECT_EQ(later, gain);

    sdk.qk_SFM_Set(0);  // a world change puts the gain back to 0 after the next block
    ASSERT_EQ(Block(block), 0);
    sdk.qk_Siml_Get_Gain(later);
    EXPECT_EQ(later, 0.0f);

    sdk.qk_Siml_Set_AGC(0);  // limiter off: a loud block changes nothing
    block[10] = 1e6f;
    ASSERT_EQ(Block(block), 0);
    sdk.qk_Siml_Get_Gain(later);
    EXPECT_EQ(later, 0.0f);

    // Bits 0 from a host: full scale is 1.0.
    sdk.qk_Siml_Set_AGC(1);
    bits = 0;
    block[10] = 2.0f;
    ASSERT_EQ(Block(block), 0);
    sdk.qk_Siml_Get_Gain(later);
    EXPECT_NEAR(later, -10.0f * std::log10(2.0f / 0.95f), 1e-4f);
}

TEST_F(Hosted, TheGainLawIsTenLogAndTheShelvesRunOnlyAtTwo) {
    int object = 0;
    sdk.qk_Vsrc_Add(object, sound, 0, 0.0f, 2.0f, 0.0f, "noise");
    sdk.qk_Siml_Set_AGC(0);
    const std::vector<float> input = noise(1024, 1000.0f, 3);
    auto render = [&](int postEq, float gain) {
        sdk.qk_Siml_Set_PostEQ(postEq);
        sdk.qk_Siml_Set_Gain(gain);
        sdk.qk_Siml_Set_Gain_LSF(12.0f);
        Block(input);  // the convolver's overlap settles on the same input
        Block(input);
        return Output(1024);
    };
    const auto plain = render(0, 0.0f);
    EXPECT_EQ(render(1, 0.0f), plain);  // 1 is not "on"
    EXPECT_NE(render(2, 0.0f), plain);
    const auto louder = render(0, 6.0f);
    for (int i = 0; i < 2048; i += 97) {
        EXPECT_NEAR(louder[static_cast<size_t>(i)],
                    plain[static_cast<size_t>(i)] * std::pow(10.0f, 0.6f),
                    1e-2f + 1e-4f * std::fabs(plain[static_cast<size_t>(i)]));
    }
}

namespace {
struct Seen {
    int calls = 0, frames = 0, channels = 0, rate = 0;
};
void onValues(unsigned long user, float *left, float *right, int frames, int, int channels,
              int rate, float) {
    auto *seen = reinterpret_cast<Seen *>(user);
    ++seen->calls;
    seen->frames = frames;
    seen->channels = channels;
    seen->rate = rate;
    EXPECT_EQ(right, left + frames);
}
}  // namespace

TEST_F(Hosted, TheValuesCallbackSeesEveryBlockUnlessItsUserWordIsZero) {
    Seen seen;
    sdk.qk_Appl_Register_On_Values(reinterpret_cast<unsigned long>(&onValues), 0);
    const std::vector<float> block(512, 0.0f);
    Block(block);
    EXPECT_EQ(seen.calls, 0);
    sdk.qk_Appl_Register_On_Values(reinterpret_cast<unsigned long>(&onValues),
                                   reinterpret_cast<unsigned long>(&seen));
    for (int i = 0; i < 3; ++i) {
        Block(block);
    }
    EXPECT_EQ(seen.calls, 3);
    EXPECT_EQ(seen.frames, 512);
    EXPECT_EQ(seen.channels, 2);
    EXPECT_EQ(seen.rate, kRate);
    sdk.qk_Appl_UnRegister_On_Values();
    Block(block);
    EXPECT_EQ(seen.calls, 3);
}

// Real play through ALSA's pulse device on the test run's own PulseAudio server.
TEST(RenderOnDevice, ThreeSecondsOfBlocksTakeRealTimeAndEachReachesTheCallback) {
    if (std::getenv("QK_PULSE_SERVER") == nullptr || !haveDefaultSet()) {
        GTEST_SKIP() << "no PulseAudio server for this run, or no default set";
    }
    setenv("QK_ALSA_DEVICE", "pulse", 1);
    {
        CQKSDK sdk;
        sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
        sdk.qk_Siml_Set_PO(1);
        addNoiseToPlay(sdk, 2048);
        Seen seen;
        sdk.qk_Appl_Register_On_Values(reinterpret_cast<unsigned long>(&onValues),
                                       reinterpret_cast<unsigned long>(&seen));
        const auto start = std::chrono::steady_clock::now();
        sdk.qkPlay();
        int blocks = 0;
        while (blocks < 65 && std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            sdk.qk_Siml_Get_Blocks(blocks);
        }
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        sdk.qkStop();
        sdk.qk_Siml_Get_Blocks(blocks);
        EXPECT_GE(blocks, 65);
        EXPECT_GE(wall, 2.5);  // three seconds of blocks, less what the ring and server hold
        EXPECT_EQ(seen.calls, blocks);
    }
    unsetenv("QK_ALSA_DEVICE");
}

namespace {
int g_reportCount = 0;
int countReport(unsigned long, const char *, const char *, int) {
    ++g_reportCount;
    return QK_ANSWER_OK;
}

double processCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}
}  // namespace

// A play that reaches no device, because none opens or because no block can be made without
// a data set, keeps to real time on a clock: it neither spins a core nor floods the host.
TEST(PlayWithoutOutput, KeepsToRealTimeAndReportsOnce) {
    if (!haveDefaultSet()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    struct Case {
        const char *device;
        std::string set;
    };
    const Case cases[] = {
        {"no-such-device", kDefaultSet},
        {"virtual", qktest::ScratchPath("no-such-set.qkhrtf")},
    };
    constexpr int kBlock = 2048;
    constexpr double kSeconds = 3.0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.device);
        setenv("QK_ALSA_DEVICE", c.device, 1);
        {
            CQKSDK sdk;
            sdk.qk_Appl_Register_On_Message(&countReport, 0);
            g_reportCount = 0;
            sdk.qk_HRTF_Set_Full(c.set.c_str());
            addNoiseToPlay(sdk, kBlock);
            const double cpu = processCpuSeconds();
            const auto start = std::chrono::steady_clock::now();
            sdk.qkPlay();
            std::this_thread::sleep_for(std::chrono::duration<double>(kSeconds));
            int blocks = 0;
            sdk.qk_Siml_Get_Blocks(blocks);
            const double wall =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            const double used = processCpuSeconds() - cpu;
            sdk.qkStop();
            EXPECT_LE(blocks, static_cast<int>(wall * kRate / kBlock) + 1);
            EXPECT_GE(blocks, static_cast<int>(kSeconds * kRate / kBlock) / 2);
            EXPECT_LT(used, wall / 3.0);
            EXPECT_GE(g_reportCount, 1);
            EXPECT_LE(g_reportCount, 3);
            sdk.qk_Appl_Register_On_Message(nullptr, 0);
        }
        unsetenv("QK_ALSA_DEVICE");
    }
}

// The sources of a block are shared out among threads; the sums are formed in one order
// whatever their number, so 1, 2 and 8 threads give the same output bit for bit, with both
// convolution methods and sources that move every block.
// Enough sources for several groups, which threads render in any order.
TEST_F(Hosted, TheOutputIsTheSameWhateverTheThreadCount) {
    std::vector<int> objects(40);
    std::vector<std::vector<float>> outputs;
    for (int method = 0; method < 2; ++method) {
        for (int threads : {1, 2, 8}) {
            CQKSDK fresh;
            fresh.qk_HRTF_Set_Full(kDefaultSet.c_str());
            fresh.qk_Asnk_Set(-2);
            fresh.qk_Siml_Set_Convolution(method);
            fresh.qk_Siml_Set_Threads(threads);
            int ear = 0, feed = 0;
            fresh.qk_Vrcv_Add(ear);
            fresh.qk_Ssrc_Add_WMP(feed);
            for (size_t i = 0; i < objects.size(); ++i) {
                int id = 0;
                fresh.qk_Vsrc_Add(id, feed, 0, 0.1f * static_cast<float>(i) - 2.0f, 1.5f, 0.0f,
                                  "n");
                objects[i] = id;
            }
            std::vector<float> all;
            for (int b = 0; b < 12; ++b) {
                for (size_t i = 0; i < objects.size(); i += 2) {
                    fresh.qk_Vsrc_Set_Position(objects[i], std::sin(0.3f * b + i), 1.0f, 0.0f);
                }
                const std::vector<float> in = noise(1024, 3000.0f, 40 + b);
                fresh.qk_Ssrc_Gen_Samples_1P(feed, const_cast<float *>(in.data()), 1024, 16, 1,
                                             kRate);
                ASSERT_EQ(fresh.qk_Siml_Process_WinAmp(1024, 16, 2, kRate), 0);
                float *data = nullptr;
                fresh.qk_Vrcv_Get_Data(ear, data);
                all.insert(all.end(), data, data + 2 * 1024);
            }
            outputs.push_back(all);
        }
        EXPECT_EQ(outputs[outputs.size() - 2], outputs[outputs.size() - 3]) << method;
        EXPECT_EQ(outputs[outputs.size() - 1], outputs[outputs.size() - 3]) << method;
    }
}

// After a move, the response handed to the host is the new direction's, whichever way the
// source convolves (the partitioned way takes the direction's spectra from the set's table).
TEST_F(Hosted, TheResponseHandedOutFollowsAMoveWhateverTheConvolution) {
    std::vector<std::vector<float>> responses;
    for (int method = 0; method < 2; ++method) {
        CQKSDK fresh;
        fresh.qk_HRTF_Set_Full(kDefaultSet.c_str());
        fresh.qk_Asnk_Set(-2);
        fresh.qk_Siml_Set_Convolution(method);
        int ear = 0, feed = 0, source = 0;
        fresh.qk_Vrcv_Add(ear);
        fresh.qk_Ssrc_Add_WMP(feed);
        fresh.qk_Vsrc_Add(source, feed, 0, -1.0f, 1.0f, 0.0f, "n");
        for (const float x : {-1.0f, 1.0f}) {
            SCOPED_TRACE(testing::Message() << "method " << method << ", x " << x);
            fresh.qk_Vsrc_Set_Position(source, x, 1.0f, 0.0f);
            const std::vector<float> in = noise(512, 3000.0f, 3);
            fresh.qk_Ssrc_Gen_Samples_1P(feed, const_cast<float *>(in.data()), 512, 16, 1, kRate);
            ASSERT_EQ(fresh.qk_Siml_Process_WinAmp(512, 16, 2, kRate), 0);
            float *left = nullptr, *right = nullptr;
            int length = 0;
            ASSERT_EQ(fresh.qk_Vsrc_Get_BIR(source, left, right, length), 0);
            ASSERT_GT(length, 0);
            std::vector<float> both(left, left + length);
            both.insert(both.end(), right, right + length);
            responses.push_back(both);
        }
    }
    EXPECT_NE(responses[0], responses[1]);  // the move changed the direction
    EXPECT_EQ(responses[2], responses[0]);
    EXPECT_EQ(responses[3], responses[1]);
}
