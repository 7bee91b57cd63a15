// The cross-talk canceller: lets a binaural signal made for headphones be heard over two
// loudspeakers. Each loudspeaker reaches both ears; the service filters the left and right
// signals by the inverse of that 2 x 2 acoustic matrix, made from an HRTF set at the two
// loudspeaker positions, so that each ear hears only its own signal.
//
// With a and b the responses from loudspeaker 1 to the left and right ear, c and d those of
// loudspeaker 2, the inverse is [d -c; -b a] / det with det = a*d - b*c. 1 / det is inverted
// regularised (its level kept within +-3 dB of its mean), and a second stage (TES) flattens,
// within its own level band, what both outputs give a signal common to both inputs. The
// filters are long, so they run in the frequency domain with overlap-add; the TES filters are
// folded into the same spectra, so a block costs two forward and two inverse transforms of N
// and four spectrum products.
//
// The design runs inline, in the first block and after a loudspeaker moved by more than
// 3 degrees; it allocates. A block that doesn't redesign allocates nothing.
#pragma once

#include "binaural/CHELPER_HRTF.h"
#include "core/CSERVICE.h"
#include "dsp/CFILTER_DESIGN.h"
#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"

class CQUENDARIC_Service_CrossTalk : public CSERVICE {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_CrossTalk)

  public:
    static constexpr float kRedesignDegrees = 3.0f;  // a larger move of a loudspeaker redesigns
    static constexpr int kInverseTaps = 4096;        // taps of 1 / det kept
    static constexpr int kInverseDynamic = 6;        // dB band of 1 / det (+-3 dB)
    static constexpr int kTESTaps = 1024;
    static constexpr float kSpeedOfSound = 343.0f;  // m/s
    // The most samples of path delay a loudspeaker's distance adds (about 1.5 s at 44.1 kHz).
    static constexpr int kMaxPathDelay = 1 << 16;

    CQUENDARIC_Service_CrossTalk() = default;
    ~CQUENDARIC_Service_CrossTalk() override;

    // Designs the canceller for loudspeaker 1 (left output) and 2 (right output) at the given
    // azimuth and elevation (degrees) and distance (m), for blocks of up to iBlockLength frames
    // at iSampleRate Hz. Unequal distances over 0.1 m delay and attenuate (1 / distance) each
    // such loudspeaker's path; equal ones apply neither. Returns 1, or 0 with a null set or a
    // direction the set lacks (the service is then empty).
    int Initialize(CHELPER_HRTF *pHRTF, float fAzimuth1, float fElevation1, float fDistance1,
                   float fAzimuth2, float fElevation2, float fDistance2, int iBlockLength,
                   int iFilterMode, int iSampleRate, float fTES);
    // The TES stage: inverts what each output gives a common signal, within a band of m_fTES
    // dB, then stores fTES. The band in force is thus the one of the call before: the first
    // design after construction uses 12 dB. Returns 0.
    int InitializeTES(float fTES);
    // Filters the planar block (iLength left, then iLength right) in place. Redesigns first
    // when a loudspeaker's azimuth or elevation moved by more than 3 degrees, the mode or the
    // rate changed, or iLength exceeds N; distances alone never redesign. A new fTES rebuilds
    // the TES stage. Returns 1, or 0 (block untouched) when the service is empty or a
    // redesign failed.
    int GetSamples(CHELPER_HRTF *pHRTF, float fAzimuth1, float fElevation1, float fDistance1,
                   float fAzimuth2, float fElevation2, float fDistance2, int iBlockLength,
                   int iFilterMode, float *pfData, int iLength, int iSampleRate, float fTES);
    // Frees the design and the tails; the loudspeaker fields stay. Returns 1.
    int Terminate();
    virtual int ResetInternalBuffers() { return 0; }

    // Taps of each canceller filter (the longest route), TES excluded; 0 when empty.
    int FilterLength() const { return m_iFilterLength; }

    CFILTER_DESIGN m_Design;
    float m_fAzimuth1 = 0.0f, m_fElevation1 = 0.0f, m_fDistance1 = 0.0f;
    float m_fAzimuth2 = 0.0f, m_fElevation2 = 0.0f, m_fDistance2 = 0.0f;
    int m_iFilterMode = 0;  // stored and compared only
    int m_iSeparateStages = 0;
    float m_fTES = 12.0f;  // dB, the band of the next TES design
    int m_iSampleRate = 0;
    // The routes' impulse responses (N + 2 floats): LL left in to left out, RL right in to
    // left out, LR left in to right out, RR right in to right out. The signs of the inverse
    // are applied when the outputs are formed.
    CIppBuffer m_pfFilterLL, m_pfFilterRL, m_pfFilterLR, m_pfFilterRR;
    // Their spectra (Pack, N floats), without TES.
    CIppBuffer m_pfSpectrumLL, m_pfSpectrumRL, m_pfSpectrumLR, m_pfSpectrumRR;
    IppsFFTSpec_R_32f *m_pFFTSpec = nullptr;
    CIppBuffer m_pfTailL, m_pfTailR;       // overlap tails, N floats each
    int m_iFFTLength = 0;                  // N
    int m_iFFTOrder = 0;                   // log2 N
    CIppBuffer m_pfTESLeft, m_pfTESRight;  // the TES filters, kTESTaps taps each

  private:
    bool Fetch(CHELPER_HRTF *pHRTF, float fAzimuth, float fElevation, float fDistance,
               float fOtherDistance, float *&pfLeftEar, float *&pfRightEar, int &iLength);
    void MakeRoutes(const float *a, const float *b, int iLengthA, const float *c, const float *d,
                    int iLengthC, const float *g);
    // One TES filter for an output whose common-signal response is pfDirect - pfCross.
    void DesignTES(const float *pfDirect, const float *pfCross, int iDynamic, CIppBuffer &taps);
    // The spectra the blocks run: each route's spectrum times its output's TES spectrum.
    void FoldTES();
    void ProcessPiece(float *pfLeft, float *pfRight, int n);

    int m_iFilterLength = 0;
    int m_iPiece = 0;  // the most frames one transform pair can take exactly
    // Run spectra (Pack, N): route spectra with TES folded in.
    CIppBuffer m_pfRunLL, m_pfRunRL, m_pfRunLR, m_pfRunRR;
    CIppBuffer m_pfWorkL, m_pfWorkR, m_pfOutL, m_pfOutR;  // N floats each
};
