// What the remote control asks for, handed to the thread that makes blocks without a lock:
// one writer (the OSC server's thread) and one reader (the render thread), which applies
// each change at the start of its next block, where the library takes moves anyway.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace qkcli {

// A few floats written whole by one thread and read whole by another (a sequence lock): the
// reader never sees half of a write and neither side ever waits on the other; a reader that
// meets a write in progress tries again, which the writer's few stores make rare.
template <int N>
class FloatSlot {
  public:
    void Write(const float (&values)[N]) {
        const uint32_t seq = m_seq.load(std::memory_order_relaxed);
        m_seq.store(seq + 1, std::memory_order_relaxed);  // odd: a write is in progress
        std::atomic_thread_fence(std::memory_order_release);
        for (int i = 0; i < N; ++i) {
            m_values[i].store(values[i], std::memory_order_relaxed);
        }
        m_seq.store(seq + 2, std::memory_order_release);
    }
    // Copies the values when a write newer than `seen` is complete, and moves `seen` on.
    bool ReadNew(uint32_t &seen, float (&values)[N]) const {
        for (;;) {
            const uint32_t before = m_seq.load(std::memory_order_acquire);
            if (before == seen) {
                return false;
            }
            if ((before & 1u) != 0) {
                continue;
            }
            for (int i = 0; i < N; ++i) {
                values[i] = m_values[i].load(std::memory_order_relaxed);
            }
            std::atomic_thread_fence(std::memory_order_acquire);
            if (m_seq.load(std::memory_order_relaxed) == before) {
                seen = before;
                return true;
            }
        }
    }

  private:
    std::atomic<uint32_t> m_seq{0};
    std::atomic<float> m_values[N]{};
};

struct SourceControls {
    FloatSlot<3> position;          // x, y, z in metres; once written, the trajectory stops
    std::atomic<float> gain{0.0f};  // dB, on what the program feeds the source
    std::atomic<int> mute{0};
};

struct SceneControls {
    explicit SceneControls(int iSources)
        : sources(std::make_unique<SourceControls[]>(static_cast<size_t>(iSources))),
          count(iSources) {}
    FloatSlot<6> listener;       // x, y, z, yaw, pitch, roll; once written, the trajectory stops
    std::atomic<int> order{-1};  // the reflection order asked for; -1 none
    std::unique_ptr<SourceControls[]> sources;
    int count;
};

}  // namespace qkcli
