#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <vector>

#include "platform/Clock.h"
#include "platform/Event.h"

using qk::CEvent;

TEST(Event, AutomaticResetReleasesOneWaitOnly) {
    CEvent event(false, false);
    EXPECT_FALSE(event.Lock(0));
    event.SetEvent();
    EXPECT_TRUE(event.Lock(0));
    EXPECT_FALSE(event.Lock(0));  // the wait cleared it
}

TEST(Event, ManualResetStaysSetUntilReset) {
    CEvent event(false, true);
    event.SetEvent();
    EXPECT_TRUE(event.Lock(0));
    EXPECT_TRUE(event.Lock(0));
    event.ResetEvent();
    EXPECT_FALSE(event.Lock(0));
}

TEST(Event, WaitTimesOutAfterItsLimitAndWakesFromAnotherThread) {
    CEvent event;
    const uint32_t start = qk::GetTickCount();
    EXPECT_FALSE(event.Lock(50));
    EXPECT_GE(qk::GetTickCount() - start, 45u);

    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        event.SetEvent();
    });
    EXPECT_TRUE(event.Lock(CEvent::kInfinite));
    setter.join();
}

namespace {
class Recorder : public qk::CWinThread {
  public:
    bool InitInstance() override {
        started.SetEvent();
        return true;
    }
    int ExitInstance() override {
        exited.SetEvent();
        return 0;
    }
    std::vector<unsigned> seen;  // the thread's own record; read after it has ended
    CEvent started;
    CEvent exited;

  protected:
    void OnThreadMessage(const qk::ThreadMessage &msg) override {
        seen.push_back(msg.message);
        if (msg.message == 100) {
            // A handler that pumps nested messages itself, as the play loop does.
            while (PeekMessage()) {
                if (!PumpMessage()) {
                    PostThreadMessage(qk::kMsgQuit, 0, 0);
                    return;
                }
            }
        }
    }
};
}  // namespace

TEST(WinThread, MessagesRunInOrderAndQuitEndsTheLoop) {
    Recorder thread;
    // Posted before the thread runs: nothing is lost.
    thread.PostThreadMessage(1, 0, 0);
    thread.PostThreadMessage(2, 0, 0);
    ASSERT_TRUE(thread.CreateThread(false));
    ASSERT_TRUE(thread.started.Lock(5000));
    thread.PostThreadMessage(3, 0, 0);
    thread.PostThreadMessage(qk::kMsgQuit, 0, 0);
    thread.PostThreadMessage(4, 0, 0);  // after the quit: never run
    ASSERT_TRUE(thread.exited.Lock(5000));
    thread.Join();
    EXPECT_EQ(thread.seen, (std::vector<unsigned>{1, 2, 3}));
}

TEST(WinThread, QuitSeenInsideANestedPumpStillEndsTheThread) {
    Recorder thread;
    thread.PostThreadMessage(100, 0, 0);
    thread.PostThreadMessage(5, 0, 0);
    thread.PostThreadMessage(qk::kMsgQuit, 0, 0);
    ASSERT_TRUE(thread.CreateThread(true));  // real-time if allowed, else silently normal
    ASSERT_TRUE(thread.exited.Lock(5000));
    thread.Join();
    EXPECT_EQ(thread.seen, (std::vector<unsigned>{100, 5}));
}

TEST(WinThread, ManyThreadsPostAtOnce) {
    Recorder thread;
    ASSERT_TRUE(thread.CreateThread(false));
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                thread.PostThreadMessage(7, 0, 0);
            }
        });
    }
    for (auto &p : posters) {
        p.join();
    }
    thread.PostThreadMessage(qk::kMsgQuit, 0, 0);
    ASSERT_TRUE(thread.exited.Lock(5000));
    thread.Join();
    EXPECT_EQ(thread.seen.size(), 2000u);
}
