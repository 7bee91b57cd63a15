// Moves and turns from host threads: they never wait for a block, and each block sees whole
// poses only. Built into the test program and, alone, under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "support/HrtfSets.h"
#include "support/SdkAccess.h"
#include "support/WaveWriter.h"

namespace {
using namespace std::chrono_literals;

// A facade with a small data set of its own, a listener and `count` virtual sources of one
// noise source, rendering with no output device.
class Scene {
  public:
    explicit Scene(int count) : m_set(qktest::ScratchPath("moves.qkhrtf")) {
        auto set = qktest::MakeSet(3, 32, "BOTH", 44100);
        qktest::FillLookup(*set, 0);
        const std::vector<uint8_t> bytes = qktest::StoreToBytes(*set);
        std::FILE *file = std::fopen(m_set.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
        sdk.qk_HRTF_Set_Full(m_set.c_str());
        sdk.qk_Asnk_Set(-2);
        sdk.qkSimSetBlockLength(256);
        sdk.qk_Vrcv_Add(listener);
        int noise = 0;
        sdk.qk_Ssrc_Add_Gauss(noise);
        for (int i = 0; i < count; ++i) {
            int id = 0;
            sdk.qk_Vsrc_Add(id, noise, 0, 1.0f, 1.0f, 0.0f, "moved");
            sources.push_back(id);
        }
    }
    ~Scene() { std::remove(m_set.c_str()); }

    CQKSDK sdk;
    int listener = 0;
    std::vector<int> sources;

  private:
    std::string m_set;
};

// A pose a host writes whole: every coordinate follows from k, so that a mix of two writes
// shows.
bool whole(const C3Point &p) {
    return p.y == 2.0f * p.x && p.z == 3.0f * p.x;
}

struct Seen {
    CQUENDARIK_PROCESSOR *engine = nullptr;
    std::atomic<int> blocks{0};
    std::atomic<int> torn{0};
    std::atomic<bool> moved{false};
};

void checkBlock(unsigned long user, float *, float *, int, int, int, int, float) {
    Seen &seen = *reinterpret_cast<Seen *>(user);
    for (const auto &object : seen.engine->m_list3DSources) {
        const C3Point &p = object->m_pVRSource->m_position;
        seen.moved = seen.moved || p.x > 1.0f;
        if (!whole(p) && p.x != 1.0f) {  // 1, 1, 0: where it was added
            ++seen.torn;
        }
    }
    for (const auto &sink : seen.engine->m_list3DSinks) {
        const C3Point &at = sink->m_position;
        const C3Point &look = sink->m_lookAt;
        if ((at.x != 0.0f || look.y != 1.0f) &&
            (!whole(at) || look.x != at.x || look.y != at.y + 1.0f || look.z != at.z)) {
            ++seen.torn;
        }
    }
    ++seen.blocks;
}
}  // namespace

// While the engine lock is held (as during a long block), a host's moves return at once and
// take effect at the next block.
TEST(Moves, NeverWaitForTheEngineLock) {
    Scene scene(1);
    CQKSDK &sdk = scene.sdk;
    ASSERT_EQ(sdk.qk_Enter_CS(), 0);
    auto moves = std::async(std::launch::async, [&] {
        return sdk.qk_Vsrc_Set_Position(scene.sources[0], 3.0f, 6.0f, 9.0f) +
               sdk.qk_Vrcv_Set_Position_LookAt(scene.listener, 1.0f, 2.0f, 3.0f, 1.0f, 3.0f, 3.0f) +
               sdk.qk_Vsrc_Set_Position(12345, 0.0f, 0.0f, 0.0f);  // unknown: -1
    });
    const bool returned = moves.wait_for(2s) == std::future_status::ready;
    sdk.qk_Leave_CS();
    ASSERT_TRUE(returned) << "a move waited for the engine lock";
    EXPECT_EQ(moves.get(), -1);
    float x = 0, y = 0, z = 0, lx = 0, ly = 0, lz = 0;
    sdk.qk_Vsrc_Get_Position(scene.sources[0], x, y, z);
    EXPECT_EQ((std::vector<float>{x, y, z}), (std::vector<float>{3.0f, 6.0f, 9.0f}));
    sdk.qk_Vrcv_Get_Position_LookAt(scene.listener, x, y, z, lx, ly, lz);
    EXPECT_EQ((std::vector<float>{x, y, z, lx, ly, lz}),
              (std::vector<float>{1.0f, 2.0f, 3.0f, 1.0f, 3.0f, 3.0f}));
    EXPECT_GE(sdk.qk_Siml_Process_WinAmp(256, 16, 2, 44100), 0);
    EXPECT_EQ(CQKSDKTestAccess::Engine(sdk).m_list3DSources[0]->m_position,
              C3Point(3.0f, 6.0f, 9.0f, 0));
}

// Two host threads move every source and the listener as fast as they can while the engine
// plays; every block sees poses that one host wrote whole.
TEST(Moves, EveryBlockSeesWholePosesFromTwoHostThreads) {
    Scene scene(8);
    CQKSDK &sdk = scene.sdk;
    Seen seen;
    seen.engine = &CQKSDKTestAccess::Engine(sdk);
    sdk.qk_Appl_Register_On_Values(reinterpret_cast<unsigned long>(&checkBlock),
                                   reinterpret_cast<unsigned long>(&seen));
    sdk.qkPlay();
    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    auto host = [&](float first) {
        for (float k = first; !stop; k = k + 1.0f > first + 500.0f ? first : k + 1.0f) {
            ++rounds;
            for (int id : scene.sources) {
                sdk.qk_Vsrc_Set_Position(id, k, 2.0f * k, 3.0f * k);
            }
            sdk.qk_Vrcv_Set_Position_LookAt(scene.listener, k, 2.0f * k, 3.0f * k, k,
                                            2.0f * k + 1.0f, 3.0f * k);
        }
    };
    std::thread a(host, 2.0f);
    std::thread b(host, 1000.0f);
    const auto until = std::chrono::steady_clock::now() + 1500ms;
    while (std::chrono::steady_clock::now() < until &&
           (seen.blocks < 2000 || rounds < 2000 || !seen.moved)) {
        std::this_thread::sleep_for(10ms);
    }
    stop = true;
    a.join();
    b.join();
    sdk.qkStop();
    sdk.qk_Appl_UnRegister_On_Values();
    EXPECT_GT(seen.blocks, 20);
    EXPECT_TRUE(seen.moved);
    EXPECT_EQ(seen.torn, 0);
}

// Four host threads add, move, re-link and remove virtual sources and listeners while the
// engine plays as fast as it can with workers: nothing crashes, races or leaks (the program
// runs under the sanitizers), and play goes on. QK_STRESS_SECONDS sets the time (default 5).
TEST(Moves, HostsChangingTheSceneWhileWorkersRender) {
    const char *text = std::getenv("QK_STRESS_SECONDS");
    const double seconds = text != nullptr ? std::atof(text) : 5.0;
    Scene scene(24);  // enough for two groups of sources, rendered by different threads
    CQKSDK &sdk = scene.sdk;
    // Each removal of a listener is reported; counted, not printed.
    static std::atomic<int> s_reports{0};
    sdk.qk_Appl_Register_On_Message(
        [](unsigned long, const char *, const char *, int) -> int {
            ++s_reports;
            return QK_ANSWER_OK;
        },
        0);
    sdk.qk_Siml_Set_Threads(4);
    sdk.qk_Siml_Set_Convolution(1);
    // In a room, each source with a late part of its own: rebuilds go through the room model
    // from the workers.
    sdk.qk_Wrld_ShoeBox(6.0f, 6.0f, 4.0f);
    sdk.qk_SFM_Set(2);
    sdk.qk_Research_Set_BOOL("ONEREVERB", 0);
    int second = 0;
    sdk.qk_Ssrc_Add_Gauss(second);
    sdk.qkPlay();
    std::atomic<bool> stop{false};
    std::atomic<int> changes{0};
    auto until = [&] { return stop.load(); };
    std::vector<std::thread> hosts;
    hosts.emplace_back([&] {  // sources come and go
        for (int k = 0; !until(); ++k) {
            int id = 0;
            sdk.qk_Vsrc_Add(id, k % 2 == 0 ? second : 1, 0, 1.0f, 0.5f * (k % 7), 0.0f, "new");
            std::this_thread::sleep_for(1ms);
            sdk.qk_Vsrc_Remove(id);
            ++changes;
        }
    });
    hosts.emplace_back([&] {  // everything known moves, and some unknown ids are asked for
        for (int k = 0; !until(); ++k) {
            for (int id = 0; id < 64; ++id) {
                sdk.qk_Vsrc_Set_Position(id, std::sin(0.01f * k + id), 1.0f, 0.2f);
            }
            sdk.qk_Vrcv_Set_Position_LookAt(scene.listener, 0.0f, 0.01f * (k % 100), 0.0f, 0.0f,
                                            1.0f + 0.01f * (k % 100), 0.0f);
            ++changes;
        }
    });
    hosts.emplace_back([&] {  // re-linked: channel, enable, convolution method
        for (int k = 0; !until(); ++k) {
            for (int id : scene.sources) {
                sdk.qk_Vsrc_Set_AudioLink(id, k % 3);
                sdk.qk_Vsrc_Set_Enable(id, (k + id) % 5 != 0);
            }
            sdk.qk_Siml_Set_Convolution(k % 50 == 0 ? 0 : 1);
            if (k % 40 == 0) {  // the room models in turn, the shared one among them
                sdk.qk_SFM_Set(k / 40 % 4);
                sdk.qk_Research_Set_BOOL("ORMS", k / 160 % 2);
            }
            std::this_thread::sleep_for(1ms);
            ++changes;
        }
    });
    hosts.emplace_back([&] {  // listeners come and go
        CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(sdk);
        for (int k = 0; !until(); ++k) {
            int id = 0;
            sdk.qk_Vrcv_Add(id);
            std::this_thread::sleep_for(2ms);
            engine.Remove3DListener(id);
            ++changes;
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int before = 0;
    sdk.qk_Siml_Get_Blocks(before);
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(50ms);
    }
    stop = true;
    for (std::thread &host : hosts) {
        host.join();
    }
    int after = 0;
    sdk.qk_Siml_Get_Blocks(after);
    sdk.qkStop();
    sdk.qk_Appl_Register_On_Message(nullptr, 0);
    EXPECT_GT(after, before);
    EXPECT_GT(changes.load(), 100);
}
