// The C interface as a C host uses it: real HRTF sets, worlds, files and threads.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "quendarik/quendarik.h"
#include "support/ScratchFiles.h"

namespace {
const std::string kSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
const char *const kSofa = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";
constexpr int kRate = 48000;
constexpr int kBlock = 512;

bool haveSet() {
    std::FILE *f = std::fopen(kSet.c_str(), "rb");
    if (f != nullptr) {
        std::fclose(f);
    }
    return f != nullptr;
}

double energy(const std::vector<float> &x) {
    double sum = 0.0;
    for (float v : x) {
        sum += static_cast<double>(v) * v;
    }
    return sum;
}

// An engine with the build's set and one host source playing at a virtual source.
struct Scene {
    Scene() {
        e = qk_engine_create(kRate, kBlock);
        EXPECT_NE(e, nullptr);
        EXPECT_EQ(qk_engine_set_hrtf(e, kSet.c_str()), QK_OK) << qk_last_error();
        EXPECT_EQ(qk_source_add_host(e, &source), QK_OK);
    }
    ~Scene() { qk_engine_destroy(e); }
    // Renders blocks of an impulse train (one every block) and gives the ears' energies.
    void RenderImpulses(int blocks, double &leftEnergy, double &rightEnergy) {
        std::vector<float> in(kBlock, 0.0f), left(kBlock), right(kBlock);
        in[0] = 0.5f;
        leftEnergy = rightEnergy = 0.0;
        for (int b = 0; b < blocks; ++b) {
            ASSERT_EQ(qk_source_push(e, source, in.data(), kBlock), QK_OK);
            ASSERT_EQ(qk_engine_render(e, left.data(), right.data(), kBlock), QK_OK)
                << qk_last_error();
            leftEnergy += energy(left);
            rightEnergy += energy(right);
        }
    }
    qk_engine *e = nullptr;
    int source = 0;
};
}  // namespace

TEST(CApi, RefusesBadArgumentsWithCodesAndWords) {
    EXPECT_EQ(qk_engine_create(1000, kBlock), nullptr);
    EXPECT_NE(std::strstr(qk_last_error(), "1000 Hz"), nullptr) << qk_last_error();
    EXPECT_EQ(qk_engine_create(kRate, QK_MAX_FRAMES + 1), nullptr);
    EXPECT_EQ(qk_engine_render(nullptr, nullptr, nullptr, 1), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_shoebox(nullptr, 1, 1, 1), QK_E_ARGUMENT);
    qk_engine_destroy(nullptr);
    qk_free(nullptr);
    int major = -1, minor = -1, patch = -1;
    EXPECT_EQ(std::sscanf(qk_version(), "%d.%d.%d", &major, &minor, &patch), 3);

    qk_engine *e = qk_engine_create(kRate, kBlock);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(qk_engine_sample_rate(e), kRate);
    int id = 0;
    float buffer[4] = {0};
    EXPECT_EQ(qk_engine_set_shoebox(e, 5, -1, 3), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_shoebox(e, NAN, 4, 3), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_model(e, 5, 2), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_model(e, 1, 31), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_preset(e, 7), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_set_convolution(e, 2), QK_E_ARGUMENT);
    EXPECT_EQ(qk_source_add_noise(e, 2.0f, &id), QK_E_ARGUMENT);
    EXPECT_EQ(qk_vsource_add(e, 12345, 0, 1, 0, &id), QK_E_NOT_FOUND);
    EXPECT_EQ(qk_vsource_move(e, 12345, 0, 1, 0), QK_E_NOT_FOUND);
    EXPECT_EQ(qk_vsource_remove(e, 12345), QK_E_NOT_FOUND);
    EXPECT_EQ(qk_source_push(e, 12345, buffer, 4), QK_E_NOT_FOUND);
    EXPECT_EQ(qk_source_push(e, 0, nullptr, 4), QK_E_ARGUMENT);
    EXPECT_EQ(qk_listener_set(e, 0, 0, INFINITY, 0, 0, 0), QK_E_ARGUMENT);
    EXPECT_EQ(qk_engine_render(e, buffer, buffer, 0), QK_E_ARGUMENT);
    float *l = nullptr, *r = nullptr;
    int n = 0;
    EXPECT_EQ(qk_room_response(e, 12345, &l, &r, &n), QK_E_NOT_FOUND);
    qk_engine_destroy(e);
}

