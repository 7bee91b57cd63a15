#include "dsp/CQUENDARIC_Service_Reverb.h"

#include <algorithm>
#include <cstring>

QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_Reverb)

namespace {
// The output low pass: 10 kHz, q 0.5.
constexpr float kLowPassHz = 10000.0f;
constexpr float kLowPassGain = 1.0f;
}  // namespace

CQUENDARIC_Service_Reverb::CQUENDARIC_Service_Reverb(const float *pfDelays, const float *pfGains,
                                                     int iCombs, int iAllPasses) {
    SetParameters(pfDelays, pfGains, iCombs, iAllPasses, nullptr);
}

void CQUENDARIC_Service_Reverb::SetParameters(const float *pfDelays, const float *pfGains,
                                              int iCombs, int iAllPasses, const float *pfDamping) {
    Clear();
    m_iFirstBlock = 1;
    if (pfDelays == nullptr || pfGains == nullptr) {
        return;
    }
    m_iCombs = std::max(iCombs, 0);
    m_iAllPasses = std::max(iAllPasses, 0);
    const int total = m_iCombs + m_iAllPasses;
    m_pfDelays.assign(pfDelays, pfDelays + total);
    m_pfGains.assign(pfGains, pfGains + total);
    if (m_iCombs > 0) {
        m_pCombs = std::make_unique<CQUENDARIC_Service_Comb[]>(static_cast<size_t>(m_iCombs));
    }
    if (m_iAllPasses > 0) {
        m_pAllPasses =
            std::make_unique<CQUENDARIC_Service_AllPass[]>(static_cast<size_t>(m_iAllPasses));
    }
    for (int i = 0; i < m_iCombs; ++i) {
        m_pCombs[i].m_fDelay = m_pfDelays[static_cast<size_t>(i)];
        m_pCombs[i].m_fGain = m_pfGains[static_cast<size_t>(i)];
        if (pfDamping != nullptr) {
            m_pCombs[i].m_fDamping = pfDamping[i];
        }
    }
    for (int i = 0; i < m_iAllPasses; ++i) {
        m_pAllPasses[i].m_fDelay = m_pfDelays[static_cast<size_t>(m_iCombs + i)];
        m_pAllPasses[i].m_fGain = m_pfGains[static_cast<size_t>(m_iCombs + i)];
    }
}

void CQUENDARIC_Service_Reverb::Initialize(float fOnset, int iSampleRate) {
    m_iFirstBlock = 1;
    m_Filter._init(1, kLowPassGain, 1.0f, 0.5f, kLowPassHz, static_cast<float>(iSampleRate));
    m_fSampleRate = static_cast<float>(iSampleRate);
    m_fOnset = fOnset;
    m_Delay.Initialize(fOnset / 2.0f, iSampleRate);
    for (int i = 0; i < m_iCombs; ++i) {
        m_pCombs[i].Initialize(iSampleRate);
    }
    for (int i = 0; i < m_iAllPasses; ++i) {
        m_pAllPasses[i].Initialize(iSampleRate);
    }
    m_iInitialized = 1;
    m_iStarted = 1;
}

void CQUENDARIC_Service_Reverb::GrowScratch(int iLength) {
    if (m_pfMix.size() < iLength) {
        m_pfMix.Allocate(iLength);
        m_pfCombOut.Allocate(iLength);
    }
}

void CQUENDARIC_Service_Reverb::Process(const float *pfIn, float *pfOut, int iLength) {
    if ((m_pCombs == nullptr && m_pAllPasses == nullptr) || pfIn == nullptr || pfOut == nullptr ||
        iLength < 1) {
        return;
    }
    GrowScratch(iLength);
    float *mix = m_pfMix.get();
    const size_t bytes = sizeof(float) * static_cast<size_t>(iLength);
    if (m_iCombs > 0) {
        // Every comb hears the same input; their outputs are summed in the order of index.
        m_pCombs[0].Process(pfIn, mix, iLength);
        for (int i = 1; i < m_iCombs; ++i) {
            m_pCombs[i].Process(pfIn, m_pfCombOut, iLength);
            ippsAdd_32f_I(m_pfCombOut, mix, iLength);
        }
    } else {
        std::memcpy(mix, pfIn, bytes);
    }
    for (int i = 0; i < m_iAllPasses; ++i) {
        m_pAllPasses[i].Process(mix, mix, iLength);
    }
    std::memcpy(pfOut, mix, bytes);
    if (m_fOnset != 0.0f) {
        m_Delay.Process(pfOut, pfOut, iLength);
    }
    m_Filter._process(pfOut, iLength, kLowPassGain, kLowPassHz, 0.0f);
    m_iFirstBlock = 0;
}

void CQUENDARIC_Service_Reverb::Cleanup() {
    m_iFirstBlock = 1;
    m_Filter._quit();
    m_Delay.Cleanup();
    Clear();
    m_fSampleRate = 0.0f;
    m_iInitialized = 0;
    m_iStarted = 0;
}

void CQUENDARIC_Service_Reverb::Clear() {
    m_pCombs.reset();
    m_pAllPasses.reset();
    m_pfDelays.clear();
    m_pfGains.clear();
    m_iCombs = 0;
    m_iAllPasses = 0;
}
