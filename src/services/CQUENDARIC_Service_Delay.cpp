#include "services/CQUENDARIC_Service_Delay.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/Vectorize.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_Delay)
QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_AllPass)
QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_Comb)

namespace {
// A recirculating value this small (the samples are on the integer scale of the material) is
// stored as 0, so that a decaying tail ends in zeros rather than in slow denormal arithmetic.
constexpr float kFlushBelow = 1e-20f;

inline float flushed(float w) {
    return std::fabs(w) < kFlushBelow ? 0.0f : w;
}

// Within one run the line is read and written once per element, so the loops carry no
// dependence from one sample to the next and vectorize. x and y may be one array: each x[k] is
// read before y[k] is written.
QK_VECTORIZE void combRun(float *__restrict line, const float *x, float *y, int n, float g) {
    for (int k = 0; k < n; ++k) {
        const float d = line[k];
        line[k] = flushed(d * g + x[k]);
        y[k] = d;
    }
}

QK_VECTORIZE void combAddRun(float *__restrict line, const float *x, float *sum, int n, float g) {
    for (int k = 0; k < n; ++k) {
        const float d = line[k];
        line[k] = flushed(d * g + x[k]);
        sum[k] += d;
    }
}

QK_VECTORIZE void allPassRun(float *__restrict line, const float *x, float *y, int n, float g) {
    for (int k = 0; k < n; ++k) {
        const float d = line[k];
        const float w = flushed(d * g + x[k]);
        line[k] = w;
        y[k] = d - g * w;
    }
}

QK_VECTORIZE void delayRun(float *__restrict line, const float *x, float *y, int n) {
    for (int k = 0; k < n; ++k) {
        const float d = line[k];
        line[k] = x[k];
        y[k] = d;
    }
}

void copyThrough(const float *pfIn, float *pfOut, int n) {
    if (pfIn != pfOut && n > 0) {
        std::memmove(pfOut, pfIn, sizeof(float) * static_cast<size_t>(n));
    }
}
}  // namespace

int CQUENDARIC_DelayLine::LengthFor(double dSamples) {
    if (!(dSamples >= 1.0)) {
        return 0;
    }
    return static_cast<int>(std::min(dSamples, static_cast<double>(kMaxDelaySamples)));
}

void CQUENDARIC_DelayLine::Allocate(int iLength) {
    m_pfBuffer.AllocateZeroed(iLength);
    m_pfPosition = m_pfBuffer.get();
    m_pfEnd = m_pfPosition != nullptr ? m_pfPosition + m_pfBuffer.size() : nullptr;
}

void CQUENDARIC_DelayLine::Release() {
    m_pfBuffer.Reset();
    m_pfPosition = m_pfEnd = nullptr;
}

int CQUENDARIC_DelayLine::Run(int iWanted) const {
    return static_cast<int>(std::min<ptrdiff_t>(iWanted, m_pfEnd - m_pfPosition));
}

void CQUENDARIC_DelayLine::Advance(int iRun) {
    m_pfPosition += iRun;
    if (m_pfPosition == m_pfEnd) {
        m_pfPosition = m_pfBuffer.get();
    }
}

void CQUENDARIC_Service_Delay::Initialize(float fDelay, int) {
    m_fDelay = fDelay;
    Allocate(LengthFor(fDelay));
}

void CQUENDARIC_Service_Delay::Process(const float *pfIn, float *pfOut, int iLength) {
    if (pfIn == nullptr || pfOut == nullptr || iLength < 1) {
        return;
    }
    if (m_pfBuffer == nullptr) {
        copyThrough(pfIn, pfOut, iLength);
        return;
    }
    Walk(iLength,
         [&](float *line, int at, int run) { delayRun(line, pfIn + at, pfOut + at, run); });
}

void CQUENDARIC_Service_Delay::Cleanup() {
    Release();
}

void CQUENDARIC_Service_AllPass::Initialize(int iSampleRate) {
    Allocate(LengthFor(static_cast<double>(iSampleRate) * m_fDelay));
}

void CQUENDARIC_Service_AllPass::Process(const float *pfIn, float *pfOut, int iLength) {
    if (pfIn == nullptr || pfOut == nullptr || iLength < 1) {
        return;
    }
    if (m_pfBuffer == nullptr) {
        copyThrough(pfIn, pfOut, iLength);
        return;
    }
    Walk(iLength, [&](float *line, int at, int run) {
        allPassRun(line, pfIn + at, pfOut + at, run, m_fGain);
    });
}

void CQUENDARIC_Service_AllPass::Cleanup() {
    Release();
}

void CQUENDARIC_Service_Comb::Initialize(int iSampleRate) {
    if (!(m_fDelay > 0.0f)) {
        return;
    }
    Allocate(LengthFor(static_cast<double>(iSampleRate) * m_fDelay));
    m_Filter._quit();
    if (Damped()) {
        m_Filter._init(8, 0.0f, 1.0f, 0.75f, static_cast<float>(iSampleRate) * m_fDamping,
                       static_cast<float>(iSampleRate));
    }
}

void CQUENDARIC_Service_Comb::Process(const float *pfIn, float *pfOut, int iLength) {
    if (pfIn == nullptr || pfOut == nullptr || iLength < 1) {
        return;
    }
    if (m_pfBuffer == nullptr) {
        std::fill(pfOut, pfOut + iLength, 0.0f);
        return;
    }
    Walk(iLength,
         [&](float *line, int at, int run) { combRun(line, pfIn + at, pfOut + at, run, m_fGain); });
    if (Damped()) {
        m_Filter._process(pfOut, iLength, m_Filter.m_fGain, m_Filter.m_fFrequency,
                          m_Filter.m_fSampleRate);
    }
}

bool CQUENDARIC_Service_Comb::ProcessAdd(const float *pfIn, float *pfSum, int iLength) {
    if (Damped()) {
        return false;
    }
    if (pfIn == nullptr || pfSum == nullptr || iLength < 1 || m_pfBuffer == nullptr) {
        return true;  // silence adds nothing
    }
    Walk(iLength, [&](float *line, int at, int run) {
        combAddRun(line, pfIn + at, pfSum + at, run, m_fGain);
    });
    return true;
}

void CQUENDARIC_Service_Comb::Cleanup() {
    Release();
}
