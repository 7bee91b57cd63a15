#include "services/CQUENDARIC_Service_LP.h"

#include <algorithm>
#include <cmath>
#include <cstring>

QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_LP)
QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_HP)

CQUENDARIC_Service_Butterworth::~CQUENDARIC_Service_Butterworth() {
    Terminate();
}

int CQUENDARIC_Service_Butterworth::Initialize(float fCorner, int iSampleRate, int iBlockLength) {
    Terminate();
    m_fCorner = fCorner;
    m_iRate = iSampleRate;
    m_iBlockLength = std::max(iBlockLength, 1);
    m_iOrder = 2;
    float *pfCoefs = nullptr;
    Coefficients(pfCoefs, fCorner);
    // A corner at or above half the rate (or a rate of 0) gives no usable section: the signal
    // then passes unfiltered rather than as a stream of NaNs.
    const bool bFinite =
        std::all_of(pfCoefs, pfCoefs + 6, [](float f) { return std::isfinite(f); });
    if (bFinite && pfCoefs[3] != 0.0f) {
        ippsIIRInitAlloc_32f(&m_pIIR, pfCoefs, m_iOrder, nullptr);
    }
    ippsFree(pfCoefs);
    m_pfScratch.Allocate(m_iBlockLength);
    return 1;
}

int CQUENDARIC_Service_Butterworth::GetSamples(float *pfData, int iLength, float fGain_dB,
                                               int iMix) {
    if (pfData == nullptr || m_pfScratch == nullptr) {
        return 1;
    }
    const float gain = std::pow(10.0f, fGain_dB / 10.0f);
    for (int done = 0; done < iLength; done += m_iBlockLength) {
        const int n = std::min(m_iBlockLength, iLength - done);
        float *data = pfData + done;
        if (m_pIIR != nullptr) {
            ippsIIR_32f(data, m_pfScratch, n, m_pIIR);
        } else {
            std::memcpy(m_pfScratch.get(), data, sizeof(float) * static_cast<size_t>(n));
        }
        for (int i = 0; i < n; ++i) {
            const float y = m_pfScratch[i] * gain;
            data[i] = iMix == 0 ? y : data[i] + y;
        }
    }
    return 1;
}

int CQUENDARIC_Service_Butterworth::Terminate() {
    m_pfScratch.Reset();
    if (m_pIIR != nullptr) {
        ippsIIRFree_32f(m_pIIR);
        m_pIIR = nullptr;
    }
    return 1;
}

int CQUENDARIC_Service_Butterworth::ReInitialize(float fCorner, int iSampleRate, int iBlockLength) {
    return Initialize(fCorner, iSampleRate, iBlockLength);
}

void CQUENDARIC_Service_LP::Coefficients(float *&pfCoefs, float fCorner) const {
    CSSS::GetLPCoefs(pfCoefs, fCorner, m_iRate);
}

void CQUENDARIC_Service_HP::Coefficients(float *&pfCoefs, float fCorner) const {
    CSSS::GetHPCoefs(pfCoefs, fCorner, m_iRate);
}
