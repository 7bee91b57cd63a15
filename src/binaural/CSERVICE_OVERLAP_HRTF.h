// Whole-filter fast convolution of one mono block with a left and a right response: one
// forward transform of the padded block and one product and inverse transform per ear, with
// no partitioning of the response, whatever the block length.
//
// The running overlap of each ear and the tail of the last block live in buffers apart from
// the spectra: _quit leaves them alone and _init only grows them, so that a change of response
// during play keeps the convolution that is already sounding.
#pragma once

#include "binaural/CSERVICE.h"
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
    // Drops the spectra, the work buffers and the transform, but not the overlap and tail
    // buffers. Returns 0.
    int _quit() override;

    // Makes buffer hold at least iWanted floats: a missing one is made and zeroed, a shorter one
    // grows with its contents kept and the rest zeroed, a longer one stays as it is. iSize
    // follows the floats held. Returns 0.
    static int _adjustDataBuffer(CIppBuffer &buffer, int &iSize, int iWanted);

    // Silences the running convolution: the overlap and tail buffers are zeroed.
    void ClearHistory();

    int m_iFFTLength = 0;         // N, a power of two; 0 before the first _init
    int m_iFFTOrder = 0;          // log2 N
    int m_iLength = 0;            // taps of the responses in use
    CIppBuffer m_pfSpectrumLeft;  // N floats, Pack layout
    CIppBuffer m_pfSpectrumRight;
    IppsFFTSpec_R_32f *m_pFFTSpec = nullptr;  // owned
    CIppBuffer m_pfOverlapLeft;               // running overlap of the left ear
    int m_iOverlapLeftSize = 0;
    CIppBuffer m_pfOverlapRight;
    int m_iOverlapRightSize = 0;
    CIppBuffer m_pfInput;          // padded block, N floats
    CIppBuffer m_pfInputSpectrum;  // its spectrum
    CIppBuffer m_pfProductLeft;    // per block, N floats each
    CIppBuffer m_pfTimeLeft;
    CIppBuffer m_pfProductRight;
    CIppBuffer m_pfTimeRight;
    CIppBuffer m_pfTailLeft;  // tail of the current block, left
    int m_iTailLeftSize = 0;
    CIppBuffer m_pfTailRight;
    int m_iTailRightSize = 0;

  private:
    int m_iInputWritten = 0;  // leading floats of m_pfInput that may be non-zero
};
