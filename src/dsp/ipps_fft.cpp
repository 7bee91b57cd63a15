// Real transforms in the CCS and Pack layouts, on single-precision FFTW.
//
// FFTW's planner is not thread-safe and planning is slow, so every length gets one pair of
// plans (real-to-complex and complex-to-real) for the life of the process, made under a lock
// the first time a transform object of that length is made. The objects then run those plans
// through the new-array interface on whatever arrays they are given: directly when the arrays have
// the alignment the plans were made for, through the object's own scratch otherwise.
#include <fftw3.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "dsp/ipps.h"
#include "dsp/ipps_fft_plans.h"
#include "dsp/ipps_simd.h"

namespace {

// Estimated plans: planning costs microseconds instead of the tenths of a second that
// measuring would take on the first block of a new length, and the measured speed of the
// block path stays within reach of hand-written FFTW code (see bench/signal_bench.cpp).
constexpr unsigned kPlannerFlags = FFTW_ESTIMATE;

struct PlanPair {
    fftwf_plan forward = nullptr;  // N reals -> N/2 + 1 complex values, out of place
    fftwf_plan inverse = nullptr;  // N/2 + 1 complex values -> N reals, out of place
};

std::mutex g_plannerLock;
int g_plansMade = 0;

// Plans live until the process ends: transform objects share them and FFTW's plan destruction isn't
// thread-safe. The table is never destroyed, so no transform object can outlive it.
std::array<PlanPair, kIppMaxFFTOrder + 1> &planTable() {
    static auto *table = new std::array<PlanPair, kIppMaxFFTOrder + 1>{};
    return *table;
}

PlanPair plansFor(int order) {
    std::lock_guard<std::mutex> lock(g_plannerLock);
    PlanPair &plans = planTable()[static_cast<size_t>(order)];
    if (plans.forward == nullptr) {
        const int n = 1 << order;
        float *real = fftwf_alloc_real(static_cast<size_t>(n));
        fftwf_complex *cplx = fftwf_alloc_complex(static_cast<size_t>(n / 2 + 1));
        plans.forward = fftwf_plan_dft_r2c_1d(n, real, cplx, kPlannerFlags);
        plans.inverse = fftwf_plan_dft_c2r_1d(n, cplx, real, kPlannerFlags);
        // The arrays only showed the planner their size and alignment.
        fftwf_free(cplx);
        fftwf_free(real);
        g_plansMade += 2;
    }
    return plans;
}

bool aligned(const void *p) {
    return fftwf_alignment_of(const_cast<float *>(static_cast<const float *>(p))) == 0;
}

bool overlap(const void *a, size_t aBytes, const void *b, size_t bBytes) {
    const auto x = reinterpret_cast<uintptr_t>(a);
    const auto y = reinterpret_cast<uintptr_t>(b);
    return x < y + bBytes && y < x + aBytes;
}

}  // namespace

namespace qk {
int FFTPlansMade() {
    std::lock_guard<std::mutex> lock(g_plannerLock);
    return g_plansMade;
}
}  // namespace qk

struct IppsFFTSpec_R_32f {
    int n = 0;
    int bins = 0;  // N/2 + 1 complex values
    float forwardScale = 1.0f;
    float inverseScale = 1.0f;
    PlanPair plans;
    float *real = nullptr;          // N floats of scratch
    fftwf_complex *cplx = nullptr;  // N/2 + 1 complex values of scratch

    ~IppsFFTSpec_R_32f() {
        fftwf_free(real);
        fftwf_free(cplx);
    }

    // Forward transform of n reals into the object's complex scratch.
    void forwardToScratch(const Ipp32f *pSrc) const {
        if (aligned(pSrc)) {
            fftwf_execute_dft_r2c(plans.forward, const_cast<Ipp32f *>(pSrc), cplx);
        } else {
            std::memcpy(real, pSrc, sizeof(float) * static_cast<size_t>(n));
            fftwf_execute_dft_r2c(plans.forward, real, cplx);
        }
    }

    // Inverse transform of the complex scratch (which it destroys) into n reals.
    void inverseFromScratch(Ipp32f *pDst) const {
        if (aligned(pDst)) {
            fftwf_execute_dft_c2r(plans.inverse, cplx, pDst);
        } else {
            fftwf_execute_dft_c2r(plans.inverse, cplx, real);
            std::memcpy(pDst, real, sizeof(float) * static_cast<size_t>(n));
        }
    }
};

IppStatus ippsFFTInitAlloc_R_32f(IppsFFTSpec_R_32f **ppFFTSpec, int order, int flag,
                                 IppHintAlgorithm hint) {
    if (ppFFTSpec == nullptr) {
        return ippStsNullPtrErr;
    }
    if (order < 0 || order > kIppMaxFFTOrder) {
        return ippStsFftOrderErr;
    }
    auto *spec = new IppsFFTSpec_R_32f;
    spec->n = 1 << order;
    spec->bins = spec->n / 2 + 1;
    const float n = static_cast<float>(spec->n);
    switch (flag) {
        case IPP_FFT_DIV_FWD_BY_N:
            spec->forwardScale = 1.0f / n;
            break;
        case IPP_FFT_DIV_INV_BY_N:
            spec->inverseScale = 1.0f / n;
            break;
        case IPP_FFT_DIV_BY_SQRTN:
            spec->forwardScale = spec->inverseScale = 1.0f / std::sqrt(n);
            break;
        case IPP_FFT_NODIV_BY_ANY:
            break;
        default:
            delete spec;
            return ippStsFftFlagErr;
    }
    spec->plans = plansFor(order);
    spec->real = fftwf_alloc_real(static_cast<size_t>(spec->n));
    spec->cplx = fftwf_alloc_complex(static_cast<size_t>(spec->bins));
    *ppFFTSpec = spec;
    return ippStsNoErr;
}

