// Small pieces shared by the filter designers: an owned transform, output replacement and
// log-magnitude helpers. Off-line use only: everything here allocates.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "dsp/ipps.h"

namespace qk::design {

// Magnitudes below this count as this before a logarithm is taken, so that a response with
// exact zeros in its spectrum gives finite levels (-600 dB) instead of infinities.
constexpr float kMagnitudeFloor = 1.0e-30f;

// The smallest order whose length 2^order holds n samples (0 for n under 2); capped at 31.
inline int OrderFor(int n) {
    int order = 0;
    while (order < 31 && (1LL << order) < static_cast<long long>(n)) {
        ++order;
    }
    return order;
}

// Frees a caller-owned array and puts a new one of n floats (null for n under 1) in its place.
inline void Replace(float *&p, int n) {
    ippsFree(p);
    p = n > 0 ? ippsMalloc_32f(n) : nullptr;
}

// A real transform of length 2^order, inverse divided by N, released at the end of scope.
class CTransform {
  public:
    CTransform(int order, IppHintAlgorithm hint) : m_iLength(1 << order) {
        ippsFFTInitAlloc_R_32f(&m_pSpec, order, IPP_FFT_DIV_INV_BY_N, hint);
    }
    ~CTransform() { ippsFFTFree_R_32f(m_pSpec); }
    CTransform(const CTransform &) = delete;
    CTransform &operator=(const CTransform &) = delete;

    const IppsFFTSpec_R_32f *Spec() const { return m_pSpec; }
    int Length() const { return m_iLength; }

    // The N/2 + 1 complex values (CCS) of iLength samples zero-padded or cut to N.
    std::vector<Ipp32fc> Spectrum(const float *pfIn, int iLength) const {
        std::vector<float> padded(static_cast<size_t>(m_iLength), 0.0f);
        std::memcpy(padded.data(), pfIn,
                    sizeof(float) * static_cast<size_t>(std::min(iLength, m_iLength)));
        std::vector<Ipp32fc> spectrum(static_cast<size_t>(m_iLength / 2 + 1));
        ippsFFTFwd_RToCCS_32f(padded.data(), &spectrum[0].re, m_pSpec, nullptr);
        return spectrum;
    }

  private:
    IppsFFTSpec_R_32f *m_pSpec = nullptr;
    int m_iLength;
};

inline void FloorMagnitudes(std::vector<float> &magnitude) {
    for (float &m : magnitude) {
        m = std::max(m, kMagnitudeFloor);
    }
}

// 20 log10 of each bin's magnitude.
inline std::vector<float> LevelsDb(const std::vector<Ipp32fc> &spectrum) {
    std::vector<float> level(spectrum.size());
    ippsMagnitude_32fc(spectrum.data(), level.data(), static_cast<int>(spectrum.size()));
    FloorMagnitudes(level);
    for (float &l : level) {
        l = 20.0f * std::log10(l);
    }
    return level;
}

}  // namespace qk::design