TEST(CApi, FileProblemsNameTheFileAndReachTheHandler) {
    qktest::ScratchFiles files;
    qk_engine *e = qk_engine_create(44100, 256);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(qk_engine_set_hrtf(e, "/nonexistent/set.qkhrtf"), QK_E_FILE);
    EXPECT_NE(std::strstr(qk_last_error(), "/nonexistent/set.qkhrtf"), nullptr);
    const std::string junk = files.Write("junk.qkhrtf", qktest::Bytes(300, 7));
    EXPECT_EQ(qk_engine_set_hrtf(e, junk.c_str()), QK_E_FILE);
    EXPECT_NE(std::strstr(qk_last_error(), junk.c_str()), nullptr);
    // Without a set nothing is rendered, and the block is silence, not garbage.
    float left[256], right[256];
    std::fill(left, left + 256, 9.0f);
    std::fill(right, right + 256, 9.0f);
    EXPECT_EQ(qk_engine_render(e, left, right, 256), QK_E_HRTF);
    EXPECT_EQ(left[0], 0.0f);
    EXPECT_EQ(right[255], 0.0f);

    const std::string junkSofa = files.Write("junk.sofa", qktest::Bytes(300, 7));
    EXPECT_EQ(qk_engine_set_hrtf(e, junkSofa.c_str()), QK_E_FILE);
    EXPECT_NE(std::strstr(qk_last_error(), junkSofa.c_str()), nullptr) << qk_last_error();

    EXPECT_EQ(qk_engine_load_world(e, "/nonexistent/room.txt"), QK_E_FILE);
    const std::string empty = files.Write("empty_world.txt", qktest::Bytes());
    EXPECT_EQ(qk_engine_load_world(e, empty.c_str()), QK_E_FILE);
    EXPECT_NE(std::strstr(qk_last_error(), "describes no room"), nullptr);
    const std::string world = std::string(QK_TEST_SOURCE_ROOT) + "/data/worlds/shoebox_mixed.txt";
    EXPECT_EQ(qk_engine_load_world(e, world.c_str()), QK_OK) << qk_last_error();

    static std::atomic<int> s_iTexts{0};
    qk_set_message_handler(
        [](void *, int, const char *text) {
            if (std::strstr(text, "OGG") != nullptr) {
                ++s_iTexts;
            }
        },
        nullptr);
    int id = 0;
    const std::string ogg = files.Write("sound.ogg", qktest::Bytes(64, 1));
    EXPECT_EQ(qk_source_add_file(e, ogg.c_str(), &id), QK_E_FILE);
    EXPECT_NE(std::strstr(qk_last_error(), "OGG files are not supported"), nullptr)
        << qk_last_error();
    EXPECT_EQ(s_iTexts.load(), 1);
    qk_set_message_handler(nullptr, nullptr);
    EXPECT_EQ(qk_source_add_file(e, "/nonexistent/a.wav", &id), QK_E_FILE);
    const std::string wave = files.Wave("tone.wav", std::vector<int>(4800, 1000), 1, 48000);
    EXPECT_EQ(qk_source_add_file(e, wave.c_str(), &id), QK_OK) << qk_last_error();
    qk_engine_destroy(e);
}

TEST(CApi, EarsAndTurnsFollowTheLibrarysAzimuths) {
    if (!haveSet()) {
        GTEST_SKIP() << "the build made no HRTF set";
    }
    // Free field; a source 1 m to the left (-x) is louder in the left ear.
    Scene scene;
    int vs = 0;
    ASSERT_EQ(qk_vsource_add(scene.e, scene.source, -1.0f, 0.0f, 0.0f, &vs), QK_OK);
    double l = 0, r = 0;
    scene.RenderImpulses(4, l, r);
    EXPECT_GT(l, 4.0 * r);
    // Turned a quarter anticlockwise (yaw 90), the listener faces it: both ears alike. The
    // source on the right of the turned listener (+y) is louder in the right ear.
    // Each change is heard after two blocks, once the fade and the old tail are through.
    ASSERT_EQ(qk_listener_set(scene.e, 0, 0, 0, 90.0f, 0.0f, 0.0f), QK_OK);
    scene.RenderImpulses(2, l, r);
    scene.RenderImpulses(4, l, r);
    EXPECT_NEAR(l / r, 1.0, 0.5);
    ASSERT_EQ(qk_vsource_move(scene.e, vs, 0.0f, 1.0f, 0.0f), QK_OK);
    scene.RenderImpulses(2, l, r);
    scene.RenderImpulses(4, l, r);
    EXPECT_GT(r, 4.0 * l);
}

