#include "sdk/CQUENDARIK_PROCESSOR.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {
using namespace std::chrono_literals;

// A source that counts what the engine asks of it.
class CountingSource : public CSOURCE {
  public:
    int _init(int iBlockLength, int iSampleRate) override {
        ++inits;
        blockLength = iBlockLength;
        rate = iSampleRate;
        return 0;
    }
    int _process_1P(void *pData, int iLength, int, int, int) override {
        ++blocks;
        sawNullData = sawNullData && pData == nullptr && iLength == 512;
        return 0;
    }
    int _quit() override {
        ++quits;
        return 0;
    }
    std::atomic<int> inits{0}, blocks{0}, quits{0}, blockLength{0}, rate{0};
    std::atomic<bool> sawNullData{true};
};

bool waitFor(const std::atomic<int> &counter, int above) {
    for (int i = 0; i < 400 && counter <= above; ++i) {
        std::this_thread::sleep_for(5ms);
    }
    return counter > above;
}

class Engine : public testing::Test {
  protected:
    void SetUp() override {
        auto owned = std::make_unique<CountingSource>();
        source = owned.get();
        engine.AddSource(std::move(owned));
        engine.m_Parameters.m_iBlockLength = 512;
        ASSERT_TRUE(engine.CreateThread(false));
        ASSERT_TRUE(engine.m_evtStarted.Lock(5000));
    }
    void TearDown() override {
        engine.PostThreadMessage(qk::kMsgQuit, 0, 0);
        engine.m_evtExited.Lock(5000);
    }

    CQUENDARIK_PROCESSOR engine;
    CountingSource *source = nullptr;
};
}  // namespace

TEST_F(Engine, PlayInitialisesOncePullsEveryBlockAndStopEndsTheSources) {
    engine.PostThreadMessage(CQUENDARIK_PROCESSOR::kMsgPlay, 0, 0);
    ASSERT_TRUE(waitFor(source->blocks, 5));
    EXPECT_EQ(source->inits, 1);
    EXPECT_EQ(source->blockLength, 512);
    EXPECT_EQ(source->rate, 44100);  // real-time play is always at 44100 Hz
    EXPECT_TRUE(source->sawNullData);

    engine.PostThreadMessage(CQUENDARIK_PROCESSOR::kMsgStop, 0, 0);
    ASSERT_TRUE(engine.m_evtStopped.Lock(5000));
    EXPECT_EQ(source->quits, 1);
    EXPECT_EQ(engine.m_iStopRequested, 0);
}

TEST_F(Engine, AQuitDuringPlayLeavesWithoutEndingTheSources) {
    engine.PostThreadMessage(CQUENDARIK_PROCESSOR::kMsgPlay, 0, 0);
    ASSERT_TRUE(waitFor(source->blocks, 0));
    engine.PostThreadMessage(qk::kMsgQuit, 0, 0);
    ASSERT_TRUE(engine.m_evtExited.Lock(5000));
    EXPECT_TRUE(engine.HasExited());
    EXPECT_EQ(source->quits, 0);
    EXPECT_FALSE(engine.m_evtStopped.Lock(0));
    // A hosted block after the thread ended returns at once.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(engine._processWinAmpThread(512, 16, 2, 44100), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
    engine.m_evtExited.SetEvent();  // for TearDown's wait
}
