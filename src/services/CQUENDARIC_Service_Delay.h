// The delay-line services: a pure delay, a feedback comb and a Schroeder all-pass. Each keeps a
// circular buffer of D samples walked by one pointer that wraps from m_pfEnd to m_pfBuffer; the
// per-sample work has no modulo and no allocation. They are the building blocks of the reverb.
//
// A line of D = 0 samples has no buffer. Such a line is still safe to run: the delay and the
// all-pass then pass their input through (their transfer functions at D = 0 are 1) and the comb
// gives silence. Delays longer than kMaxDelaySamples are cut to it.
#pragma once

#include "core/CSERVICE.h"
#include "core/CSERVICE_FILTER.h"
#include "dsp/IppBuffer.h"

// What the three share: the buffer and its walking pointer.
class CQUENDARIC_DelayLine : public CSERVICE {
  public:
    // About 47 s at 44.1 kHz, 8 MB: far beyond any delay a room asks for.
    static constexpr int kMaxDelaySamples = 1 << 21;

    // The line's length for a delay in samples: its integer part, 0 for anything not above 1
    // (or not a number), at most kMaxDelaySamples.
    static int LengthFor(double dSamples);
    // Samples in the buffer (D).
    int Length() const { return m_pfBuffer.size(); }

    CIppBuffer m_pfBuffer;          // D floats; empty for D = 0
    float *m_pfEnd = nullptr;       // one past the last element
    float *m_pfPosition = nullptr;  // read and write position

  protected:
    // A zeroed buffer of iLength floats (none for 0), the position at its start.
    void Allocate(int iLength);
    void Release();
    // Samples that can be taken before the position wraps, at most iWanted.
    int Run(int iWanted) const;
    // Moves the position on by iRun samples (at most what Run gave), wrapping at the end.
    void Advance(int iRun);
    // Walks iLength samples from the position in runs that stop at the buffer's end: for each,
    // step(line, iDone, iRun) gets the position, the samples walked before the run and the
    // run's length, and the position then moves on past the run.
    template <typename Step>
    void Walk(int iLength, Step step) {
        for (int done = 0; done < iLength;) {
            const int run = Run(iLength - done);
            step(m_pfPosition, done, run);
            Advance(run);
            done += run;
        }
    }
};

class CQUENDARIC_Service_Delay : public CQUENDARIC_DelayLine {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_Delay)

  public:
    CQUENDARIC_Service_Delay() = default;
    explicit CQUENDARIC_Service_Delay(float fDelay) : m_fDelay(fDelay) {}
    ~CQUENDARIC_Service_Delay() override { Cleanup(); }

    // fDelay in samples; the integer part counts (100.7 delays by 100). The rate isn't used.
    void Initialize(float fDelay, int iSampleRate);
    // y[n] = x[n - D]. pfIn and pfOut may be the same array.
    void Process(const float *pfIn, float *pfOut, int iLength);
    void Cleanup();

    float m_fDelay = 0.0f;  // samples
};

class CQUENDARIC_Service_AllPass : public CQUENDARIC_DelayLine {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_AllPass)

  public:
    CQUENDARIC_Service_AllPass() = default;
    CQUENDARIC_Service_AllPass(float fDelay, float fGain) : m_fDelay(fDelay), m_fGain(fGain) {}
    ~CQUENDARIC_Service_AllPass() override { Cleanup(); }

    // D = the integer part of iSampleRate x m_fDelay; a zeroed line.
    void Initialize(int iSampleRate);
    // w[n] = x[n] + g w[n - D]; y[n] = w[n - D] - g w[n]: (z^-D - g) / (1 - g z^-D).
    // pfIn and pfOut may be the same array.
    void Process(const float *pfIn, float *pfOut, int iLength);
    void Cleanup();

    float m_fDelay = 0.0f;  // seconds
    float m_fGain = 0.0f;   // feedback gain g
};

class CQUENDARIC_Service_Comb : public CQUENDARIC_DelayLine {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_Comb)

  public:
    CQUENDARIC_Service_Comb() = default;
    CQUENDARIC_Service_Comb(float fDelay, float fGain) : m_fDelay(fDelay), m_fGain(fGain) {}
    ~CQUENDARIC_Service_Comb() override { Cleanup(); }

    // Does nothing unless m_fDelay is above 0. Otherwise a zeroed line of D = the integer part
    // of iSampleRate x m_fDelay, and with m_fDamping strictly between 0 and 1 the output
    // filter: a unit low shelf at iSampleRate x m_fDamping Hz.
    void Initialize(int iSampleRate);
    // w[n] = x[n] + g w[n - D]; y[n] = w[n - D]: z^-D / (1 - g z^-D), so the first D outputs
    // are 0. The output filter, when set, runs on the block afterwards: it colours the output
    // and doesn't damp the loop. pfIn and pfOut may be the same array.
    void Process(const float *pfIn, float *pfOut, int iLength);
    // Adds the comb's output to pfSum instead of writing it: for undamped combs only (a damped
    // comb's filter needs its output alone); returns false, doing nothing, for a damped one.
    bool ProcessAdd(const float *pfIn, float *pfSum, int iLength);
    void Cleanup();
    bool Damped() const { return m_fDamping > 0.0f && m_fDamping < 1.0f; }

    float m_fDelay = 0.0f;    // seconds
    float m_fGain = 1.0f;     // feedback gain g; may be negative
    float m_fDamping = 0.0f;  // corner of the output filter as a fraction of the rate
    CSERVICE_FILTER m_Filter;
};
