#include "quendarik/CQKSDK.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/SdkAccess.h"

namespace {
using namespace std::chrono_literals;

int blocksOf(CQKSDK &sdk) {
    int blocks = 0;
    sdk.qk_Siml_Get_Blocks(blocks);
    return blocks;
}

// Waits until the engine's play loop has made more blocks than `than`, at most two seconds.
bool blocksPass(CQKSDK &sdk, int than) {
    for (int i = 0; i < 400 && blocksOf(sdk) <= than; ++i) {
        std::this_thread::sleep_for(5ms);
    }
    return blocksOf(sdk) > than;
}

class Facade : public testing::Test {
  protected:
    CQKSDK sdk;
};
}  // namespace

TEST_F(Facade, PlayStopAndTheResumePathThroughASecondPlay) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sdk.qkStop(), -1);  // nothing plays: fails at once
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    int noise = 0;
    ASSERT_EQ(sdk.qk_Ssrc_Add_Gauss(noise), 0);
    ASSERT_EQ(sdk.qkPlay(), 0);
    ASSERT_TRUE(blocksPass(sdk, 2));

    EXPECT_EQ(sdk.qkPause(), 0);
    std::this_thread::sleep_for(50ms);
    const int paused = blocksOf(sdk);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(blocksOf(sdk), paused);  // the loop idles

    EXPECT_EQ(sdk.qkPlay(), -1);  // already playing, but the pause flag is gone
    EXPECT_TRUE(blocksPass(sdk, paused));

    EXPECT_EQ(sdk.qkStop(), 0);
    EXPECT_EQ(sdk.qkStop(), -1);
}

TEST_F(Facade, PlaybackStateStartsPlayOnlyFromThreeToSeven) {
    int state = 0;
    sdk.qk_Get_Playback_State(state);
    EXPECT_EQ(state, 7);
    sdk.qk_Set_Playback_State(7);  // 7 to 7: nothing
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(blocksOf(sdk), 0);

    sdk.qk_Set_Playback_State(3);
    sdk.qk_Set_Playback_State(7);
    EXPECT_TRUE(blocksPass(sdk, 0));
    // The facade doesn't know it plays: its stop refuses, and the destructor must still end
    // the engine through the quit message.
    EXPECT_EQ(sdk.qkStop(), -1);
}

TEST_F(Facade, TheHostLockHoldsTheEngineBetweenBlocks) {
    int noise = 0;
    sdk.qk_Ssrc_Add_Gauss(noise);
    sdk.qkPlay();
    ASSERT_TRUE(blocksPass(sdk, 1));
    sdk.qk_Enter_CS();
    sdk.qk_Enter_CS();  // re-entrant for the owning thread
    const int held = blocksOf(sdk);
    std::this_thread::sleep_for(100ms);
    EXPECT_LE(blocksOf(sdk), held + 1);  // at most the block that was under way
    sdk.qk_Leave_CS();
    sdk.qk_Leave_CS();
    EXPECT_TRUE(blocksPass(sdk, held + 1));
    sdk.qkStop();
}

TEST_F(Facade, FileSourcesByTheLastThreeCharactersAndUnknownIds) {
    static std::vector<std::string> texts;
    sdk.qk_Appl_Register_On_Message(
        [](unsigned long, const char *text, const char *, int) -> int {
            texts.push_back(text);
            return QK_ANSWER_NO;
        },
        0);
    int id = -5;
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, "x.ogg"), -1);
    EXPECT_EQ(texts, (std::vector<std::string>{"OGG files are not supported."}));

    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, "ab"), -1);  // too short: no message
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, nullptr), -1);
    EXPECT_EQ(texts.size(), 1u);

    int wav = 0;
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(wav, "/music/Song.WaV"), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, "trackmp3"), 0);  // no dot needed
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(wav, nullptr), -1);
    EXPECT_EQ(texts.size(), 1u);
    sdk.qk_Appl_Register_On_Message(nullptr, 0);

    int noise = 0, enable = 42;
    sdk.qk_Ssrc_Add_Gauss(noise);
    int unknown = noise + 1000;
    EXPECT_EQ(sdk.qk_Ssrc_Get_Enable(unknown, enable), -1);
    EXPECT_EQ(enable, 42);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_2P(unknown, nullptr, 512, 16, 2, 44100), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_GetInfo(unknown, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(noise, "a.wav"), -2);  // noise is no file source
    // A host-driven block of an engine source gives the source's own result.
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(noise, nullptr, 1 << 20, 16, 2, 44100), -1);
}

TEST(FacadeLife, TwoHundredEnginesComeAndGo) {
    for (int i = 0; i < 200; ++i) {
        CQKSDK sdk;
        if (i % 50 == 0) {
            int noise = 0;
            sdk.qk_Ssrc_Add_Gauss(noise);
            sdk.qkPlay();  // the destructor stops a playing engine too
        }
    }
}

TEST(FacadeLife, AQuitDuringPlayLeavesTheDestructorFree) {
    auto sdk = std::make_unique<CQKSDK>();
    int noise = 0;
    sdk->qk_Ssrc_Add_Gauss(noise);
    sdk->qkPlay();
    ASSERT_TRUE(blocksPass(*sdk, 0));
    CQUENDARIK_PROCESSOR &engine = CQKSDKTestAccess::Engine(*sdk);
    engine.PostThreadMessage(qk::kMsgQuit, 0, 0);
    ASSERT_TRUE(engine.m_evtExited.Lock(5000));
    engine.m_evtExited.SetEvent();  // as it was, for the destructor's own wait
    const auto start = std::chrono::steady_clock::now();
    sdk.reset();  // qkStop finds the engine gone instead of waiting forever
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

TEST(FacadeLife, HostThreadsAddSourcesWhilePlaying) {
    CQKSDK sdk;
    CQKSDKTestAccess::Engine(sdk).m_Parameters.m_iBlockLength = 1024;
    sdk.qkPlay();
    std::vector<std::thread> hosts;
    for (int t = 0; t < 3; ++t) {
        hosts.emplace_back([&sdk] {
            for (int i = 0; i < 20; ++i) {
                int id = 0, enable = 0;
                sdk.qk_Ssrc_Add_Gauss(id);
                sdk.qk_Ssrc_Set_Enable(id, i % 2);
                sdk.qk_Ssrc_Get_Enable(id, enable);
            }
        });
    }
    for (auto &h : hosts) {
        h.join();
    }
    EXPECT_TRUE(blocksPass(sdk, 0));
    EXPECT_EQ(sdk.qkStop(), 0);
}
