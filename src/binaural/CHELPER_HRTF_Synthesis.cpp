// The binaural synthesis of a reflection list: each reflection's head-related response, its
// reflection filter and gain, placed at its delay in one pair of impulse responses.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "binaural/CHELPER_HRTF.h"
#include "platform/Report.h"
#include "platform/Vectorize.h"

namespace {
// The speed of sound that turns a path length into a delay, m/s.
constexpr float kSpeedOfSound = 343.0f;
// Longest response the synthesis makes, samples an ear (about six minutes at 44,100 Hz);
// a reflection later than that is left out.
constexpr int64_t kMaxSynthesisLength = int64_t{1} << 24;
// Longest reflection filter taken; a reflection with a longer one is left out.
constexpr int kMaxFilterLength = 1 << 16;

// Whole-sample delay: trunc(ms / 1000 * rate), the only quantisation of a delay; -1 for a
// delay that is not finite or lies beyond kMaxSynthesisLength. A negative delay is 0.
int64_t delaySamples(float fDelayMs, int iSampleRate) {
    const double d = static_cast<double>(fDelayMs) / 1000.0 * iSampleRate;
    if (!std::isfinite(d) || d >= static_cast<double>(kMaxSynthesisLength)) {
        return -1;
    }
    return d > 0.0 ? static_cast<int64_t>(d) : 0;
}

int64_t nextPowerOfTwo(int64_t n) {
    int64_t p = 1;
    while (p < n) {
        p <<= 1;
    }
    return p;
}

// Filters one response with n reflection-filter coefficients over M = length + n - 1
// samples (the response zero-padded to M): a FIR state made for the occasion above 32
// coefficients, direct convolution up to 32. pfOut receives M samples; a state that can't be
// made is reported and leaves silence.
void filterResponse(const float *pfResponse, int iLength, const float *pfCoefs, int n,
                    std::vector<float> &padded, float *pfOut) {
    const int M = iLength + n - 1;
    if (n <= 32) {
        ippsConv_32f(pfResponse, iLength, pfCoefs, n, pfOut);
        return;
    }
    padded.assign(static_cast<size_t>(M), 0.0f);
    std::copy(pfResponse, pfResponse + iLength, padded.begin());
    IppsFIRState_32f *pState = nullptr;
    ippsFIRInitAlloc_32f(&pState, pfCoefs, n, nullptr);
    if (pState == nullptr) {
        qk::Report("Error: m_ppFIRState = NULL in GetHRTF", "FAILURE", qk::Severity::Error);
        std::fill(pfOut, pfOut + M, 0.0f);
        return;
    }
    ippsFIR_32f(padded.data(), pfOut, M, pState);
    ippsFIRFree_32f(pState);
}

// Adds fGain * pfSource[0..n) into pfDest at iOffset, within iLength.
void addScaled(float *pfDest, int64_t iLength, int64_t iOffset, const float *pfSource, int64_t n,
               float fGain) {
    const int64_t iEnd = std::min(iLength, iOffset + n);
    for (int64_t i = iOffset; i < iEnd; ++i) {
        pfDest[i] += fGain * pfSource[i - iOffset];
    }
}
}  // namespace

int CHELPER_HRTF::GetHRTFForPaths(float *&pfLeft, float *&pfRight, int &iLength,
                                  const float *pfAzimuths, const float *pfElevations,
                                  const float *pfPathLengths, int iCount, int iPowerOfTwo,
                                  int iSampleRate) {
    const size_t n = iCount > 0 ? static_cast<size_t>(iCount) : 0;
    std::vector<float> afDelaysMs(n);
    const std::vector<float> afGains(n, 1.0f);
    for (size_t i = 0; i < n && pfPathLengths != nullptr; ++i) {
        afDelaysMs[i] = pfPathLengths[i] * 1000.0f / kSpeedOfSound;
    }
    return GetHRTF(pfLeft, pfRight, iLength, pfAzimuths, pfElevations, afDelaysMs.data(),
                   afGains.data(), nullptr, nullptr, iCount, iPowerOfTwo, iSampleRate);
}

