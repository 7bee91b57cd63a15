// Where a host thread leaves a move for the engine: the position and look-at of one rendering
// object, published whole by any thread and taken whole by the engine at the start of a block.
// Publishing never waits for the engine and allocates nothing; a block never sees half a move.
//
// A sequence word guards the six values: it is odd while a writer is inside, and writers
// exclude one another by moving it from even to odd. The engine reads the values between two
// equal even readings. The values themselves are atomic words, so that a reading made while
// a writer is inside is a defined (and discarded) one.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

class CPoseSlot {
  public:
    // Position x, y, z then look-at x, y, z, in metres.
    using Pose = std::array<float, 6>;

    // Any thread. Two hosts moving the same object at once are put in some order.
    void Publish(const Pose &pose) {
        uint32_t seq = m_uSequence.load(std::memory_order_relaxed);
        for (;;) {
            if ((seq & 1u) == 0 &&
                m_uSequence.compare_exchange_weak(seq, seq + 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed)) {
                break;
            }
            if ((seq & 1u) != 0) {
                std::this_thread::yield();  // another writer is inside for a few stores
                seq = m_uSequence.load(std::memory_order_relaxed);
            }
        }
        // Release stores: the odd sequence is seen before any of the new values.
        for (size_t i = 0; i < pose.size(); ++i) {
            m_afPose[i].store(pose[i], std::memory_order_release);
        }
        m_uSequence.store(seq + 2, std::memory_order_release);
    }

    // The engine (or the worker rendering the object during a block), or a thread holding the
    // engine lock: true, with the pose last published, when one was published since the last
    // Take.
    bool Take(Pose &pose) {
        for (;;) {
            const uint32_t before = m_uSequence.load(std::memory_order_acquire);
            if (before == m_uTaken) {
                return false;
            }
            if ((before & 1u) != 0) {
                std::this_thread::yield();
                continue;
            }
            Pose read;
            // Acquire loads: the second reading of the sequence comes after all of them, and
            // sees any writer whose value was read.
            for (size_t i = 0; i < read.size(); ++i) {
                read[i] = m_afPose[i].load(std::memory_order_acquire);
            }
            if (m_uSequence.load(std::memory_order_relaxed) == before) {
                m_uTaken = before;
                pose = read;
                return true;
            }
        }
    }

  private:
    std::atomic<uint32_t> m_uSequence{0};
    std::array<std::atomic<float>, 6> m_afPose{};
    uint32_t m_uTaken = 0;  // the sequence of the pose taken last; under the engine lock
};
