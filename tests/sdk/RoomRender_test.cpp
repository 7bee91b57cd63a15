// A virtual source in a room, end to end through the facade: what the listener hears is the
// source's sound through the room response the model made, and the room adds what free
// field hasn't got.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "support/SdkAccess.h"

namespace {
constexpr int kRate = 44100;
constexpr int kBlock = 4096;

const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

// The room of these tests: the 6 x 6 x 4 m preset, headphones, no device, a listener at
// (-0.6, -0.2, 1.9) looking along +y and a source at (1.2, 0.3, 1.3) playing host-fed sound.
struct RoomScene {
    explicit RoomScene(CQKSDK &sdk, int model, int order = 2) {
        sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
        sdk.qk_Asnk_Set(-2);
        sdk.qk_Siml_Set_PO(1);
        sdk.qk_Wrld_Preset(2);
        sdk.qk_SFM_Set(model);
        sdk.qk_Siml_Set_SpecularOrder(order);
        sdk.qk_Vrcv_Add(listener);
        sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.6f, -0.2f, 1.9f, -0.6f, 5.0f, 1.9f);
        sdk.qk_Ssrc_Add_WMP(sound);
        sdk.qk_Vsrc_Add(source, sound, 0, 1.2f, 0.3f, 1.3f, "noise");
    }
    int listener = 0;
    int sound = 0;
    int source = 0;
};

struct Heard {
    std::vector<float> left, right;  // the response the source was given
    std::vector<float> input;        // three blocks of the source's sound
    std::vector<float> output;       // the third block: n left, then n right
};

// Three blocks of noise from a source at (1.2, 0.3, 1.3) to a listener at (-0.6, -0.2, 1.9)
// looking along +y, in the 6 x 6 x 4 m preset with reflections to order 2 (model 1), or in
// free field (model 0).
Heard render(int model) {
    CQKSDK sdk;
    sdk.qk_Siml_Set_AGC(0);
    const RoomScene scene(sdk, model);
    const int listener = scene.listener, sound = scene.sound, source = scene.source;
    Heard heard;
    std::mt19937 rng(5);
    std::normal_distribution<float> normal(0.0f, 1000.0f);
    heard.input.resize(3 * kBlock);
    std::generate(heard.input.begin(), heard.input.end(), [&] { return normal(rng); });
    for (int b = 0; b < 3; ++b) {
        sdk.qk_Ssrc_Gen_Samples_1P(sound, heard.input.data() + b * kBlock, kBlock, 16, 1, kRate);
        EXPECT_EQ(sdk.qk_Siml_Process_WinAmp(kBlock, 16, 2, kRate), 0);
    }
    float *data = nullptr;
    sdk.qk_Vrcv_Get_Data(listener, data);
    heard.output.assign(data, data + 2 * kBlock);
    float *left = nullptr, *right = nullptr;
    int length = 0;
    EXPECT_EQ(sdk.qk_Vsrc_Get_BIR(source, left, right, length), 0);
    heard.left.assign(left, left + length);
    heard.right.assign(right, right + length);
    return heard;
}

// Energy of a response from `from` on.
double energyFrom(const std::vector<float> &h, size_t from) {
    double e = 0.0;
    for (size_t i = from; i < h.size(); ++i) {
        e += static_cast<double>(h[i]) * h[i];
    }
    return e;
}
}  // namespace

TEST(RoomRender, TheListenerHearsTheRoomResponseTheModelMade) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    const Heard room = render(1);
    const Heard free = render(0);
    ASSERT_GT(room.left.size(), 1000u);  // the reflections of order 2 reach beyond 20 ms
    ASSERT_LT(room.left.size(), static_cast<size_t>(kBlock));

    // The third block is the sound convolved with the response the host can read.
    for (int ear = 0; ear < 2; ++ear) {
        const std::vector<float> &h = ear == 0 ? room.left : room.right;
        double error = 0.0, signal = 0.0;
        for (int i = 0; i < kBlock; ++i) {
            double y = 0.0;
            const size_t t = static_cast<size_t>(2 * kBlock + i);
            for (size_t k = 0; k < h.size(); ++k) {
                y += static_cast<double>(h[k]) * room.input[t - k];
            }
            const double got = room.output[static_cast<size_t>(ear * kBlock + i)];
            error += (got - y) * (got - y);
            signal += y * y;
        }
        EXPECT_LT(10.0 * std::log10(error / signal), -60.0) << "ear " << ear;
    }

    // After the direct sound's arrival and its HRTF, free field is silent and the room isn't.
    const auto first = [](const std::vector<float> &h) {
        return static_cast<size_t>(
            std::find_if(h.begin(), h.end(), [](float v) { return std::fabs(v) > 1e-4f; }) -
            h.begin());
    };
    const size_t window = first(room.left) + 512;
    const double roomLate = energyFrom(room.left, window) + energyFrom(room.right, window);
    const double freeLate = energyFrom(free.left, window) + energyFrom(free.right, window);
    EXPECT_GT(roomLate, 100.0 * (freeLate + 1e-12));
    EXPECT_GT(roomLate, 0.05 * (energyFrom(room.left, 0) + energyFrom(room.right, 0)));
}

