// Reference scenes rendered through the facade in hosted blocks, every output block reduced to
// a hash and compared with the hashes kept in tests/data/golden/scenes.txt. The hashes hold
// bit for bit whatever the engine's inside looks like, and with one or two worker threads:
// a change of them is a change of what hosts hear. QK_GOLDEN_WRITE=1 writes the file anew
// (only when a change of sound is meant).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "support/ScopedSettingsDir.h"

namespace {
constexpr int kRate = 44100;
constexpr int kBlock = 1024;
constexpr int kBlocks = 8;
// Enough virtual sources in the crowded scene for the engine to cut them into two groups.
constexpr int kCrowd = 20;

const std::string kFolder = QK_TEST_HRTF_DATA;
const std::string kRenderSet = kFolder + "/VORLAN1_16s_DFE.qkhrtf";
const std::string kCancellerSet = kFolder + "/KEMAR_SMALL_16s_DFE.qkhrtf";
const std::string kGoldenFile = std::string(QK_TEST_DATA_DIR) + "/golden/scenes.txt";

// What distinguishes the reference scenes.
struct Scene {
    const char *name;
    int model;      // qk_SFM_Set
    int order;      // reflections of the image model
    int oneReverb;  // research flag "ONEREVERB"
    int output;     // qk_Siml_Set_PO: 1 headphones, 2 loudspeakers (the canceller)
    int sources;    // virtual sources, each with a host-fed sound of its own
};

const Scene kScenes[] = {
    {"free", 0, 0, 1, 1, 2},        {"images2", 1, 2, 1, 1, 2},    {"images3", 1, 3, 1, 1, 1},
    {"late_global", 2, 1, 1, 1, 2}, {"late_each", 2, 1, 0, 1, 2},  {"reverb_each", 3, 1, 0, 1, 2},
    {"canceller", 0, 0, 1, 2, 2},   {"crowd", 0, 0, 1, 1, kCrowd},
};

// FNV-1a over the bytes of the block's floats.
uint64_t Hash(const float *data, size_t count) {
    uint64_t h = 1469598103934665603ull;
    const auto *bytes = reinterpret_cast<const unsigned char *>(data);
    for (size_t i = 0; i < count * sizeof(float); ++i) {
        h = (h ^ bytes[i]) * 1099511628211ull;
    }
    return h;
}

// Where source k stands, and where it goes at the moves of blocks 3 and 5.
void Place(int k, int block, float &x, float &y, float &z) {
    const float a = 0.7f * static_cast<float>(k) + 0.35f * static_cast<float>(block / 3);
    x = 0.4f + 1.5f * std::cos(a);
    y = 0.2f + 1.5f * std::sin(a);
    z = 1.2f + 0.1f * static_cast<float>(k % 3);
}

// The hashes of the scene's blocks, one line of text.
std::string Render(const Scene &scene, int threads, int convolution) {
    CQKSDK sdk;
    sdk.qk_Siml_Set_Threads(threads);
    sdk.qk_Siml_Set_Convolution(convolution);
    sdk.qk_HRTF_Set_Full(kRenderSet.c_str());
    sdk.qk_HRTF_CTC_Set_Full(kCancellerSet.c_str());
    sdk.qk_Asnk_Set(-2);
    sdk.qk_Siml_Set_PO(scene.output);
    sdk.qk_Research_Set_BOOL("ONEREVERB", scene.oneReverb);
    sdk.qk_Wrld_Preset(2);  // the 6 x 6 x 4 m shoe box
    sdk.qk_SFM_Set(scene.model);
    sdk.qk_Siml_Set_SpecularOrder(scene.order);
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.6f, -0.2f, 1.7f, -0.6f, 5.0f, 1.7f);
    std::vector<int> sounds(static_cast<size_t>(scene.sources));
    std::vector<int> objects(sounds.size());
    for (int k = 0; k < scene.sources; ++k) {
        float x, y, z;
        Place(k, 0, x, y, z);
        sdk.qk_Ssrc_Add_WMP(sounds[static_cast<size_t>(k)]);
        sdk.qk_Vsrc_Add(objects[static_cast<size_t>(k)], sounds[static_cast<size_t>(k)], 0, x, y, z,
                        "golden");
    }
    std::mt19937 rng(11);
    std::normal_distribution<float> normal(0.0f, 2000.0f);
    std::vector<float> mono(kBlock);
    std::ostringstream line;
    for (int b = 0; b < kBlocks; ++b) {
        if (b == 3 || b == 5) {
            for (int k = 0; k < scene.sources; ++k) {
                float x, y, z;
                Place(k, b, x, y, z);
                sdk.qk_Vsrc_Set_Position(objects[static_cast<size_t>(k)], x, y, z);
            }
        }
        if (b == 6) {
            sdk.qk_Vrcv_Set_Position_LookAt(listener, -0.5f, -0.1f, 1.7f, 2.0f, 5.0f, 1.7f);
        }
        for (int sound : sounds) {
            for (float &v : mono) {
                v = normal(rng);
            }
            sdk.qk_Ssrc_Gen_Samples_1P(sound, mono.data(), kBlock, 16, 1, kRate);
        }
        EXPECT_EQ(sdk.qk_Siml_Process_WinAmp(kBlock, 16, 2, kRate), 0);
        float *data = nullptr;
        sdk.qk_Vrcv_Get_Data(listener, data);
        line << ' ' << std::hex << (data != nullptr ? Hash(data, 2 * kBlock) : 0);
    }
    return line.str();
}

