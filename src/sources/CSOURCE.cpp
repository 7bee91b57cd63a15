#include "sources/CSOURCE.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

QK_IMPLEMENT_SERIAL(CSOURCE)

namespace {
// The band gain stage: 10^(g / 10) with g fixed at 0 dB, kept so that a gain can be given.
constexpr float kBandGain_dB = 0.0f;

void freeIIR(IppsIIRState_32f *&state) {
    ippsIIRFree_32f(state);
    state = nullptr;
}

void filterBand(const float *pIn, float *pOut, int iLength, IppsIIRState_32f *state) {
    ippsIIR_32f(pIn, pOut, iLength, state);
    const float gain = std::pow(10.0f, kBandGain_dB / 10.0f);
    for (int i = 0; i < iLength; ++i) {
        pOut[i] *= gain;
    }
}
}  // namespace

CSOURCE::~CSOURCE() {
    TerminateBreak();
}

void CSOURCE::Serialize(qk::CArchive &ar) {
    CSSS::Serialize(ar);
    qk::SerializeVersion(ar);
}

int CSOURCE::_process_1P(void *, int, int, int, int) {
    return 0;
}
int CSOURCE::_process_2P(void **, int, int, int, int) {
    return 0;
}
int CSOURCE::StepFordward(int) {
    return 1;
}
int CSOURCE::StepBackwards(int) {
    return 1;
}
int CSOURCE::SetSourceVariable(const std::string &, const std::string &) {
    return 0;
}
int CSOURCE::GetSourceVariable(const std::string &, std::string &) {
    return 0;
}

int CSOURCE::SetVariable(const std::string &strKey, const std::string &strValue) {
    if (strKey == "Offset") {
        m_iOffset = std::atoi(strValue.c_str());
        return 1;
    }
    if (strKey == "Magnitude") {
        m_fMagnitude = std::strtof(strValue.c_str(), nullptr);
        return 1;
    }
    if (strKey == "Enable") {
        m_iEnable = strValue == "TRUE" ? 1 : 0;
        return 1;
    }
    return SetSourceVariable(strKey, strValue);
}

int CSOURCE::GetVariable(const std::string &strKey, std::string &strValue) {
    return GetSourceVariable(strKey, strValue);
}

void CSOURCE::Resample(float *pIn, int iInLength, float *pOut, int &iOutLength) {
    if (iOutLength == 0) {
        return;  // no factor can be formed: nothing is written
    }
    const float ratio = static_cast<float>(static_cast<double>(iInLength) / iOutLength);
    const int factor = static_cast<int>(ratio);
    ippsSampleUp_32f(pIn, iInLength, pOut, &iOutLength, factor, &m_iResamplePhase);
}

void CSOURCE::InitializeBreak(float fLow, float fHigh, int iSampleRate, int iChannels) {
    const int floats = iChannels > 0 ? iChannels * m_iBufferLength : m_iBufferLength;
    m_pfBreakLow.AllocateZeroed(floats);
    m_pfBreakHigh.AllocateZeroed(floats);
    float *pfCoefs = nullptr;
    GetLPCoefs(pfCoefs, fLow, iSampleRate);
    ippsIIRInitAlloc_32f(&m_pIIRLow0, pfCoefs, 2, nullptr);
    ippsIIRInitAlloc_32f(&m_pIIRLow1, pfCoefs, 2, nullptr);
    GetHPCoefs(pfCoefs, fHigh, iSampleRate);
    ippsIIRInitAlloc_32f(&m_pIIRHigh0, pfCoefs, 2, nullptr);
    ippsIIRInitAlloc_32f(&m_pIIRHigh1, pfCoefs, 2, nullptr);
    ippsFree(pfCoefs);
    m_iBreakReady = 1;
}

void CSOURCE::ProcessBreak(int iLength, int iSampleRate, int iChannels, float fLow, float fHigh) {
    if (m_iBreakReady == 0) {
        InitializeBreak(fLow, fHigh, iSampleRate, iChannels);
    }
    // A block larger than the buffers hold is refused rather than overrun.
    const int floatsNeeded = (iChannels == 2 ? 2 : 1) * iLength;
    if (iLength < 1 || m_pfData == nullptr || m_pfData.size() < floatsNeeded ||
        m_pfBreakLow.size() < floatsNeeded) {
        return;
    }
    if (iChannels == 1 || iChannels == 2) {
        filterBand(m_pfData, m_pfBreakLow, iLength, m_pIIRLow0);
        if (iChannels == 2) {
            filterBand(m_pfData + iLength, m_pfBreakLow + iLength, iLength, m_pIIRLow1);
        }
        filterBand(m_pfData, m_pfBreakHigh, iLength, m_pIIRHigh0);
        if (iChannels == 2) {
            filterBand(m_pfData + iLength, m_pfBreakHigh + iLength, iLength, m_pIIRHigh1);
        }
    } else {
        std::memset(m_pfBreakLow.get(), 0, sizeof(float) * static_cast<size_t>(iLength));
        std::memset(m_pfBreakHigh.get(), 0, sizeof(float) * static_cast<size_t>(iLength));
    }
}

void CSOURCE::TerminateBreak() {
    if (m_iBreakReady == 0) {
        return;
    }
    // Left at 1 on purpose: this runs only from the destructor.
    m_iBreakReady = 1;
    freeIIR(m_pIIRLow0);
    freeIIR(m_pIIRHigh0);
    freeIIR(m_pIIRLow1);
    freeIIR(m_pIIRHigh1);
    m_pfBreakLow.Reset();
    m_pfBreakHigh.Reset();
}