// The late part of model 2: each ear's reverb has this source's first six image delays (as
// the stability rule stretches them) and the decay of the room's Sabine time; with
// "ONEREVERB" the engine's pair is tuned alike from the source served last.
TEST(RoomRender, TheLatePartIsTunedFromTheSourcesImagesAndTheRoom) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    for (int oneReverb = 0; oneReverb <= 1; ++oneReverb) {
        CQKSDK sdk;
        sdk.qk_Research_Set_BOOL("ONEREVERB", oneReverb);
        const RoomScene scene(sdk, 2, 1);
        const int sound = scene.sound, source = scene.source;
        std::vector<float> block(1024, 100.0f);
        sdk.qk_Ssrc_Gen_Samples_1P(sound, block.data(), 1024, 16, 1, kRate);
        ASSERT_EQ(sdk.qk_Siml_Process_WinAmp(1024, 16, 2, kRate), 0);

        CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
        const CSFM_ISM *model = engine.m_Context.m_pSFM_ORMS->Model(source);
        ASSERT_NE(model, nullptr);
        ASSERT_GE(model->m_pfDelays.size(), 6u);
        float absorption = 0.0f;
        for (CVRPlane *plane : engine.m_Context.m_World.m_Planes) {
            float average = 0.0f;
            CMATERIAL material;
            material.GetAverage(&engine.m_Context.m_Code4, plane->m_strMaterial, average, 32);
            absorption += plane->Area() * average;
        }
        const float rt60 = 0.163f * 144.0f / absorption;
        float delays[CLatePart::kEntries];
        float gains[CLatePart::kEntries];
        for (int i = 0; i < CLatePart::kEntries; ++i) {
            delays[i] = i < 6 ? model->m_pfDelays[static_cast<size_t>(i)] / 1000.0f
                              : CLatePart::kAllPassDelays[i - 6];
        }
        CLatePart::TuneEar(rt60, delays, gains, CLatePart::kAllPassGains);

        const CQUENDARIC_Service_Reverb *left = &engine.m_ReverbL;
        if (oneReverb == 0) {
            auto *object =
                dynamic_cast<CQUENDARIC_Object_Source_Sound *>(engine.Get3DSourceFromID(source));
            ASSERT_NE(object, nullptr);
            left = &object->m_ReverbL;
        }
        ASSERT_GE(left->m_pfDelays.size(), 6u);
        for (int i = 0; i < 6; ++i) {
            SCOPED_TRACE(testing::Message() << "ONEREVERB " << oneReverb << ", comb " << i);
            EXPECT_NEAR(left->m_pfDelays[static_cast<size_t>(i)], delays[i], 1e-6f);
            EXPECT_NEAR(left->m_pfGains[static_cast<size_t>(i)], gains[i], 1e-4f);
        }
    }
}

// With "GRAPH_BIR" each rebuilt response is drawn in the folder "GRAPH_DIR" names.
TEST(RoomRender, EachRebuildIsDrawnWhenAsked) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("qk-graphs-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    {
        CQKSDK sdk;
        const RoomScene scene(sdk, 1);
        const int sound = scene.sound, source = scene.source;
        EXPECT_EQ(sdk.qk_Research_Set_STRING("GRAPH_DIR", folder.string().c_str()), 0);
        EXPECT_EQ(sdk.qk_Research_Set_STRING("NO_SUCH_KEY", "x"), -1);
        sdk.qk_Research_Set_BOOL("GRAPH_BIR", 1);
        std::vector<float> block(512, 0.0f);
        for (int b = 0; b < 3; ++b) {
            if (b == 2) {
                sdk.qk_Vsrc_Set_Position(source, 1.0f, 0.3f, 1.3f);
            }
            sdk.qk_Ssrc_Gen_Samples_1P(sound, block.data(), 512, 16, 1, kRate);
            sdk.qk_Siml_Process_WinAmp(512, 16, 2, kRate);
        }
    }
    std::vector<std::filesystem::path> graphs;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        graphs.push_back(entry.path());
    }
    EXPECT_EQ(graphs.size(), 2u);  // the first block and the move
    ASSERT_FALSE(graphs.empty());
    std::ifstream svg(graphs.front());
    const std::string text((std::istreambuf_iterator<char>(svg)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("<svg"), std::string::npos);
    EXPECT_NE(text.find(">Left<"), std::string::npos);
    EXPECT_NE(text.find(">Right<"), std::string::npos);
    EXPECT_NE(text.find("Echogram, RT60: "), std::string::npos);
    EXPECT_NE(text.find("Total images: 37 / Used: 25"), std::string::npos);
    std::filesystem::remove_all(folder);
}