// The golden file: "<scene>/<convolution> <hash>..." per line; the first line names the
// kernels the hashes were made with, as the wide ones round differently.
std::map<std::string, std::string> ReadGolden(std::string &kernels) {
    std::map<std::string, std::string> golden;
    std::ifstream in(kGoldenFile);
    std::getline(in, kernels);
    std::string line;
    while (std::getline(in, line)) {
        const size_t space = line.find(' ');
        if (space != std::string::npos) {
            golden[line.substr(0, space)] = line.substr(space);
        }
    }
    return golden;
}

std::string Kernels() {
    return __builtin_cpu_supports("avx2") ? "kernels avx2" : "kernels default";
}
}  // namespace

TEST(GoldenScenes, EveryBlockOfTheReferenceScenesIsAsBefore) {
    if (!std::ifstream(kRenderSet).good() || !std::ifstream(kCancellerSet).good()) {
        GTEST_SKIP() << "the build's default HRTF sets are missing";
    }
    const qktest::ScopedSettingsDir settings("golden");
    const char *write = std::getenv("QK_GOLDEN_WRITE");
    std::string kernels;
    const std::map<std::string, std::string> golden = ReadGolden(kernels);
    const bool compare = kernels == Kernels();
    std::ostringstream out;
    out << Kernels() << '\n';
    for (const Scene &scene : kScenes) {
        for (int convolution = 0; convolution <= 1; ++convolution) {
            const std::string key = std::string(scene.name) + "/" + std::to_string(convolution);
            SCOPED_TRACE(key);
            const std::string one = Render(scene, 1, convolution);
            EXPECT_EQ(Render(scene, 2, convolution), one) << "two threads differ from one";
            out << key << one << '\n';
            if (write == nullptr && compare) {
                const auto it = golden.find(key);
                ASSERT_NE(it, golden.end()) << "no hashes kept for this scene";
                EXPECT_EQ(one, it->second);
            }
        }
    }
    if (write != nullptr && std::strcmp(write, "1") == 0) {
        std::ofstream(kGoldenFile) << out.str();
    } else if (!compare) {
        GTEST_SKIP() << "hashes kept for \"" << kernels << "\", this machine has \"" << Kernels()
                     << "\": only one and two threads were compared";
    }
}
