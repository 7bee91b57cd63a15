// Loudspeaker playback end to end, through the facade: the binaural mix goes through the
// cross-talk canceller, and the global late pair mixes by the dry level.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <fstream>
#include <mutex>
#include <random>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "support/HrtfSets.h"
#include "support/RiffBytes.h"
#include "support/SdkAccess.h"
#include "support/WaveWriter.h"
#include "world/CWorld_Utils.h"

namespace {
constexpr int kRate = 44100;
const std::string kFolder = QK_TEST_HRTF_DATA;
const std::string kRenderSet = kFolder + "/VORLAN1_16s_DFE.qkhrtf";
const std::string kCancellerSet = kFolder + "/KEMAR_SMALL_16s_DFE.qkhrtf";

class Loudspeakers : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::ifstream(kRenderSet).good() || !std::ifstream(kCancellerSet).good()) {
            GTEST_SKIP() << "the build's default HRTF sets are missing";
        }
        sdk.qk_HRTF_Set_Full(kRenderSet.c_str());
        sdk.qk_HRTF_CTC_Set_Full(kCancellerSet.c_str());
        sdk.qk_Asnk_Set(-2);
        sdk.qk_Siml_Set_PO(2);
        sdk.qkSimSetCrossTalkAzimuth(30);
        sdk.qk_Vrcv_Add(listener);
        sdk.qk_Ssrc_Add_WMP(sound);
        sdk.qk_Vsrc_Add(object, sound, 0, -1.0f, 0.0f, 0.0f, "left");  // azimuth 90: the left
    }
    // One block of noise (or silence); the library's result.
    int Block(int n, bool bSilent = false) {
        mono.resize(static_cast<size_t>(n));
        std::normal_distribution<float> normal(0.0f, 1000.0f);
        for (float &v : mono) {
            v = bSilent ? 0.0f : normal(rng);
        }
        sdk.qk_Ssrc_Gen_Samples_1P(sound, mono.data(), n, 16, 1, kRate);
        return sdk.qk_Siml_Process_WinAmp(n, 16, 2, kRate);
    }
    const float *Output() {
        float *data = nullptr;
        sdk.qk_Vrcv_Get_Data(listener, data);
        return data;
    }

    CQKSDK sdk;
    int listener = 0, sound = 0, object = 0;
    std::mt19937 rng{5};
    std::vector<float> mono;
};

}  // namespace

// A source on the left, recorded over loudspeakers: both loudspeakers play (the right one
// cancels what the left one sends to the right ear), the left louder. Over headphones the
// same source gives a different right channel: the canceller ran.
TEST_F(Loudspeakers, RecordingHasTheCancellersSignature) {
    const std::string path = qktest::ScratchPath("speakers.wav");
    sdk.qk_Save_Wave_Start(path);
    for (int b = 0; b < 40; ++b) {
        ASSERT_EQ(Block(1024), 0);
    }
    sdk.qk_Save_Wave_Stop();
    const auto levels = qktest::StereoEnergies(path);
    std::remove(path.c_str());
    EXPECT_GT(levels.first, levels.second);
    EXPECT_GT(levels.second, 0.01 * levels.first);  // within 20 dB: clearly active
    EXPECT_EQ(CQKSDKTestAccess::Engine(sdk).m_CrossTalk.m_iInitialized, 1);
    EXPECT_EQ(CQKSDKTestAccess::Engine(sdk).m_CrossTalk.m_fAzimuth2, 330.0f);
}

// A minute of unpaced blocks of 512, noise then silence: every sample a finite normal number
// or zero (no denormals left to slow the block path), within 16-bit full scale.
TEST_F(Loudspeakers, AMinuteOfBlocksStaysClean) {
    const int blocks = 60 * kRate / 512;
    for (int b = 0; b < blocks; ++b) {
        ASSERT_EQ(Block(512, b > blocks / 2), 0);
        const float *out = Output();
        for (int i = 0; i < 2 * 512; ++i) {
            const float v = out[i];
            ASSERT_TRUE(std::isfinite(v)) << "block " << b;
            ASSERT_TRUE(v == 0.0f || std::fabs(v) >= FLT_MIN) << "denormal in block " << b;
            ASSERT_LE(std::fabs(v), 32768.0f) << "block " << b;
        }
    }
}

// The global late pair mixes by the dry level and writes the wet level back. With no room it
// is tuned all the same, once: its combs have gains of 0, and the left ear's combs, with no
// image delays to take, add nothing, so that ear is the dry part alone. Once a room's late
// field is there and the world changed, the pair is rebuilt and heard.
TEST_F(Loudspeakers, GlobalLatePairMixesByTheDryLevel) {
    CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
    std::lock_guard<qk::CEngineLock> guard(engine.m_csEngine);
    engine.m_Parameters.m_fReverbDryLevel = 0.25f;
    std::vector<float> in(2 * 4096);
    std::normal_distribution<float> normal(0.0f, 1000.0f);
    for (float &v : in) {
        v = normal(rng);
    }
    std::vector<float> out(in.size());
    engine.Reverb_Process(engine.m_ReverbL, engine.m_ReverbR, in.data(), out.data(), 4096, kRate);
    for (size_t i = 0; i < 4096; ++i) {
        ASSERT_EQ(out[i], 0.25f * in[i]) << i;
    }
    EXPECT_EQ(engine.m_Parameters.m_fReverbWetLevel, 0.75f);
    EXPECT_EQ(engine.m_ReverbL.m_fSampleRate, static_cast<float>(kRate));
    EXPECT_EQ(engine.m_ReverbR.m_fSampleRate, static_cast<float>(kRate));

    // In a room, the pair is tuned from the room model.
    CWorld_Utils::Generate_ShoeBox(&engine.m_Parameters.m_World, "6", "6", "4");
    for (int i = 0; i < 6; ++i) {
        engine.m_Parameters.m_pSFM_ORMS->m_afEarlyDelays[i] =
            0.005f + 0.002f * static_cast<float>(i);
    }
    engine.m_Parameters.m_iWorldChanged = 1;
    engine.Reverb_Process(engine.m_ReverbL, engine.m_ReverbR, in.data(), out.data(), 4096, kRate);
    engine.m_Parameters.m_iWorldChanged = 0;
    EXPECT_EQ(engine.m_ReverbR.m_iCombs, 6);
    double wet = 0.0;
    for (size_t i = 0; i < in.size(); ++i) {
        wet += std::fabs(out[i] - 0.25f * in[i]);
    }
    EXPECT_GT(wet, 1000.0);
}
