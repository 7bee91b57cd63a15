// Whole-filter fast convolution of one mono block with a left and a right response: one
// forward transform of the padded block and one product and inverse transform per ear, with
// no partitioning of the response, whatever the block length. The transforms and the buffers
// that hold nothing from one block to the next belong to the thread, shared by all its
// convolvers of the same transform length.
//
// The running overlap of each ear lives in a buffer apart from the spectra: _quit leaves it
// alone and _init only grows it, so that a change of response during play keeps the
// convolution that is already sounding.
#pragma once

#include "core/CSERVICE.h"
#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"

class CSERVICE_OVERLAP_HRTF : public CSERVICE {
  public:
    CSERVICE_OVERLAP_HRTF() = default;
    ~CSERVICE_OVERLAP_HRTF() override;

    using CSSS::_adjustDataBuffer;
    using CSSS::_init;
    using CSSS::_process;

    // Takes a response pair of iLength taps into use for blocks of iBlockLength frames: the
    // transform length N is the power of two at or above iLength - 1 + iBlockLength, and the
    // spectra of both responses (zero-padded to N) are made here, once. The overlap and tail
    // buffers grow to N, keeping what they hold. Returns 0, or -1 (nothing changed) for a
    // length or block under 1, a null response, or an N beyond the transform layer.
    virtual int _init(float *pfLeft, float *pfRight, int iLength, int iBlockLength);
    // Convolves n input samples and writes n left, then n right samples to pfOut (2n floats).
    // Sample j of a block hears the response up to lag 2n + j: only one block of older overlap
    // survives each shift, which is what limits the audible length of a response longer than
    // N - 2n. Returns 0, or -1 with a silent block when nothing is in use or n exceeds N.
    virtual int _process(float *pfIn, int n, float *pfOut);
    // The n input samples of the last _process, which the convolver keeps until its next
    // _process, _init or _quit; null when that block wasn't taken in or had another length.
    const float *LastInput(int n) const {
        return m_iInputHeld == n && n > 0 ? m_pfInput.get() : nullptr;
    }
    // Forgets the last input, so that LastInput tells of a block still to come.
    void ForgetInput() { m_iInputHeld = 0; }
    // Drops the spectra and the input buffer, but not the overlap buffers. Returns 0.
    int _quit() override;

    // Makes buffer hold at least iWanted floats: a missing one is made and zeroed, a shorter one
    // grows with its contents kept and the rest zeroed, a longer one stays as it is. iSize
    // follows the floats held. Returns 0.
    static int _adjustDataBuffer(CIppBuffer &buffer, int &iSize, int iWanted);

    // Silences the running convolution: the overlap buffers are zeroed.
    void ClearHistory();

    int m_iFFTLength = 0;         // N, a power of two; 0 before the first _init
    int m_iFFTOrder = 0;          // log2 N
    int m_iLength = 0;            // taps of the responses in use
    CIppBuffer m_pfSpectrumLeft;  // N + 2 floats, CCS layout
    CIppBuffer m_pfSpectrumRight;
    CIppBuffer m_pfOverlapLeft;  // running overlap of the left ear
    int m_iOverlapLeftSize = 0;
    CIppBuffer m_pfOverlapRight;
    int m_iOverlapRightSize = 0;
    CIppBuffer m_pfInput;  // padded block, N floats

  private:
    int m_iInputWritten = 0;  // leading floats of m_pfInput that may be non-zero
    int m_iInputHeld = 0;     // frames of the last block that m_pfInput holds; 0: none
    // Each ear's overlap is zero from this index to the end of its buffer, so the block
    // neither reads nor clears what is known to be zero.
    int m_iZeroFromLeft = 0;
    int m_iZeroFromRight = 0;
};
