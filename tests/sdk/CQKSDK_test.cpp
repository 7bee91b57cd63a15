#include "quendarik/CQKSDK.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/SdkAccess.h"

namespace {
using namespace std::chrono_literals;

// Waits until the engine's play loop has made more blocks than `than`, at most two seconds.
bool blocksPass(CQKSDK &sdk, int than) {
    for (int i = 0; i < 400; ++i) {
        int blocks = 0;
        sdk.qk_Siml_Get_Blocks(blocks);
        if (blocks > than) {
            return true;
        }
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

int blocksOf(CQKSDK &sdk) {
    int blocks = 0;
    sdk.qk_Siml_Get_Blocks(blocks);
    return blocks;
}

struct Messages {
    std::vector<std::string> texts;
    static int Record(unsigned long user, const char *text, const char *, int) {
        reinterpret_cast<Messages *>(user)->texts.push_back(text);
        return QK_ANSWER_NO;
    }
};

class Facade : public testing::Test {
  protected:
    void SetUp() override {
        sdk.qk_Appl_Register_On_Message(&Messages::Record,
                                        reinterpret_cast<unsigned long>(&messages));
    }
    void TearDown() override { sdk.qk_Appl_Register_On_Message(nullptr, 0); }

    CQKSDK sdk;
    Messages messages;
};
}  // namespace

TEST_F(Facade, StopWithoutPlayFailsAtOnce) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sdk.qkStop(), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

TEST_F(Facade, PlayStopAndTheResumePathThroughASecondPlay) {
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
    EXPECT_EQ(sdk.qkPlay(), 0);  // a new play starts afresh
    EXPECT_TRUE(blocksPass(sdk, 0));
    EXPECT_EQ(sdk.qkStop(), 0);
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
    sdk.qk_Leave_CS();  // one too many: no harm
    EXPECT_TRUE(blocksPass(sdk, held + 1));
    sdk.qkStop();
}

TEST_F(Facade, FileSourcesAreKnownByTheLastThreeCharacters) {
    int id = -5;
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, "x.ogg"), -1);
    ASSERT_EQ(messages.texts.size(), 1u);
    EXPECT_EQ(messages.texts[0], "OGG files are not supported.");

    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, "ab"), -1);  // too short: no message
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(id, nullptr), -1);
    EXPECT_EQ(messages.texts.size(), 1u);

    int wav = 0;
    int mp3 = 0;
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(wav, "/music/Song.WaV"), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Add_File(mp3, "trackmp3"), 0);  // no dot needed
    EXPECT_GT(mp3, wav);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(wav, "/music/other.wav"), 0);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(wav, "ab"), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(wav, nullptr), -1);
    EXPECT_EQ(messages.texts.size(), 1u);
}

TEST_F(Facade, UnknownIdsAndWrongKindsGetTheirResults) {
    int noise = 0;
    sdk.qk_Ssrc_Add_Gauss(noise);
    int unknown = noise + 1000;
    int enable = 42;
    EXPECT_EQ(sdk.qk_Ssrc_Get_Enable(unknown, enable), -1);
    EXPECT_EQ(enable, 42);
    EXPECT_EQ(sdk.qk_Ssrc_Set_Enable(unknown, 0), -1);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(unknown, nullptr, 512, 16, 2, 44100), -1);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_2P(unknown, nullptr, 512, 16, 2, 44100), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(unknown, "a.wav"), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_GetInfo(unknown, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(sdk.qk_Ssrc_File_Set(noise, "a.wav"), -2);  // noise is no file source
    EXPECT_EQ(sdk.qk_Ssrc_File_GetInfo(noise, nullptr, nullptr, nullptr), -2);

    EXPECT_EQ(sdk.qk_Ssrc_Set_Enable(noise, 0), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Get_Enable(noise, enable), 0);
    EXPECT_EQ(enable, 0);
    // A host-driven block of an engine source gives the source's own result.
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(noise, nullptr, 512, 16, 2, 44100), 0);
    EXPECT_EQ(sdk.qk_Ssrc_Gen_Samples_1P(noise, nullptr, 1 << 20, 16, 2, 44100), -1);
}

TEST_F(Facade, NamesAndHrtfPathsComeBack) {
    char buffer[1024] = {};
    char *out = buffer;
    sdk.qk_Appl_Set("Studio");
    sdk.qk_Appl_Get(out);
    EXPECT_STREQ(buffer, "Studio");

    sdk.qk_HRTF_Get(buffer);
    EXPECT_STREQ(buffer, "VORLAN1_16s_DFE.qkhrtf");  // requested by the engine at its start
    sdk.qk_HRTF_CTC_Get(buffer);
    EXPECT_STREQ(buffer, "KEMAR_SMALL_16s_DFE.qkhrtf");

    sdk.qk_HRTF_Set("mine.qkhrtf");
    sdk.qk_HRTF_Get_Full(buffer);
    EXPECT_NE(std::string(buffer).find("TORVELLAN/COMMON/QKHRTF/mine.qkhrtf"), std::string::npos);
    sdk.qk_HRTF_Set_Full(nullptr);
    sdk.qk_HRTF_Get_Full(buffer);
    EXPECT_STREQ(buffer, "");
    sdk.qk_HRTF_Get(nullptr);  // a null buffer is ignored

    int device = 0;
    sdk.qk_Asnk_Set(-2);
    sdk.qk_Asnk_Get(device);
    EXPECT_EQ(device, -2);
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
                int id = 0;
                sdk.qk_Ssrc_Add_Gauss(id);
                int enable = 0;
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
