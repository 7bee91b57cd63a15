// Blocks of planar floats handed from one thread to one other without a lock: the JACK
// process callback on one side, the render thread on the other. All memory is taken when the
// ring is made; neither side allocates, waits or makes a system call here.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qkcli {

class BlockRing {
  public:
    // iSlots blocks of iChannels channels of at most iMaxFrames frames each.
    BlockRing(int iSlots, int iChannels, int iMaxFrames)
        : m_slots(static_cast<size_t>(iSlots)),
          m_channels(static_cast<size_t>(iChannels)),
          m_maxFrames(static_cast<size_t>(iMaxFrames)),
          m_frames(m_slots, 0),
          m_tags(m_slots, 0),
          m_data(m_slots * m_channels * m_maxFrames, 0.0f) {}

    // Blocks written and not yet read.
    size_t Ready() const {
        return static_cast<size_t>(m_written.load(std::memory_order_acquire) -
                                   m_read.load(std::memory_order_acquire));
    }
    bool Full() const { return Ready() >= m_slots; }

    // The writer: the slot to fill next (channel k at k * MaxFrames()), then Publish.
    float *WriteSlot() { return Slot(m_written.load(std::memory_order_relaxed)); }
    // iTag: what the block is for (the period it belongs to).
    void Publish(int iFrames, uint64_t iTag = 0) {
        const uint64_t at = m_written.load(std::memory_order_relaxed);
        m_frames[at % m_slots] = iFrames;
        m_tags[at % m_slots] = iTag;
        m_written.store(at + 1, std::memory_order_release);  // the samples before the count
    }

    // The reader, once Ready() has said there is one: the oldest block, its frames and its
    // tag, then Release.
    const float *ReadSlot(int &iFrames, uint64_t &iTag) const {
        const uint64_t at = m_read.load(std::memory_order_relaxed);
        iFrames = m_frames[at % m_slots];
        iTag = m_tags[at % m_slots];
        return Slot(at);
    }
    void Release() {
        m_read.store(m_read.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    size_t MaxFrames() const { return m_maxFrames; }
    size_t Channels() const { return m_channels; }

  private:
    float *Slot(uint64_t at) const {
        return const_cast<float *>(m_data.data()) + (at % m_slots) * m_channels * m_maxFrames;
    }

    size_t m_slots;
    size_t m_channels;
    size_t m_maxFrames;
    std::vector<int> m_frames;
    std::vector<uint64_t> m_tags;
    std::vector<float> m_data;
    std::atomic<uint64_t> m_written{0};
    std::atomic<uint64_t> m_read{0};
};

}  // namespace qkcli
