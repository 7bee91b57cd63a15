// Uniformly partitioned convolution of one mono block with a left and a right response: the
// responses are cut into partitions of P taps, the spectra of the last input partitions are
// kept in a frequency-domain delay line, and each partition of input costs one forward
// transform, a multiply-add over the partitions and one inverse transform per ear, all of
// size N = 2P (or the next power of two). The whole response is heard, whatever its length
// and whatever the block length.
//
// P is the block length up to kMaxPartition frames; a longer block is worked through in
// partitions of kMaxPartition when it divides into them (so a 512-tap response at block 8192
// holds a few kilobytes of state), and as one partition otherwise.
//
// A new response takes over with a one-block cross-fade between the old and the new filter
// applied to the same input history, so the change is heard as a fade of two complete
// convolutions.
#pragma once

#include <cstddef>
#include <memory>

#include "binaural/CHRTFFilterBank.h"
#include "binaural/PartitionLayout.h"
#include "core/CSERVICE.h"
#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"

class CFrequencyMix;

class CSERVICE_PARTITIONED_HRTF : public CSERVICE {
  public:
    static constexpr int kMaxPartition = qk::partition::kMaxPartition;

    CSERVICE_PARTITIONED_HRTF() = default;
    ~CSERVICE_PARTITIONED_HRTF() override;

    using CSSS::_init;
    using CSSS::_process;

    // Takes a response pair of iLength taps for blocks of iBlockLength frames. With no filter
    // in use, or another block length, everything is set up anew and the history is silent;
    // otherwise the response waits for the next block, which fades from the filter in use to
    // it (a second call before that block replaces the waiting one). Allocates. Returns 0, or
    // -1 (nothing changed) for a length or block under 1, a null response, or a transform
    // beyond the signal layer.
    int SetResponse(const float *pfLeft, const float *pfRight, int iLength, int iBlockLength);
    // The same with a response pair whose spectra a table already holds (slots iLeft and
    // iRight of an HRTF set's table): no transform, no allocation. -1 (nothing changed) when
    // the table's partitions or transform don't fit this block length.
    int SetResponseSpectra(std::shared_ptr<const CHRTFFilterBank> table, int iLeft, int iRight,
                           int iBlockLength);
    // Convolves n input samples (n must be the block length given) and writes n left, then n
    // right samples to pfOut. Returns 0, or -1 with a silent block when no filter is in use
    // or n isn't the block length. Allocates nothing.
    int _process(const float *pfIn, int n, float *pfOut);
    // The same block added into a listener's spectrum sums instead, times fGain, for the
    // listener to transform back once for all its sources (a cross-fade adds to the mix's
    // change sums as well). -1, with nothing added or advanced, when no filter is in use, n isn't
    // the block length, or the mix isn't begun for this block length. Allocates nothing.
    int _processInto(const float *pfIn, int n, CFrequencyMix &mix, float fGain);
    // A cross-fade to a new response is under way: the next block fades into it.
    bool Fading() const { return m_bWaiting; }
    // True when the filter in use is slots iLeft and iRight of this table and no other waits:
    // a response made of them would change nothing.
    bool InUse(const CHRTFFilterBank &table, int iLeft, int iRight) const;
    // Drops everything. Returns 0.
    int _quit() override;
    // Silences the running convolution.
    void ClearHistory();

    // The partition length for a block length, and the transform order for a partition
    // (-1 beyond the signal layer).
    static int PartitionFor(int iBlockLength) { return qk::partition::PartitionFor(iBlockLength); }
    static int OrderFor(int iPartition) { return qk::partition::OrderFor(iPartition); }

    int PartitionLength() const { return m_iPartition; }
    int BlockLength() const { return m_iBlock; }
    // Bytes of convolution state held: delay line, filter spectra, window and work buffers.
    size_t StateBytes() const;

  private:
    // The spectra of a response's partitions, left and right, each partition 2 * bins floats
    // in the transform layer's CCS layout.
    struct Filter {
        // The spectra in use: the owned ones, or a shared table's.
        const float *left = nullptr;
        const float *right = nullptr;
        int iPartitions = 0;
        CIppBuffer ownLeft;  // made from a response by MakeFilter
        CIppBuffer ownRight;
        std::shared_ptr<const CHRTFFilterBank> table;  // kept while its spectra are in use
    };

    bool Setup(int iBlockLength);
    // The filter a new response goes to (set up anew for a first one or another block
    // length); null when the block length can't be worked.
    Filter *FilterFor(int iBlockLength, bool &bFresh);
    bool MakeFilter(Filter &filter, const float *pfLeft, const float *pfRight, int iLength);
    // Makes the delay line hold at least iPartitions spectra, keeping the newest ones.
    void GrowDelayLine(int iPartitions);
    // One partition of input (P samples) into the window and its spectrum into the delay line.
    void PushPartition(const float *pfIn);
    // The delay line through a filter: P samples of each ear to pfLeft and pfRight.
    void Convolve(const Filter &filter, float *pfLeft, float *pfRight);
    // Adds fGain times the delay line, iAge partitions back from the newest, through a filter
    // to the floats iFrom .. iTo of two spectrum sums.
    void Accumulate(const Filter &filter, int iAge, float *pfSumLeft, float *pfSumRight,
                    float fGain, int iFrom, int iTo) const;
    // The same through both filters of a cross-fade, into partition iPartition's sums of the
    // mix: the old filter's products to the steady sums, the new less the old to the change
    // sums.
    void AccumulateFading(int iAge, CFrequencyMix &mix, int iPartition, float fGain, int iFrom,
                          int iTo) const;

    int m_iBlock = 0;                         // block length in frames
    int m_iPartition = 0;                     // P
    int m_iFFTLength = 0;                     // N
    int m_iFloats = 0;                        // floats of one spectrum: 2 * (N / 2 + 1)
    IppsFFTSpec_R_32f *m_pFFTSpec = nullptr;  // owned
    CIppBuffer m_pfWindow;                    // the last N input samples
    CIppBuffer m_pfDelayLine;                 // m_iSlots spectra, a ring
    int m_iSlots = 0;
    int m_iNewest = 0;  // slot of the newest input spectrum; older ones follow upwards
    Filter m_filters[2];
    int m_iCurrent = 0;       // the filter in use
    bool m_bWaiting = false;  // the other filter takes over at the next block
    CIppBuffer m_pfSumLeft;   // each ear's spectrum sum, then its inverse transform in place
    CIppBuffer m_pfSumRight;
    CIppBuffer m_pfFadeOut;  // the old filter's block during a cross-fade, 2 * block floats
    CIppBuffer m_pfPadded;   // one partition of a response, padded to N
};