int CHELPER_HRTF::GetHRTF(float *&pfLeft, float *&pfRight, int &iLength, const float *pfAzimuths,
                          const float *pfElevations, const float *pfDelaysMs, const float *pfGains,
                          const float *pfFilterCoefs, const int *piFilterLengths, int iCount,
                          int iPowerOfTwo, int iSampleRate) {
    m_iSampleRate = iSampleRate;
    UpdateTaps();
    ippsFree(pfLeft);
    ippsFree(pfRight);
    pfLeft = pfRight = nullptr;
    iLength = 0;
    if (pfAzimuths == nullptr || pfElevations == nullptr || pfDelaysMs == nullptr ||
        pfGains == nullptr || iCount < 0) {
        iCount = 0;
    }
    const bool bFilters = pfFilterCoefs != nullptr && piFilterLengths != nullptr;

    int64_t iMaxDelay = 0;
    int iMaxFilter = 0;
    for (int i = 0; i < iCount; ++i) {
        iMaxDelay = std::max(iMaxDelay, delaySamples(pfDelaysMs[i], iSampleRate));
        if (bFilters && piFilterLengths[i] <= kMaxFilterLength) {
            iMaxFilter = std::max(iMaxFilter, piFilterLengths[i]);
        }
    }
    int64_t iTotal = iMaxDelay + iMaxFilter + std::max(m_iTaps, 0);
    if (iPowerOfTwo == 1) {
        iTotal = nextPowerOfTwo(iTotal);
    }
    iTotal = std::min(iTotal, 2 * kMaxSynthesisLength);
    iLength = static_cast<int>(iTotal);
    pfLeft = ippsMalloc_32f(iLength);
    pfRight = ippsMalloc_32f(iLength);
    if (pfLeft == nullptr || pfRight == nullptr) {
        iLength = 0;
        return 1;
    }
    std::memset(pfLeft, 0, sizeof(float) * static_cast<size_t>(iLength));
    std::memset(pfRight, 0, sizeof(float) * static_cast<size_t>(iLength));

    float *pfL = nullptr;
    float *pfR = nullptr;
    std::vector<float> padded;
    std::vector<float> filteredL;
    std::vector<float> filteredR;
    int64_t p = 0;  // position of the next filter in pfFilterCoefs
    for (int i = 0; i < iCount; ++i) {
        int iResponse = 0;
        if (GetHRTF(pfL, pfR, iResponse, pfAzimuths[i], pfElevations[i], iSampleRate) == 0) {
            continue;  // p stays: the next reflection reads this one's coefficients
        }
        const int64_t iOffset = delaySamples(pfDelaysMs[i], iSampleRate);
        const int iFilter = bFilters ? std::max(piFilterLengths[i], 0) : 0;
        if (iOffset >= 0 && iResponse > 0 && iFilter <= kMaxFilterLength) {
            if (iFilter == 0) {
                addScaled(pfLeft, iTotal, iOffset, pfL, iResponse, pfGains[i]);
                addScaled(pfRight, iTotal, iOffset, pfR, iResponse, pfGains[i]);
            } else {
                // Each reflection: its response convolved with its own reflection filter.
                const int M = iResponse + iFilter - 1;
                filteredL.resize(static_cast<size_t>(M));
                filteredR.resize(static_cast<size_t>(M));
                filterResponse(pfL, iResponse, pfFilterCoefs + p, iFilter, padded,
                               filteredL.data());
                filterResponse(pfR, iResponse, pfFilterCoefs + p, iFilter, padded,
                               filteredR.data());
                addScaled(pfLeft, iTotal, iOffset, filteredL.data(), M, pfGains[i]);
                addScaled(pfRight, iTotal, iOffset, filteredR.data(), M, pfGains[i]);
            }
        }
        p += iFilter;
    }
    ippsFree(pfL);
    ippsFree(pfR);
    return 1;
}

namespace {
// pfDest[0..n) += c * pfSource[0..n).
QK_VECTORIZE_WIDE void multiplyAdd(float *__restrict pfDest, const float *__restrict pfSource,
                                   int n, float c) {
    for (int j = 0; j < n; ++j) {
        pfDest[j] += c * pfSource[j];
    }
}
}  // namespace

