// Two small services that rest on an HRTF set. CSERVICE_QKEQ flattens a binaural pair by an
// inverse FIR for each ear, made from the set's responses straight ahead. CSERVICE_DISPLACEMENT
// checks that four directions exist in a set and does nothing else: displacement as such isn't
// implemented. The engine holds one of each and drives neither.
#pragma once

#include "binaural/CHELPER_HRTF.h"
#include "core/CSERVICE.h"
#include "dsp/ipps.h"

class CSERVICE_QKEQ : public CSERVICE {
    QK_DECLARE_SERIAL(CSERVICE_QKEQ)

  public:
    CSERVICE_QKEQ() = default;
    ~CSERVICE_QKEQ() override;

    using CSSS::_init;
    using CSSS::_process;

    // Designs an inverse FIR for each ear from the responses at azimuth 0, elevation 0 at
    // fSampleRate (Hz, truncated): each bin's magnitude is limited to fLimit .. 1 / fLimit
    // before it is inverted, so fLimit 0.1 bounds the correction to +-20 dB and 1 makes it
    // flat. The filters have half the response's taps. An ear whose design fails, or whose
    // limit leaves no finite inverse, isn't filtered. Returns 0, or -1 (states unchanged)
    // with no set or no response straight ahead.
    virtual int _init(CHELPER_HRTF *pHRTF, float fLimit, float fSampleRate);
    // Filters a planar block of n left, then n right samples in place; the delay lines run on
    // across calls. A new limit or rate designs anew first. Returns 0.
    virtual int _process(CHELPER_HRTF *pHRTF, float *pfBlock, int n, float fLimit,
                         float fSampleRate);
    int _quit() override;

    float m_fLimit = 0.0f;
    float m_fSampleRate = 0.0f;
    IppsFIRState_32f *m_pFIRLeft = nullptr;  // owned; null when no design
    IppsFIRState_32f *m_pFIRRight = nullptr;

  private:
    // The inverse of one response's magnitude as a FIR state of half its taps, or null.
    IppsFIRState_32f *Design(const float *pfResponse, int iLength, float fLimit);
};

class CSERVICE_DISPLACEMENT : public CSERVICE {
    QK_DECLARE_SERIAL(CSERVICE_DISPLACEMENT)

  public:
    using CSSS::_init;
    using CSSS::_process;

    // Four (azimuth, elevation, distance) triples in pfPaths (12 floats): each is rendered
    // once through the set as a one-path response and dropped. Returns 0, or -1 when there is
    // no set or a rendering fails.
    virtual int _init(CHELPER_HRTF *pHRTF, const float *pfPaths, float fSampleRate);
    // Does nothing. Returns 0.
    virtual int _process() { return 0; }
};
