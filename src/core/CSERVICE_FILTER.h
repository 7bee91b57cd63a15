// A second-order IIR section of nine selectable shapes: the post equaliser's shelves and the
// tone control of the delay-based services. Shapes: 1 low pass, 2 high pass, 3 to 6 low
// pass, high pass, band pass and notch of a second form, 7 peaking, 8 low shelf, 9 high
// shelf.
#pragma once

#include "core/CSERVICE.h"
#include "dsp/ipps.h"

class CSERVICE_FILTER : public CSERVICE {
  public:
    CSERVICE_FILTER() = default;
    ~CSERVICE_FILTER() override;

    using CSSS::_init;
    using CSSS::_process;

    // Designs the section: type 1..9, gain in dB, slope (0 for the plain shapes; otherwise
    // the exponent 1 / (slope + 1) is applied to gain and q of the second forms), q (quality
    // or bandwidth, > 0), frequency in Hz (corner or centre), sampleRate in Hz. Every
    // argument is stored as given; the frequency is clamped to 0.1 .. sampleRate / 2 - 100 for
    // the design, and a frequency above that range turns the shapes 3 to 6, 8 and 9 into a
    // plain gain. An unknown type, or coefficients that aren't finite (q 0), make no section:
    // the block then passes unchanged. Returns 0.
    virtual int _init(int iType, float fGainDb, float fSlope, float fQ, float fFrequency,
                      float fSampleRate);
    // Filters n samples in place. When gain or frequency differ from the stored ones, or a
    // non-zero sampleRate differs, the section is designed anew with the stored type, slope
    // and q, and starts from silence. Allocates only when the block grows. Returns 0.
    virtual int _process(float *pfBlock, int n, float fGainDb, float fFrequency, float fSampleRate);
    // Frees the section. Returns 0.
    int _quit() override;

    int m_iOrder = 2;
    IppsIIRState_32f *m_pIIRState = nullptr;  // owned; null until _init
    float m_fB0 = 0.0f, m_fB1 = 0.0f, m_fB2 = 0.0f;
    float m_fA0 = 0.0f, m_fA1 = 0.0f, m_fA2 = 0.0f;
    float m_fType = 0.0f;
    float m_fGain = 0.0f;       // dB
    float m_fFrequency = 0.0f;  // Hz, as passed
    float m_fSlope = 0.0f;
    float m_fQ = 0.0f;
    float m_fSampleRate = 0.0f;  // Hz

  private:
    // The coefficients of one shape; false for an unknown type.
    bool Design(int iType, float fGainDb, float fSlope, float fQ, float fFrequency,
                float fSampleRate);
    void DesignSecondForm(int iType, float fGainDb, float fSlope, float fQ, float fFrequency,
                          float fSampleRate, bool bHigh);
};