int CHELPER_HRTF::RenderReflections(float *&pfLeft, float *&pfRight, int &iLength,
                                    const float *pfAzimuths, const float *pfElevations,
                                    const float *pfDelaysMs, const float *pfGains,
                                    const float *pfFilterCoefs, const int *piFilterLengths,
                                    int iCount, int iSampleRate) {
    if (iSampleRate != m_iFileRate || m_iFileTaps < 1) {
        return GetHRTF(pfLeft, pfRight, iLength, pfAzimuths, pfElevations, pfDelaysMs, pfGains,
                       pfFilterCoefs, piFilterLengths, iCount, 0, iSampleRate);
    }
    ippsFree(pfLeft);
    ippsFree(pfRight);
    pfLeft = pfRight = nullptr;
    iLength = 0;
    if (pfAzimuths == nullptr || pfElevations == nullptr || pfDelaysMs == nullptr ||
        pfGains == nullptr || iCount < 0) {
        iCount = 0;
    }
    const bool bFilters = pfFilterCoefs != nullptr && piFilterLengths != nullptr;
    const int iTaps = m_iFileTaps;
    int64_t iMaxDelay = 0;
    int iMaxFilter = 0;
    for (int i = 0; i < iCount; ++i) {
        iMaxDelay = std::max(iMaxDelay, delaySamples(pfDelaysMs[i], iSampleRate));
        if (bFilters && piFilterLengths[i] <= kMaxFilterLength) {
            iMaxFilter = std::max(iMaxFilter, piFilterLengths[i]);
        }
    }
    const int64_t iTotal = std::min(iMaxDelay + iMaxFilter + iTaps, 2 * kMaxSynthesisLength);
    iLength = static_cast<int>(iTotal);
    pfLeft = ippsMalloc_32f(iLength);
    pfRight = ippsMalloc_32f(iLength);
    if (pfLeft == nullptr || pfRight == nullptr) {
        iLength = 0;
        return 1;
    }
    std::memset(pfLeft, 0, sizeof(float) * static_cast<size_t>(iLength));
    std::memset(pfRight, 0, sizeof(float) * static_cast<size_t>(iLength));
    int64_t p = 0;  // position of the next filter in pfFilterCoefs
    for (int i = 0; i < iCount; ++i) {
        int iSlotL = 0;
        int iSlotR = 0;
        if (!ResponseSlots(pfAzimuths[i], pfElevations[i], iSlotL, iSlotR)) {
            // Reported as the one-direction look-up reports it; p stays where it is.
            float *pfL = nullptr;
            float *pfR = nullptr;
            int iResponse = 0;
            GetHRTF(pfL, pfR, iResponse, pfAzimuths[i], pfElevations[i], iSampleRate);
            ippsFree(pfL);
            ippsFree(pfR);
            continue;
        }
        const float *pfL = Response(iSlotL);
        const float *pfR = Response(iSlotR);
        const int64_t iOffset = delaySamples(pfDelaysMs[i], iSampleRate);
        const int iFilter = bFilters ? std::max(piFilterLengths[i], 0) : 0;
        const float g = pfGains[i];
        if (iOffset >= 0 && iFilter <= kMaxFilterLength) {
            const float *pfCoefs = iFilter > 0 ? pfFilterCoefs + p : &g;
            const float fScale = iFilter > 0 ? g : 1.0f;
            const int n = std::max(iFilter, 1);
            for (int k = 0; k < n; ++k) {
                const int64_t iAt = iOffset + k;
                const float c = fScale * pfCoefs[k];
                if (c == 0.0f || iAt >= iTotal) {
                    continue;
                }
                const int iCount1 = static_cast<int>(std::min<int64_t>(iTaps, iTotal - iAt));
                multiplyAdd(pfLeft + iAt, pfL, iCount1, c);
                multiplyAdd(pfRight + iAt, pfR, iCount1, c);
            }
        }
        p += iFilter;
    }
    return 1;
}
