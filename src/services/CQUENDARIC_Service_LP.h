// Second-order Butterworth low and high passes with an output gain and an optional mix into
// the block, for the canceller's options. Both share everything but their coefficients.
#pragma once

#include "core/CSERVICE.h"
#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"

class CQUENDARIC_Service_Butterworth : public CSERVICE {
  public:
    ~CQUENDARIC_Service_Butterworth() override;

    // Corner in Hz, rate in Hz, iBlockLength the most samples one call filters at a time
    // (longer calls are taken in pieces of that size). Makes the section with a silent
    // history. Returns 1.
    int Initialize(float fCorner, int iSampleRate, int iBlockLength);
    // Filters iLength samples of pfData, multiplies them by 10^(fGain_dB / 10) (the gain is a
    // power ratio here) and, with iMix 0, writes them over pfData, otherwise adds them to it.
    // Returns 1.
    int GetSamples(float *pfData, int iLength, float fGain_dB, int iMix);
    // Frees the section and the scratch. Returns 1.
    int Terminate();
    // Terminate, then Initialize: the history is cleared. Returns 1.
    int ReInitialize(float fCorner, int iSampleRate, int iBlockLength);

    float m_fCorner = 0.0f;  // Hz
    int m_iRate = 0;         // Hz
    int m_iBlockLength = 0;  // capacity of the scratch in samples
    int m_iOrder = 0;        // 2 once initialised
    IppsIIRState_32f *m_pIIR = nullptr;
    CIppBuffer m_pfScratch;

  protected:
    // b0, b1, b2, a0, a1, a2 for the corner at m_iRate, into a new array (see CSSS).
    virtual void Coefficients(float *&pfCoefs, float fCorner) const = 0;
};

class CQUENDARIC_Service_LP : public CQUENDARIC_Service_Butterworth {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_LP)

  public:
    // With K = tan(pi fc / rate): K^2, 2K^2, K^2 over 1 + sqrt2 K + K^2, 2(K^2 - 1),
    // 1 - sqrt2 K + K^2.
    void GetLPCoefs(float *&pfCoefs, float fCorner) const { Coefficients(pfCoefs, fCorner); }

  protected:
    void Coefficients(float *&pfCoefs, float fCorner) const override;
};

class CQUENDARIC_Service_HP : public CQUENDARIC_Service_Butterworth {
    QK_DECLARE_SERIAL(CQUENDARIC_Service_HP)

  public:
    // 1, -2, 1 over the low pass's denominator.
    void GetHPCoefs(float *&pfCoefs, float fCorner) const { Coefficients(pfCoefs, fCorner); }

  protected:
    void Coefficients(float *&pfCoefs, float fCorner) const override;
};
