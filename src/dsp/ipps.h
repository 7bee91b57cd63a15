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
    ippStsBadArgErr = -5,
    ippStsFftOrderErr = -15,
    ippStsFftFlagErr = -16,
};

// Comparison for the threshold operation (values as the vendor library numbers them).
enum IppCmpOp {
    ippCmpLess = 0,
    ippCmpLessEq = 1,
    ippCmpEq = 2,
    ippCmpGreaterEq = 3,
    ippCmpGreater = 4
};

// Accuracy/speed hint for transforms. Both give the same results for practical purposes.
enum IppHintAlgorithm { ippAlgHintNone = 0, ippAlgHintFast = 1, ippAlgHintAccurate = 2 };

// Scaling of the real transforms.
enum : int {
    IPP_FFT_DIV_FWD_BY_N = 1,  // forward divided by N, inverse unscaled
    IPP_FFT_DIV_INV_BY_N = 2,  // forward unscaled, inverse divided by N (what the system uses)
    IPP_FFT_DIV_BY_SQRTN = 4,  // both divided by sqrt(N)
    IPP_FFT_NODIV_BY_ANY = 8,  // neither scaled
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

// ---- Vectors -------------------------------------------------------------------------------
// Lengths are in elements. Unless said otherwise, source and destination must not overlap
// partially; dst == src is allowed where an operation reads each element before writing it.

IppStatus ippsCopy_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len);
IppStatus ippsMove_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len);  // ranges may overlap
IppStatus ippsZero_32f(Ipp32f *pDst, int len);
IppStatus ippsSet_32f(Ipp32f val, Ipp32f *pDst, int len);
IppStatus ippsCopy_8u(const Ipp8u *pSrc, Ipp8u *pDst, int len);
IppStatus ippsZero_8u(Ipp8u *pDst, int len);

// dst = src1 + src2; srcdst += src.
IppStatus ippsAdd_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len);
IppStatus ippsAdd_32f_I(const Ipp32f *pSrc, Ipp32f *pSrcDst, int len);
// dst = src2 - src1: the second operand minus the first. Callers depend on this order.
IppStatus ippsSub_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len);
// srcdst *= val; srcdst *= src element by element.
IppStatus ippsMulC_32f_I(Ipp32f val, Ipp32f *pSrcDst, int len);
IppStatus ippsMul_32f_I(const Ipp32f *pSrc, Ipp32f *pSrcDst, int len);

IppStatus ippsAbs_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len);
IppStatus ippsAbs_32f_I(Ipp32f *pSrcDst, int len);
// Square root and natural logarithm in place; negative values give NaN, 0 gives -inf.
IppStatus ippsSqrt_32f_I(Ipp32f *pSrcDst, int len);
IppStatus ippsLn_32f_I(Ipp32f *pSrcDst, int len);

// Largest value and the first index that holds it.
IppStatus ippsMaxIndx_32f(const Ipp32f *pSrc, int len, Ipp32f *pMax, int *pIndx);

// Signed 16-bit integers to floats, values unchanged.
IppStatus ippsConvert_16s32f(const Ipp16s *pSrc, Ipp32f *pDst, int len);

// Interleaves real and imaginary parts into complex values; a null pRe or pIm counts as zeros.
IppStatus ippsRealToCplx_32f(const Ipp32f *pSrcRe, const Ipp32f *pSrcIm, Ipp32fc *pDst, int len);
// sqrt(re^2 + im^2) and atan2(im, re) in radians.
IppStatus ippsMagnitude_32fc(const Ipp32fc *pSrc, Ipp32f *pDst, int len);
IppStatus ippsPhase_32fc(const Ipp32fc *pSrc, Ipp32f *pDst, int len);
// Expands a Pack spectrum of a real sequence of length len into its len complex values,
// filling the upper half by conjugate symmetry.
IppStatus ippsConjPack_32fc(const Ipp32f *pSrc, Ipp32fc *pDst, int len);

// Replaces in place every element that compares with level as relOp says by level:
// ippCmpGreater clips from above, ippCmpLess from below. Other comparisons are refused.
IppStatus ippsThreshold_32f_I(Ipp32f *pSrcDst, int len, Ipp32f level, IppCmpOp relOp);
// The post-processing stage's form: mode 4 (greater than) makes every element above level
// equal to level.
IppStatus ThresholdAbove(Ipp32f *pSrcDst, int len, Ipp32f level, int mode);

// ---- Windows, decimation, correlation -----------------------------------------------------

// Multiplies by w(n) = 0.54 - 0.46 cos(2 pi n / (len - 1)). A single element is left alone.
IppStatus ippsWinHamming_32f_I(Ipp32f *pSrcDst, int len);
// Keeps src[phase], src[phase + factor], ...; *pDstLen is set to the count kept and *pPhase to
// the phase that continues the stream in the next call. factor >= 1, 0 <= phase < factor.
IppStatus ippsSampleDown_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int *pDstLen, int factor,
                             int *pPhase);
