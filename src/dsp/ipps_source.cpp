// The operations the source layer needs: allocation, maximum, Gaussian noise, zero-stuffing
// and the IIR filter.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dsp/ipps.h"

Ipp32f *ippsMalloc_32f(int len) {
    if (len < 1) {
        return nullptr;
    }
    // aligned_alloc wants a size that is a multiple of the alignment.
    const size_t bytes = ((static_cast<size_t>(len) * sizeof(Ipp32f) + 31) / 32) * 32;
    return static_cast<Ipp32f *>(std::aligned_alloc(32, bytes));
}

void ippsFree(void *ptr) {
    std::free(ptr);
}

IppStatus ippsMax_32f(const Ipp32f *pSrc, int len, Ipp32f *pMax) {
    if (pSrc == nullptr || pMax == nullptr) {
        return ippStsNullPtrErr;
    }
    if (len < 1) {
        return ippStsSizeErr;
    }
    Ipp32f best = pSrc[0];
    for (int i = 1; i < len; ++i) {
        if (pSrc[i] > best) {
            best = pSrc[i];
        }
    }
    *pMax = best;
    return ippStsNoErr;
}

namespace {
// xorshift32 step; a zero state would stay zero, so it is nudged away from it.
uint32_t nextRandom(uint32_t &state) {
    if (state == 0) {
        state = 0x9E3779B9u;
    }
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

// Uniform in (0, 1], never 0, so that the logarithm below is finite.
double uniformOpen(uint32_t &state) {
    return (static_cast<double>(nextRandom(state)) + 1.0) / 4294967296.0;
}
}  // namespace

IppStatus ippsRandGauss_Direct_32f(Ipp32f *pDst, int len, Ipp32f mean, Ipp32f stdDev,
                                   unsigned int *pSeed) {
    if (pDst == nullptr || pSeed == nullptr) {
        return ippStsNullPtrErr;
    }
    if (len < 1) {
        return ippStsSizeErr;
    }
    uint32_t state = *pSeed;
    // Box-Muller: each pair of uniforms gives two independent normal numbers.
    constexpr double kTwoPi = 6.283185307179586;
    for (int i = 0; i < len; i += 2) {
        const double radius = std::sqrt(-2.0 * std::log(uniformOpen(state)));
        const double angle = kTwoPi * uniformOpen(state);
        pDst[i] = static_cast<Ipp32f>(mean + stdDev * radius * std::cos(angle));
        if (i + 1 < len) {
            pDst[i + 1] = static_cast<Ipp32f>(mean + stdDev * radius * std::sin(angle));
        }
    }
    *pSeed = state;
    return ippStsNoErr;
}

IppStatus ippsSampleUp_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int *pDstLen, int factor,
                           int *pPhase) {
    if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pPhase == nullptr) {
        return ippStsNullPtrErr;
    }
    if (srcLen < 1) {
        return ippStsSizeErr;
    }
    if (factor < 1 || *pPhase < 0 || *pPhase >= factor) {
        return ippStsFactorErr;
    }
    const int phase = *pPhase;
    for (int i = 0; i < srcLen; ++i) {
        Ipp32f *group = pDst + static_cast<size_t>(i) * factor;
        std::memset(group, 0, sizeof(Ipp32f) * static_cast<size_t>(factor));
        group[phase] = pSrc[i];
    }
    *pDstLen = srcLen * factor;
    return ippStsNoErr;
}

struct IppsIIRState_32f {
    int order = 0;
    std::vector<double> b;  // b0..b(order), divided by a0
    std::vector<double> a;  // a0..a(order), divided by a0 (a[0] == 1)
    std::vector<double> z;  // transposed direct-form II state, order values
};

IppStatus ippsIIRInitAlloc_32f(IppsIIRState_32f **ppState, const Ipp32f *pTaps, int order,
                               const Ipp32f *pDlyLine) {
    if (ppState == nullptr || pTaps == nullptr) {
        return ippStsNullPtrErr;
    }
    if (order < 1) {
        return ippStsSizeErr;
    }
    const double a0 = pTaps[order + 1];
    if (a0 == 0.0) {
        return ippStsDivByZeroErr;
    }
    auto *state = new IppsIIRState_32f;
    state->order = order;
    state->b.resize(static_cast<size_t>(order) + 1);
    state->a.resize(static_cast<size_t>(order) + 1);
    for (int k = 0; k <= order; ++k) {
        state->b[static_cast<size_t>(k)] = pTaps[k] / a0;
        state->a[static_cast<size_t>(k)] = pTaps[order + 1 + k] / a0;
    }
    state->z.assign(static_cast<size_t>(order), 0.0);
    *ppState = state;
    return ippStsNoErr;
}

IppStatus ippsIIR_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len, IppsIIRState_32f *pState) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr) {
        return ippStsNullPtrErr;
    }
    if (len < 1) {
        return ippStsSizeErr;
    }
    const int order = pState->order;
    const double *b = pState->b.data();
    const double *a = pState->a.data();
    double *z = pState->z.data();
    for (int n = 0; n < len; ++n) {
        const double x = pSrc[n];
        const double y = b[0] * x + z[0];
        for (int k = 1; k < order; ++k) {
            z[k - 1] = b[k] * x - a[k] * y + z[k];
        }
        z[order - 1] = b[order] * x - a[order] * y;
        pDst[n] = static_cast<Ipp32f>(y);
    }
    return ippStsNoErr;
}

IppStatus ippsIIRFree_32f(IppsIIRState_32f *pState) {
    delete pState;
    return ippStsNoErr;
}