IppStatus ippsFFTFree_R_32f(IppsFFTSpec_R_32f *pFFTSpec) {
    delete pFFTSpec;
    return ippStsNoErr;
}

IppStatus ippsFFTFwd_RToCCS_32f(const Ipp32f *pSrc, Ipp32f *pDst, const IppsFFTSpec_R_32f *pFFTSpec,
                                Ipp8u *) {
    if (pSrc == nullptr || pDst == nullptr || pFFTSpec == nullptr) {
        return ippStsNullPtrErr;
    }
    const IppsFFTSpec_R_32f &spec = *pFFTSpec;
    const size_t ccsBytes = sizeof(fftwf_complex) * static_cast<size_t>(spec.bins);
    const size_t realBytes = sizeof(float) * static_cast<size_t>(spec.n);
    if (aligned(pSrc) && aligned(pDst) && !overlap(pSrc, realBytes, pDst, ccsBytes)) {
        fftwf_execute_dft_r2c(spec.plans.forward, const_cast<Ipp32f *>(pSrc),
                              reinterpret_cast<fftwf_complex *>(pDst));
    } else {
        spec.forwardToScratch(pSrc);
        std::memcpy(pDst, spec.cplx, ccsBytes);
    }
    if (spec.forwardScale != 1.0f) {
        ippsMulC_32f_I(spec.forwardScale, pDst, 2 * spec.bins);
    }
    return ippStsNoErr;
}

IppStatus ippsFFTInv_CCSToR_32f(const Ipp32f *pSrc, Ipp32f *pDst, const IppsFFTSpec_R_32f *pFFTSpec,
                                Ipp8u *) {
    if (pSrc == nullptr || pDst == nullptr || pFFTSpec == nullptr) {
        return ippStsNullPtrErr;
    }
    const IppsFFTSpec_R_32f &spec = *pFFTSpec;
    // The inverse plan destroys its input, so the spectrum is copied (and scaled) first.
    float *c = spec.cplx[0];
    qk::simd::ScaledCopy(c, pSrc, 2 * spec.bins, spec.inverseScale);
    c[1] = 0.0f;
    c[2 * spec.bins - 1] = 0.0f;
    spec.inverseFromScratch(pDst);
    return ippStsNoErr;
}

IppStatus ippsFFTFwd_RToPack_32f(const Ipp32f *pSrc, Ipp32f *pDst,
                                 const IppsFFTSpec_R_32f *pFFTSpec, Ipp8u *) {
    if (pSrc == nullptr || pDst == nullptr || pFFTSpec == nullptr) {
        return ippStsNullPtrErr;
    }
    const IppsFFTSpec_R_32f &spec = *pFFTSpec;
    spec.forwardToScratch(pSrc);
    // CCS without its two imaginary parts that are always zero.
    const float *c = spec.cplx[0];
    pDst[0] = c[0] * spec.forwardScale;
    qk::simd::ScaledCopy(pDst + 1, c + 2, spec.n - 1, spec.forwardScale);
    return ippStsNoErr;
}

IppStatus ippsFFTInv_PackToR_32f(const Ipp32f *pSrc, Ipp32f *pDst,
                                 const IppsFFTSpec_R_32f *pFFTSpec, Ipp8u *) {
    if (pSrc == nullptr || pDst == nullptr || pFFTSpec == nullptr) {
        return ippStsNullPtrErr;
    }
    const IppsFFTSpec_R_32f &spec = *pFFTSpec;
    float *c = spec.cplx[0];
    c[0] = pSrc[0] * spec.inverseScale;
    c[1] = 0.0f;
    qk::simd::ScaledCopy(c + 2, pSrc + 1, spec.n - 1, spec.inverseScale);
    c[2 * spec.bins - 1] = 0.0f;
    spec.inverseFromScratch(pDst);
    return ippStsNoErr;
}

IppStatus ippsMulPack_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len) {
    if (pSrc1 == nullptr || pSrc2 == nullptr || pDst == nullptr) {
        return ippStsNullPtrErr;
    }
    if (len < 1) {
        return ippStsSizeErr;
    }
    pDst[0] = pSrc1[0] * pSrc2[0];
    qk::simd::MultiplyPairs(pDst + 1, pSrc1 + 1, pSrc2 + 1, (len - 1) / 2);
    if (len % 2 == 0 && len > 1) {
        pDst[len - 1] = pSrc1[len - 1] * pSrc2[len - 1];
    }
    return ippStsNoErr;
}
