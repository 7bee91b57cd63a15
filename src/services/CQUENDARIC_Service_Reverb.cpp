#include "services/CQUENDARIC_Service_Reverb.h"

#include <algorithm>
#include <cmath>
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
    m_LowPass = LowPass();
    if (m_Filter.m_pIIRState != nullptr) {
        const double a0 = m_Filter.m_fA0;
        m_LowPass.b0 = m_Filter.m_fB0 / a0;
        m_LowPass.b1 = m_Filter.m_fB1 / a0;
        m_LowPass.b2 = m_Filter.m_fB2 / a0;
        m_LowPass.a1 = m_Filter.m_fA1 / a0;
        m_LowPass.a2 = m_Filter.m_fA2 / a0;
        m_LowPass.active = true;
    }
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

bool CQUENDARIC_Service_Reverb::ProcessChain(const float *pfIn, float *pfOut, int iLength) {
    if ((m_pCombs == nullptr && m_pAllPasses == nullptr) || pfIn == nullptr || pfOut == nullptr ||
        iLength < 1) {
        return false;
    }
    GrowScratch(iLength);
    float *mix = m_pfMix.get();
    const size_t bytes = sizeof(float) * static_cast<size_t>(iLength);
    if (m_iCombs > 0) {
        // Every comb hears the same input; their outputs are summed in the order of index.
        m_pCombs[0].Process(pfIn, mix, iLength);
        for (int i = 1; i < m_iCombs; ++i) {
            if (!m_pCombs[i].ProcessAdd(pfIn, mix, iLength)) {
                m_pCombs[i].Process(pfIn, m_pfCombOut, iLength);
                for (int k = 0; k < iLength; ++k) {
                    mix[k] += m_pfCombOut[k];
                }
            }
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
    m_iFirstBlock = 0;
    return true;
}

// Direct form I: the recursion from one output to the next is a single multiply-add, and with
// two sections the recursions interleave, which hides the latency of each. Values below kTiny
// leave the section as 0, so that a tail that has died away doesn't go on in denormals.
void CQUENDARIC_Service_Reverb::RunLowPass(LowPass &a, float *pfA, LowPass *pB, float *pfB,
                                           int iLength) {
    constexpr double kTiny = 1e-30;
    auto step = [](LowPass &f, float *pf) {
        const double x = *pf;
        const double y = (f.b0 * x + f.b1 * f.x1 + f.b2 * f.x2 - f.a2 * f.y2) - f.a1 * f.y1;
        f.x2 = f.x1;
        f.x1 = x;
        f.y2 = f.y1;
        f.y1 = y;
        *pf = std::fabs(y) < kTiny ? 0.0f : static_cast<float>(y);
    };
    LowPass b = pB != nullptr ? *pB : LowPass();
    if (pB != nullptr && a.active && b.active) {
        for (int n = 0; n < iLength; ++n) {
            step(a, pfA + n);
            step(b, pfB + n);
        }
    } else {
        for (int n = 0; a.active && n < iLength; ++n) {
            step(a, pfA + n);
        }
        for (int n = 0; pB != nullptr && b.active && n < iLength; ++n) {
            step(b, pfB + n);
        }
    }
    for (LowPass *f : {&a, &b}) {
        for (double *v : {&f->x1, &f->x2, &f->y1, &f->y2}) {
            *v = std::fabs(*v) < kTiny ? 0.0 : *v;
        }
    }
    if (pB != nullptr) {
        *pB = b;
    }
}

void CQUENDARIC_Service_Reverb::Process(const float *pfIn, float *pfOut, int iLength) {
    if (ProcessChain(pfIn, pfOut, iLength)) {
        RunLowPass(m_LowPass, pfOut, nullptr, nullptr, iLength);
    }
}

void CQUENDARIC_Service_Reverb::ProcessPair(CQUENDARIC_Service_Reverb &left, const float *pfInLeft,
                                            float *pfOutLeft, CQUENDARIC_Service_Reverb &right,
                                            const float *pfInRight, float *pfOutRight,
                                            int iLength) {
    const bool bLeft = left.ProcessChain(pfInLeft, pfOutLeft, iLength);
    const bool bRight = right.ProcessChain(pfInRight, pfOutRight, iLength);
    if (bLeft && bRight) {
        RunLowPass(left.m_LowPass, pfOutLeft, &right.m_LowPass, pfOutRight, iLength);
    } else if (bLeft) {
        RunLowPass(left.m_LowPass, pfOutLeft, nullptr, nullptr, iLength);
    } else if (bRight) {
        RunLowPass(right.m_LowPass, pfOutRight, nullptr, nullptr, iLength);
    }
}

void CQUENDARIC_Service_Reverb::Cleanup() {
    m_iFirstBlock = 1;
    m_Filter._quit();
    m_LowPass = LowPass();
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