// Linear convolution; pDst receives src1Len + src2Len - 1 values and must not overlap a source.
IppStatus ippsConv_32f(const Ipp32f *pSrc1, int src1Len, const Ipp32f *pSrc2, int src2Len,
                       Ipp32f *pDst);
// dst[k] = sum over n of src[n] * src[n + k], unnormalised, for k = 0 .. dstLen - 1 (lags
// beyond the source give 0).
IppStatus ippsAutoCorr_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int dstLen);

// ---- Real transforms ----------------------------------------------------------------------
// Length N = 2^order, order 0 .. kIppMaxFFTOrder. Spectra come in two layouts that must not
// be mixed:
//   CCS  (N + 2 floats): re0, 0, re1, im1, ..., re(N/2), 0 - the N/2 + 1 complex values;
//   Pack (N floats):     re0, re1, im1, ..., re(N/2 - 1), im(N/2 - 1), re(N/2).
// With IPP_FFT_DIV_INV_BY_N the forward transform is unscaled and the inverse divides by N,
// so forward-then-inverse returns the input, and the inverse of a product of two forward
// transforms is the circular convolution at its proper scale.
//
// A transform object owns scratch space, so it serves one thread at a time. The transform plans
// behind it are made once per length for the whole process and shared: a transform object for a
// length seen before makes no new plan. The work buffer argument (pBuffer) is not needed and may be
// null. Sources and destinations may be the same array and need no particular alignment;
// arrays from ippsMalloc_32f take the fastest path.
constexpr int kIppMaxFFTOrder = 24;
struct IppsFFTSpec_R_32f;
IppStatus ippsFFTInitAlloc_R_32f(IppsFFTSpec_R_32f **ppFFTSpec, int order, int flag,
                                 IppHintAlgorithm hint);
IppStatus ippsFFTFree_R_32f(IppsFFTSpec_R_32f *pFFTSpec);
IppStatus ippsFFTFwd_RToCCS_32f(const Ipp32f *pSrc, Ipp32f *pDst, const IppsFFTSpec_R_32f *pFFTSpec,
                                Ipp8u *pBuffer);
IppStatus ippsFFTInv_CCSToR_32f(const Ipp32f *pSrc, Ipp32f *pDst, const IppsFFTSpec_R_32f *pFFTSpec,
                                Ipp8u *pBuffer);
IppStatus ippsFFTFwd_RToPack_32f(const Ipp32f *pSrc, Ipp32f *pDst,
                                 const IppsFFTSpec_R_32f *pFFTSpec, Ipp8u *pBuffer);
IppStatus ippsFFTInv_PackToR_32f(const Ipp32f *pSrc, Ipp32f *pDst,
                                 const IppsFFTSpec_R_32f *pFFTSpec, Ipp8u *pBuffer);
// Complex product of two Pack spectra of a length-len sequence (len = N), element by element.
// pDst may be either source.
IppStatus ippsMulPack_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len);

// ---- FIR and adaptive FIR -----------------------------------------------------------------
// y[n] = sum over k of taps[k] * x[n - k]. Taps are in ordinary impulse-response order and
// copied. The delay line is zero when pDlyLine is null; otherwise it holds the tapsLen - 1
// previous inputs, the most recent first (x[-1], x[-2], ...). The state keeps its delay line
// from call to call. pSrc and pDst may be the same array.
struct IppsFIRState_32f;
IppStatus ippsFIRInitAlloc_32f(IppsFIRState_32f **ppState, const Ipp32f *pTaps, int tapsLen,
                               const Ipp32f *pDlyLine);
IppStatus ippsFIR_32f(const Ipp32f *pSrc, Ipp32f *pDst, int numIters, IppsFIRState_32f *pState);
IppStatus ippsFIRFree_32f(IppsFIRState_32f *pState);

// Least-mean-squares adaptive FIR. For each sample: y = taps . recent inputs; error = ref - y;
// every tap += 2 * mu * error * its input; dst gets y. Null taps or delay line mean zeros; a
// given delay line holds tapsLen previous inputs starting at dlyLineIndex and running back in
// time circularly (element dlyLineIndex is x[-1]).
struct IppsFIRLMSState_32f;
IppStatus ippsFIRLMSInitAlloc_32f(IppsFIRLMSState_32f **ppState, const Ipp32f *pTaps, int tapsLen,
                                  const Ipp32f *pDlyLine, int dlyLineIndex);
IppStatus ippsFIRLMS_32f(const Ipp32f *pSrc, const Ipp32f *pRef, Ipp32f *pDst, int len, float mu,
                         IppsFIRLMSState_32f *pState);
// Copies the present taps, in impulse-response order, to pOutTaps (tapsLen floats).
IppStatus ippsFIRLMSGetTaps_32f(const IppsFIRLMSState_32f *pState, Ipp32f *pOutTaps);
IppStatus ippsFIRLMSFree_32f(IppsFIRLMSState_32f *pState);
