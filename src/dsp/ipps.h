// The signal layer: single-precision vector, transform and filter operations under the names
// and argument orders of the vendor library the system was written against. Every operation
// returns a status that callers may ignore; a null pointer or a length under 1 does nothing.
#pragma once

#include <cstdint>

typedef float Ipp32f;
typedef int16_t Ipp16s;
typedef uint8_t Ipp8u;
typedef int IppStatus;

struct Ipp32fc {
    Ipp32f re;
    Ipp32f im;
};

enum : IppStatus {
    ippStsNoErr = 0,
    ippStsSizeErr = -6,
    ippStsNullPtrErr = -8,
    ippStsMemAllocErr = -9,
    ippStsFactorErr = -13,
    ippStsDivByZeroErr = -10,
};

// Memory aligned to 32 bytes. What ippsMalloc_32f gives goes back to ippsFree only.
Ipp32f *ippsMalloc_32f(int len);
void ippsFree(void *ptr);

// Largest value (signed).
IppStatus ippsMax_32f(const Ipp32f *pSrc, int len, Ipp32f *pMax);

// Normally distributed numbers with the given mean and standard deviation; the seed moves on.
IppStatus ippsRandGauss_Direct_32f(Ipp32f *pDst, int len, Ipp32f mean, Ipp32f stdDev,
                                   unsigned int *pSeed);

// Up-sampling by zero stuffing: each source sample lands at position *pPhase of its group of
// factor output samples, the rest are zeros; *pDstLen becomes srcLen * factor. A factor under
// 1 is refused and nothing is written.
IppStatus ippsSampleUp_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int *pDstLen, int factor,
                           int *pPhase);

// Direct-form IIR filter. pTaps holds b0..b(order), a0..a(order); all are divided by a0 at
// creation (a0 = 0 is refused). The delay line starts at zero (pDlyLine is ignored) and runs
// on from call to call.
struct IppsIIRState_32f;
IppStatus ippsIIRInitAlloc_32f(IppsIIRState_32f **ppState, const Ipp32f *pTaps, int order,
                               const Ipp32f *pDlyLine);
IppStatus ippsIIR_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len, IppsIIRState_32f *pState);
IppStatus ippsIIRFree_32f(IppsIIRState_32f *pState);