// From a room back to free field after the block length changed: the response handed to the
// host is the direction's HRTF, never more than the convolver's arrays hold.
TEST(RoomRender, BackToFreeFieldAfterANewBlockLength) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    CQKSDK sdk;
    sdk.qk_Siml_Set_Convolution(1);
    const RoomScene scene(sdk, 1);
    std::vector<float> block(1024, 0.0f);
    auto render = [&](int n) {
        sdk.qk_Ssrc_Gen_Samples_1P(scene.sound, block.data(), n, 16, 1, kRate);
        return sdk.qk_Siml_Process_WinAmp(n, 16, 2, kRate);
    };
    ASSERT_EQ(render(1024), 0);
    float *left = nullptr, *right = nullptr;
    int room = 0;
    sdk.qk_Vsrc_Get_BIR(scene.source, left, right, room);
    ASSERT_GT(room, 1000);
    ASSERT_EQ(render(512), 0);  // a new format: the convolver starts again from the set
    sdk.qk_SFM_Set(0);
    sdk.qk_Vsrc_Set_Position(scene.source, -1.0f, 1.0f, 1.3f);
    ASSERT_EQ(render(512), 0);
    int length = 0;
    sdk.qk_Vsrc_Get_BIR(scene.source, left, right, length);
    EXPECT_GT(length, 0);
    EXPECT_LE(length, 512);
}

// Without a room the reverberation time is 0 (in a new engine, and after a room is cleared)
// and the late part is tuned all the same: model 3, which hears only the reverbs, isn't
// silent, and the engine's pair of "ONEREVERB" is set up once rather than at every block.
TEST(RoomRender, NoRoomStillTunesTheLatePartOnce) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    for (int model : {3, 2}) {
        for (bool bHadRoom : {false, true}) {
            SCOPED_TRACE(testing::Message() << "model " << model << ", room before " << bHadRoom);
            CQKSDK sdk;
            sdk.qk_Siml_Set_AGC(0);
            sdk.qk_Research_Set_BOOL("ONEREVERB", model == 2 ? 1 : 0);
            sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
            sdk.qk_Asnk_Set(-2);
            sdk.qk_Siml_Set_PO(1);
            if (bHadRoom) {
                sdk.qk_Wrld_Preset(2);
            }
            sdk.qk_Wrld_None();
            sdk.qk_SFM_Set(model);
            int listener = 0, sound = 0, source = 0;
            sdk.qk_Vrcv_Add(listener);
            sdk.qk_Ssrc_Add_WMP(sound);
            sdk.qk_Vsrc_Add(source, sound, 0, 1.2f, 0.3f, 1.3f, "noise");
            std::mt19937 rng(3);
            std::normal_distribution<float> normal(0.0f, 1000.0f);
            std::vector<float> input(2048);
            double energy = 0.0;
            for (int b = 0; b < 3; ++b) {
                std::generate(input.begin(), input.end(), [&] { return normal(rng); });
                sdk.qk_Ssrc_Gen_Samples_1P(sound, input.data(), 2048, 16, 1, kRate);
                ASSERT_EQ(sdk.qk_Siml_Process_WinAmp(2048, 16, 2, kRate), 0);
                float *data = nullptr;
                sdk.qk_Vrcv_Get_Data(listener, data);
                for (int i = 0; i < 2 * 2048; ++i) {
                    energy += static_cast<double>(data[i]) * data[i];
                }
            }
            CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
            EXPECT_EQ(engine.m_Context.m_pSFM_ORMS->GetRT60(), 0.0f);
            EXPECT_GT(energy, 1.0);
            if (model == 2) {
                EXPECT_EQ(engine.m_ReverbL.m_fSampleRate, static_cast<float>(kRate));
                EXPECT_EQ(engine.m_ReverbR.m_fSampleRate, static_cast<float>(kRate));
            }
        }
    }
}
