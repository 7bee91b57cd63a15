// A virtual source in a room, end to end through the facade: what the listener hears is the
// source's sound through the room response the model made, and the room adds what free
// field hasn't got.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <vector>

#include "quendarik/CQKSDK.h"

namespace {
constexpr int kRate = 44100;
constexpr int kBlock = 4096;

const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

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
    sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
    sdk.qk_Asnk_Set(-2);
    sdk.qk_Siml_Set_PO(1);
    sdk.qk_Siml_Set_AGC(0);
    sdk.qk_Wrld_Preset(2);
    sdk.qk_SFM_Set(model);
    sdk.qk_Siml_Set_SpecularOrder(2);
    int listener = 0, sound = 0, source = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.6f, -0.2f, 1.9f, -0.6f, 5.0f, 1.9f);
    sdk.qk_Ssrc_Add_WMP(sound);
    sdk.qk_Vsrc_Add(source, sound, 0, 1.2f, 0.3f, 1.3f, "noise");
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
