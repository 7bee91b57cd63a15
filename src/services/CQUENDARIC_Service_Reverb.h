// A Schroeder reverb for one channel: feedback combs in parallel, all-passes in series, then a
// delay of half the onset and a 10 kHz low pass. It knows nothing of rooms: the late part tunes
// its delays and gains from a reverberation time.
//
// Calling order: SetParameters, Initialize, Process for each block, Cleanup. The combs' sum is
// not scaled: the level follows from their count and gains. The dry and wet mix is the
// caller's.
#pragma once

#include <memory>
#include <vector>

#include "core/CSERVICE.h"
#include "core/CSERVICE_FILTER.h"
#include "dsp/IppBuffer.h"
#include "services/CQUENDARIC_Service_Delay.h"

class CQUENDARIC_Service_Reverb : public CSERVICE {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_Reverb)

  public:
    CQUENDARIC_Service_Reverb() = default;
    // SetParameters without damping.
    CQUENDARIC_Service_Reverb(const float *pfDelays, const float *pfGains, int iCombs,
                              int iAllPasses);
    ~CQUENDARIC_Service_Reverb() override = default;

    // Delays in seconds and linear gains, the combs' first and then the all-passes'; only the
    // first iCombs + iAllPasses entries are read. pfDamping (may be null) holds one output
    // filter corner per comb, as a fraction of the rate. Destroys any running combs and tail.
    // Negative counts count as 0.
    void SetParameters(const float *pfDelays, const float *pfGains, int iCombs, int iAllPasses,
                       const float *pfDamping);
    // fOnset in samples: the chain ends in a delay of fOnset / 2 samples (an onset under 2
    // gives no delay). Sets up the low pass, the delay, the combs and the all-passes with
    // silent lines.
    void Initialize(float fOnset, int iSampleRate);
    // One block. With neither combs nor all-passes pfOut is left alone. pfIn and pfOut may be
    // the same array. Allocates only when the block grows.
    void Process(const float *pfIn, float *pfOut, int iLength);
    // Process for two reverbs at once (the two ears of a pair), their low passes run side by
    // side; the same results as two calls of Process.
    static void ProcessPair(CQUENDARIC_Service_Reverb &left, const float *pfInLeft,
                            float *pfOutLeft, CQUENDARIC_Service_Reverb &right,
                            const float *pfInRight, float *pfOutRight, int iLength);
    // Back to the empty state; m_fSampleRate reads 0 afterwards.
    void Cleanup();

    CSERVICE_FILTER m_Filter;  // the output low pass
    int m_iCombs = 0;
    int m_iAllPasses = 0;
    float m_fSampleRate = 0.0f;     // rate of the last Initialize; 0 after Cleanup
    std::vector<float> m_pfDelays;  // combs' then all-passes' delays, seconds
    std::vector<float> m_pfGains;   // in the same order
    std::unique_ptr<CQUENDARIC_Service_Comb[]> m_pCombs;
    std::unique_ptr<CQUENDARIC_Service_AllPass[]> m_pAllPasses;
    CQUENDARIC_Service_Delay m_Delay;  // at the end of the chain
    float m_fOnset = 0.0f;             // samples
    int m_iFirstBlock = 1;             // cleared by the first Process after a set-up

  private:
    // The low pass, run here rather than through m_Filter: m_Filter holds its design, this its
    // running state, in double precision.
    struct LowPass {
        double b0 = 1.0, b1 = 0.0, b2 = 0.0, a1 = 0.0, a2 = 0.0;  // divided by a0
        double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;            // past inputs and outputs
        bool active = false;
    };

    void Clear();
    void GrowScratch(int iLength);
    // Everything before the low pass; false when there is nothing to run.
    bool ProcessChain(const float *pfIn, float *pfOut, int iLength);
    static void RunLowPass(LowPass &a, float *pfA, LowPass *pB, float *pfB, int iLength);

    CIppBuffer m_pfMix;      // the combs' sum, then the all-passes' output
    CIppBuffer m_pfCombOut;  // one comb's output
    LowPass m_LowPass;
};
