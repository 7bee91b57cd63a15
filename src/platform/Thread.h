// A thread with its own message queue, the stand-in of the framework's UI thread. Messages
// are posted from any thread; the owning thread peeks, pumps one at a time, or runs a loop
// until the quit message.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace qk {

constexpr unsigned kMsgQuit = 18;  // the quit message ends the pump

struct ThreadMessage {
    unsigned message = 0;
    uintptr_t wParam = 0;
    intptr_t lParam = 0;
};

class CWinThread {
  public:
    CWinThread() = default;
    CWinThread(const CWinThread &) = delete;
    CWinThread &operator=(const CWinThread &) = delete;
    // Joins the thread if it still runs; a derived class must have ended it before its own
    // members go (see Join).
    virtual ~CWinThread();

    // Starts the thread: InitInstance, then Run when it succeeded, then ExitInstance.
    // bRealTime asks for real-time scheduling and silently keeps normal priority when the
    // system refuses it.
    bool CreateThread(bool bRealTime);
    // Waits for the thread to end. Safe to call more than once and from the destructor.
    void Join();

    // Queues a message for this thread. Thread-safe; never blocks.
    void PostThreadMessage(unsigned message, uintptr_t wParam, intptr_t lParam);
    // True when a message is waiting.
    bool PeekMessage() const;
    // Waits for one message and runs it. Returns false when it was the quit message.
    bool PumpMessage();
    // Waits until a message is waiting or the time has come, whichever is first; true when a
    // message is waiting. Lets a loop that paces itself by a clock still answer at once.
    bool WaitForMessage(std::chrono::steady_clock::time_point until) const;

    virtual bool InitInstance() { return true; }
    // The message loop: pumps until the quit message. Returns ExitInstance's result.
    virtual int Run();
    virtual int ExitInstance() { return 0; }

    std::thread::id GetThreadId() const { return m_threadId.load(std::memory_order_relaxed); }

  protected:
    // Runs one message other than quit; the message map of a derived class.
    virtual void OnThreadMessage(const ThreadMessage &msg) {}

  private:
    void ThreadMain();

    mutable std::mutex m_queueMutex;
    mutable std::condition_variable m_queueCv;
    // The queue, under m_queueMutex: a ring that grows by doubling and never shrinks, so that
    // a steady flow of messages allocates nothing.
    std::vector<ThreadMessage> m_ring;
    size_t m_head = 0;
    size_t m_count = 0;
    void Push(const ThreadMessage &msg);
    ThreadMessage Pop();
    std::thread m_thread;
    std::atomic<std::thread::id> m_threadId{};
};

}  // namespace qk