TEST(CApi, HostQueueTakesWhatFitsAndRendersSilenceWhenEmpty) {
    if (!haveSet()) {
        GTEST_SKIP() << "the build made no HRTF set";
    }
    Scene scene;
    int vs = 0;
    ASSERT_EQ(qk_vsource_add(scene.e, scene.source, 0.0f, 1.0f, 0.0f, &vs), QK_OK);
    // The queue holds four blocks, and at least 4096 frames.
    constexpr int kQueue = 4096;
    std::vector<float> big(kQueue + 1), left(kBlock), right(kBlock);
    for (size_t i = 0; i < big.size(); ++i) {
        big[i] = 0.25f * std::sin(0.13f * static_cast<float>(i));  // about 1 kHz
    }
    EXPECT_EQ(qk_source_push(scene.e, scene.source, big.data(), kQueue + 1), QK_E_FULL);
    EXPECT_NE(std::strstr(qk_last_error(), "don't fit"), nullptr);
    EXPECT_EQ(qk_source_push(scene.e, scene.source, big.data(), 0), QK_OK);
    // Nothing queued: silence, block after block.
    for (int b = 0; b < 3; ++b) {
        ASSERT_EQ(qk_engine_render(scene.e, left.data(), right.data(), kBlock), QK_OK);
        EXPECT_EQ(energy(left) + energy(right), 0.0);
    }
    // A full queue fits; each render takes a block; then the source falls silent again.
    ASSERT_EQ(qk_source_push(scene.e, scene.source, big.data(), kQueue), QK_OK);
    double total = 0.0;
    for (int b = 0; b < kQueue / kBlock; ++b) {
        ASSERT_EQ(qk_engine_render(scene.e, left.data(), right.data(), kBlock), QK_OK);
        total += energy(left);
    }
    EXPECT_GT(total, 0.0);
    // The convolution's tail of the last samples goes within two blocks.
    for (int b = 0; b < 2; ++b) {
        ASSERT_EQ(qk_engine_render(scene.e, left.data(), right.data(), kBlock), QK_OK);
    }
    double tail = 0.0;
    for (int b = 0; b < 3; ++b) {
        ASSERT_EQ(qk_engine_render(scene.e, left.data(), right.data(), kBlock), QK_OK);
        tail += energy(left) + energy(right);
    }
    EXPECT_LT(tail, 1e-9 * total);
}

