// The queue of caller-owned byte buffers behind a wave device, and the device's own thread
// that works through it in order. The device says when the front buffer may be taken and
// what is done with it; the queue keeps the lock, the thread, and the wait of a reset for the
// buffer in work. Byte is uint8_t for an input (the device writes the bytes) and const
// uint8_t for an output.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace qk {

template <typename Byte>
class CBufferQueue {
  public:
    struct Buffer {
        Byte *pbData;
        size_t iBytes;
        int iIndex;
    };
    // Called under the queue's lock: whether the front buffer may be taken now.
    using ReadyFn = std::function<bool()>;
    // Called on the device thread, outside the lock, with the buffer taken off the queue. A
    // reset waits until it returns.
    using WorkFn = std::function<void(const Buffer &)>;

    // Starts the device thread. A null ready takes every buffer as soon as it is queued.
    void Start(ReadyFn ready, WorkFn work) {
        m_ready = std::move(ready);
        m_work = std::move(work);
        m_bQuit = false;
        m_thread = std::thread([this] { Run(); });
    }

    void Push(const Buffer &buffer) {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_queue.push_back(buffer);
        }
        m_cv.notify_all();
    }

    // Runs change under the lock and wakes the thread: for what ready() looks at.
    template <typename F>
    void Update(F change) {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            change();
        }
        m_cv.notify_all();
    }

    // Takes every queued buffer off and waits until the one in work is done; then runs
    // afterIdle under the lock, before any other buffer can be taken. Returns the buffers
    // taken off, in order.
    template <typename F>
    std::deque<Buffer> Drain(F afterIdle) {
        std::deque<Buffer> dropped;
        std::unique_lock<std::mutex> lock(m_mutex);
        dropped.swap(m_queue);
        m_cv.wait(lock, [this] { return !m_bWorking; });
        afterIdle();
        return dropped;
    }

    // Ends the device thread and waits for it. Buffers still queued stay queued.
    void Stop() {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            m_bQuit = true;
        }
        m_cv.notify_all();
        m_thread.join();
    }

  private:
    void Run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_cv.wait(lock,
                      [this] { return m_bQuit || (!m_queue.empty() && (!m_ready || m_ready())); });
            if (m_bQuit) {
                return;
            }
            const Buffer buffer = m_queue.front();
            m_queue.pop_front();
            m_bWorking = true;
            lock.unlock();
            m_work(buffer);
            lock.lock();
            m_bWorking = false;
            m_cv.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_cv;
    std::deque<Buffer> m_queue;
    bool m_bWorking = false;  // the device thread is inside m_work
    bool m_bQuit = false;
    ReadyFn m_ready;
    WorkFn m_work;
    std::thread m_thread;
};

}  // namespace qk
