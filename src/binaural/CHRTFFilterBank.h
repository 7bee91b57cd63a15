// The spectra of every response of an HRTF set, cut into partitions for the partitioned
// convolver: made once per set and partition length, shared by every virtual source, so that a
// source that moves takes a new direction's filter without a transform of its own.
#pragma once

#include <memory>

#include "dsp/IppBuffer.h"

class CHRTFFilterBank {
  public:
    // The spectra of iSlots responses of iTaps samples each (slot s at pfData + s * iTaps),
    // in partitions of iPartition taps and transforms of the next power of two at or above
    // 2 * iPartition, in the transform layer's CCS layout. Null when it can't be made.
    static std::shared_ptr<const CHRTFFilterBank> Make(const float *pfData, int iSlots, int iTaps,
                                                       int iPartition);

    int PartitionLength() const { return m_iPartition; }
    int Partitions() const { return m_iPartitions; }  // of one response
    int FFTLength() const { return m_iFFTLength; }
    int Floats() const { return m_iFFTLength + 2; }  // of one partition's spectrum
    int Slots() const { return m_iSlots; }
    // The first partition's spectrum of slot s; the others follow it, Floats() apart.
    const float *Slot(int iSlot) const {
        return m_data + static_cast<long long>(iSlot) * m_iPartitions * Floats();
    }

  private:
    CHRTFFilterBank() = default;

    CIppBuffer m_data;
    int m_iPartition = 0;
    int m_iPartitions = 0;
    int m_iFFTLength = 0;
    int m_iSlots = 0;
};