TEST(CApi, RoomResponseAndEchogramStartWithTheDirectSound) {
    if (!haveSet()) {
        GTEST_SKIP() << "the build made no HRTF set";
    }
    Scene scene;
    int vs = 0;
    float *left = nullptr, *right = nullptr, *echo = nullptr;
    int frames = 0, echoFrames = 0;
    ASSERT_EQ(qk_engine_set_shoebox(scene.e, 5.0f, 4.0f, 3.0f), QK_OK);
    ASSERT_EQ(qk_engine_set_model(scene.e, QK_MODEL_IMAGES, 2), QK_OK);
    ASSERT_EQ(qk_vsource_add(scene.e, scene.source, 1.0f, 1.5f, 1.2f, &vs), QK_OK);
    ASSERT_EQ(qk_listener_set(scene.e, 0.0f, -0.5f, 1.2f, 0, 0, 0), QK_OK);
    EXPECT_EQ(qk_room_response(scene.e, vs, &left, &right, &frames), QK_E_STATE);
    double l = 0, r = 0;
    scene.RenderImpulses(1, l, r);
    ASSERT_EQ(qk_room_response(scene.e, vs, &left, &right, &frames), QK_OK) << qk_last_error();
    ASSERT_EQ(qk_echogram(scene.e, vs, &echo, &echoFrames), QK_OK) << qk_last_error();
    EXPECT_GT(frames, 0);
    // The direct path: sqrt(1 + 4) m at the speed of sound, gain 1/d; then the reflections.
    const double d = std::sqrt(5.0);
    int first = 0;
    while (first < echoFrames && echo[first] == 0.0f) {
        ++first;
    }
    // The speed of sound follows the room's temperature: within 2 % of 343 m/s.
    EXPECT_NEAR(first, d / 343.0 * kRate, 0.02 * d / 343.0 * kRate);
    ASSERT_LT(first, echoFrames);
    EXPECT_NEAR(echo[first], 1.0 / d, 0.01);
    int impulses = 0;
    for (int i = 0; i < echoFrames; ++i) {
        impulses += echo[i] != 0.0f;
    }
    EXPECT_GT(impulses, 10);  // order 2 in a box: the direct sound and many images
    double early = 0.0;
    for (int i = 0; i < frames; ++i) {
        early += static_cast<double>(left[i]) * left[i] + static_cast<double>(right[i]) * right[i];
    }
    EXPECT_GT(early, 0.0);
    qk_free(left);
    qk_free(right);
    qk_free(echo);
    // Free field makes no echogram.
    ASSERT_EQ(qk_engine_set_model(scene.e, QK_MODEL_FREE_FIELD, 0), QK_OK);
    scene.RenderImpulses(1, l, r);
    echo = nullptr;
    const int result = qk_echogram(scene.e, vs, &echo, &echoFrames);
    EXPECT_TRUE(result == QK_E_STATE || result == QK_OK);
    qk_free(echo);
}

TEST(CApi, SofaSetIsImportedOnTheFly) {
    std::FILE *f = std::fopen(kSofa, "rb");
    if (f == nullptr) {
        GTEST_SKIP() << kSofa << " isn't installed";
    }
    std::fclose(f);
    qk_engine *e = qk_engine_create(kRate, kBlock);
    int noise = 0, vs = 0;
    ASSERT_EQ(qk_engine_set_hrtf(e, kSofa), QK_OK) << qk_last_error();
    ASSERT_EQ(qk_source_add_noise(e, 0.1f, &noise), QK_OK);
    ASSERT_EQ(qk_vsource_add(e, noise, 1.0f, 0.0f, 0.0f, &vs), QK_OK);
    std::vector<float> left(kBlock), right(kBlock);
    double l = 0.0, r = 0.0;
    for (int b = 0; b < 4; ++b) {
        ASSERT_EQ(qk_engine_render(e, left.data(), right.data(), kBlock), QK_OK);
        l += energy(left);
        r += energy(right);
    }
    EXPECT_GT(r, 2.0 * l);  // the source is on the right
    qk_engine_destroy(e);
}

TEST(CApi, MovesFromAnotherThreadNeverStopTheBlocks) {
    if (!haveSet()) {
        GTEST_SKIP() << "the build made no HRTF set";
    }
    qk_engine *e = qk_engine_create(kRate, 256);
    int noise = 0, vs = 0;
    ASSERT_EQ(qk_engine_set_hrtf(e, kSet.c_str()), QK_OK);
    ASSERT_EQ(qk_source_add_noise(e, 0.1f, &noise), QK_OK);
    ASSERT_EQ(qk_vsource_add(e, noise, 1.0f, 1.0f, 0.0f, &vs), QK_OK);
    std::atomic<bool> stop{false};
    std::atomic<int> moves{0};
    std::thread mover([&] {
        for (int i = 0; !stop.load(); ++i) {
            const float a = 0.01f * static_cast<float>(i);
            qk_vsource_move(e, vs, std::cos(a), std::sin(a), 0.0f);
            qk_listener_set(e, 0, 0, 0, static_cast<float>(i % 360), 0, 0);
            ++moves;
        }
    });
    std::vector<float> left(256), right(256);
    // Blocks go on until the mover has been at work for a while (on a busy machine it may
    // start late), within a bound.
    for (int b = 0; b < 40 || (moves.load() < 50 && b < 4000); ++b) {
        ASSERT_EQ(qk_engine_render(e, left.data(), right.data(), 256), QK_OK);
        for (float v : left) {
            ASSERT_TRUE(std::isfinite(v));
        }
    }
    stop = true;
    mover.join();
    EXPECT_GE(moves.load(), 50);
    qk_engine_destroy(e);
}
