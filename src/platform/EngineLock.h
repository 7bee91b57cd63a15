// The engine's one lock: re-entrant for the owning thread. A thread that spins on it (the
// engine's block loop with no device to pace it) hands it over to waiting threads between
// blocks, so that host threads are never starved of it.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace qk {

class CEngineLock {
  public:
    void lock() {
        m_iWaiting.fetch_add(1, std::memory_order_relaxed);
        m_mutex.lock();
        m_iWaiting.fetch_sub(1, std::memory_order_relaxed);
    }
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

    // Called by a thread that holds no lock, before it takes the lock again: lets threads
    // that are waiting for it go first, for a bounded while.
    void YieldToWaiters() {
        for (int i = 0; i < 10000 && m_iWaiting.load(std::memory_order_relaxed) > 0; ++i) {
            std::this_thread::yield();
        }
    }

  private:
    std::recursive_mutex m_mutex;
    std::atomic<int> m_iWaiting{0};
};

}  // namespace qk
