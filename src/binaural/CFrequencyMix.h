// A listener's block in the frequency domain, for the sources that convolve partitioned: each
// adds its filtered input spectra (times its level) into the sums of each partition, and the
// listener transforms each sum back once. The output is linear in every source, so one
// inverse transform per ear and partition serves all of them, however many there are.
//
// Sources whose response changes this block add the old filter's products to the steady sum
// and the new filter's less the old's to a change sum, which is faded in over the block with
// the one ramp of the cross-fade, the same for every source: old + r (new - old) is the
// cross-fade (1 - r) old + r new, with one sum and one inverse transform fewer.
#pragma once

#include <array>

#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"

class CFrequencyMix {
  public:
    enum Kind { kSteady = 0, kChange = 1 };
    static constexpr int kKinds = 2;

    CFrequencyMix() = default;
    ~CFrequencyMix();
    CFrequencyMix(const CFrequencyMix &) = delete;
    CFrequencyMix &operator=(const CFrequencyMix &) = delete;

    // Starts a block of n frames: partitions and transform as the partitioned convolver
    // makes them for that block length. Allocates when the block length changes, never in
    // the steady state. False when no transform can be made.
    bool Begin(int n);
    // Ends the block: each sum that a source used is transformed back and its last P samples
    // added to pfBlock (n left, then n right), faded in where it is the change sum. The sums are
    // left zeroed for the next block. Nothing happens when no block was begun.
    void Finish(float *pfBlock);
    // Drops the block begun (its sums are zeroed): nothing is added.
    void Abandon();

    // The sum of one kind for one ear (0 left, 1 right) and partition, of Floats() floats in
    // the transform layer's CCS layout. Null when no block is begun or the partition is out
    // of range. Several threads may add to distinct floats of the sums at once.
    float *Sum(Kind kind, int iEar, int iPartition);
    // Says that sums of a kind were added to this block, so that Finish transforms them. On
    // one thread, before Finish.
    void MarkUsed(Kind kind) { m_used[kind] = true; }
    bool Used(Kind kind) const { return m_used[kind]; }
    // Moves every sum another mix of the same block used into this mix's sums (added here,
    // zeroed there, and marked used here), and ends the other's block.
    void Take(CFrequencyMix &other);
    int Partitions() const { return m_iPartitions; }
    bool Active() const { return m_bActive; }
    int BlockLength() const { return m_iBlock; }
    int FFTLength() const { return m_iFFTLength; }
    int Floats() const { return m_iFFTLength + 2; }

  private:
    void Reset();

    int m_iBlock = 0;
    int m_iPartition = 0;
    int m_iPartitions = 0;  // of the block
    int m_iFFTLength = 0;
    IppsFFTSpec_R_32f *m_pFFTSpec = nullptr;  // owned
    // For each kind: 2 ears x partitions sums, one after the other.
    std::array<CIppBuffer, kKinds> m_sums;
    std::array<bool, kKinds> m_used{};
    CIppBuffer m_pfTime;  // one inverse transform
    bool m_bActive = false;
};
