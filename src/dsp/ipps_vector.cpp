// Element-wise vector operations, windows, decimation, convolution and correlation.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "dsp/ipps.h"

namespace {
bool isNull(const void *p) {
    return p == nullptr;
}

// The common guard: a null pointer or a length under 1 does nothing.
template <typename... P>
IppStatus check(int len, const P *...ptrs) {
    if ((... || isNull(ptrs))) {
        return ippStsNullPtrErr;
    }
    return len < 1 ? ippStsSizeErr : ippStsNoErr;
}

size_t count(int len) {
    return static_cast<size_t>(len);
}
}  // namespace

IppStatus ippsCopy_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    std::memcpy(pDst, pSrc, sizeof(Ipp32f) * count(len));
    return ippStsNoErr;
}

IppStatus ippsMove_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    std::memmove(pDst, pSrc, sizeof(Ipp32f) * count(len));
    return ippStsNoErr;
}

IppStatus ippsZero_32f(Ipp32f *pDst, int len) {
    return ippsSet_32f(0.0f, pDst, len);
}

IppStatus ippsSet_32f(Ipp32f val, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pDst)) {
        return s;
    }
    std::fill(pDst, pDst + len, val);
    return ippStsNoErr;
}

IppStatus ippsCopy_8u(const Ipp8u *pSrc, Ipp8u *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    std::memcpy(pDst, pSrc, count(len));
    return ippStsNoErr;
}

IppStatus ippsZero_8u(Ipp8u *pDst, int len) {
    if (IppStatus s = check(len, pDst)) {
        return s;
    }
    std::memset(pDst, 0, count(len));
    return ippStsNoErr;
}

IppStatus ippsAdd_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc1, pSrc2, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = pSrc1[i] + pSrc2[i];
    }
    return ippStsNoErr;
}

IppStatus ippsAdd_32f_I(const Ipp32f *pSrc, Ipp32f *pSrcDst, int len) {
    return ippsAdd_32f(pSrc, pSrcDst, pSrcDst, len);
}

IppStatus ippsSub_32f(const Ipp32f *pSrc1, const Ipp32f *pSrc2, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc1, pSrc2, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = pSrc2[i] - pSrc1[i];
    }
    return ippStsNoErr;
}

IppStatus ippsMulC_32f_I(Ipp32f val, Ipp32f *pSrcDst, int len) {
    if (IppStatus s = check(len, pSrcDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pSrcDst[i] *= val;
    }
    return ippStsNoErr;
}

IppStatus ippsMul_32f_I(const Ipp32f *pSrc, Ipp32f *pSrcDst, int len) {
    if (IppStatus s = check(len, pSrc, pSrcDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pSrcDst[i] *= pSrc[i];
    }
    return ippStsNoErr;
}

IppStatus ippsAbs_32f(const Ipp32f *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = std::fabs(pSrc[i]);
    }
    return ippStsNoErr;
}

IppStatus ippsAbs_32f_I(Ipp32f *pSrcDst, int len) {
    return ippsAbs_32f(pSrcDst, pSrcDst, len);
}

IppStatus ippsSqrt_32f_I(Ipp32f *pSrcDst, int len) {
    if (IppStatus s = check(len, pSrcDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pSrcDst[i] = std::sqrt(pSrcDst[i]);
    }
    return ippStsNoErr;
}

IppStatus ippsLn_32f_I(Ipp32f *pSrcDst, int len) {
    if (IppStatus s = check(len, pSrcDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pSrcDst[i] = std::log(pSrcDst[i]);
    }
    return ippStsNoErr;
}

IppStatus ippsMaxIndx_32f(const Ipp32f *pSrc, int len, Ipp32f *pMax, int *pIndx) {
    if (IppStatus s = check(len, pSrc, pMax, pIndx)) {
        return s;
    }
    int best = 0;
    for (int i = 1; i < len; ++i) {
        if (pSrc[i] > pSrc[best]) {
            best = i;
        }
    }
    *pMax = pSrc[best];
    *pIndx = best;
    return ippStsNoErr;
}

IppStatus ippsConvert_16s32f(const Ipp16s *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = static_cast<Ipp32f>(pSrc[i]);
    }
    return ippStsNoErr;
}

IppStatus ippsRealToCplx_32f(const Ipp32f *pSrcRe, const Ipp32f *pSrcIm, Ipp32fc *pDst, int len) {
    if (pSrcRe == nullptr && pSrcIm == nullptr) {
        return ippStsNullPtrErr;
    }
    if (IppStatus s = check(len, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i].re = pSrcRe != nullptr ? pSrcRe[i] : 0.0f;
        pDst[i].im = pSrcIm != nullptr ? pSrcIm[i] : 0.0f;
    }
    return ippStsNoErr;
}

IppStatus ippsMagnitude_32fc(const Ipp32fc *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = std::sqrt(pSrc[i].re * pSrc[i].re + pSrc[i].im * pSrc[i].im);
    }
    return ippStsNoErr;
}

IppStatus ippsPhase_32fc(const Ipp32fc *pSrc, Ipp32f *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    for (int i = 0; i < len; ++i) {
        pDst[i] = std::atan2(pSrc[i].im, pSrc[i].re);
    }
    return ippStsNoErr;
}

IppStatus ippsConjPack_32fc(const Ipp32f *pSrc, Ipp32fc *pDst, int len) {
    if (IppStatus s = check(len, pSrc, pDst)) {
        return s;
    }
    pDst[0] = {pSrc[0], 0.0f};
    // Bins 1 .. (len - 1) / 2 are stored as pairs; an even length adds the real Nyquist bin.
    const int pairs = (len - 1) / 2;
    for (int k = 1; k <= pairs; ++k) {
        const Ipp32fc value{pSrc[2 * k - 1], pSrc[2 * k]};
        pDst[k] = value;
        pDst[len - k] = {value.re, -value.im};
    }
    if (len % 2 == 0 && len > 1) {
        pDst[len / 2] = {pSrc[len - 1], 0.0f};
    }
    return ippStsNoErr;
}

IppStatus ippsThreshold_32f_I(Ipp32f *pSrcDst, int len, Ipp32f level, IppCmpOp relOp) {
    if (IppStatus s = check(len, pSrcDst)) {
        return s;
    }
    if (relOp == ippCmpGreater) {
        for (int i = 0; i < len; ++i) {
            pSrcDst[i] = pSrcDst[i] > level ? level : pSrcDst[i];
        }
    } else if (relOp == ippCmpLess) {
        for (int i = 0; i < len; ++i) {
            pSrcDst[i] = pSrcDst[i] < level ? level : pSrcDst[i];
        }
    } else {
        return ippStsBadArgErr;
    }
    return ippStsNoErr;
}

IppStatus ThresholdAbove(Ipp32f *pSrcDst, int len, Ipp32f level, int mode) {
    if (mode != ippCmpGreater && mode != ippCmpLess) {
        return ippStsBadArgErr;
    }
    return ippsThreshold_32f_I(pSrcDst, len, level, static_cast<IppCmpOp>(mode));
}

IppStatus ippsWinHamming_32f_I(Ipp32f *pSrcDst, int len) {
    if (IppStatus s = check(len, pSrcDst)) {
        return s;
    }
    if (len == 1) {
        return ippStsNoErr;
    }
    constexpr double kTwoPi = 6.283185307179586;
    const double step = kTwoPi / (len - 1);
    for (int n = 0; n < len; ++n) {
        pSrcDst[n] = static_cast<Ipp32f>(pSrcDst[n] * (0.54 - 0.46 * std::cos(step * n)));
    }
    return ippStsNoErr;
}

IppStatus ippsSampleDown_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int *pDstLen, int factor,
                             int *pPhase) {
    if (IppStatus s = check(srcLen, pSrc, pDst, pDstLen, pPhase)) {
        return s;
    }
    if (factor < 1 || *pPhase < 0 || *pPhase >= factor) {
        return ippStsFactorErr;
    }
    int kept = 0;
    long long i = *pPhase;
    for (; i < srcLen; i += factor) {
        pDst[kept++] = pSrc[i];
    }
    *pDstLen = kept;
    *pPhase = static_cast<int>(i - srcLen);
    return ippStsNoErr;
}

IppStatus ippsConv_32f(const Ipp32f *pSrc1, int src1Len, const Ipp32f *pSrc2, int src2Len,
                       Ipp32f *pDst) {
    if (IppStatus s = check(std::min(src1Len, src2Len), pSrc1, pSrc2, pDst)) {
        return s;
    }
    // Run the longer operand in the inner loop: each pass is a scaled add over contiguous
    // memory, which the compiler vectorises without reordering any sum.
    const Ipp32f *pLong = src1Len >= src2Len ? pSrc1 : pSrc2;
    const Ipp32f *pShort = src1Len >= src2Len ? pSrc2 : pSrc1;
    const int longLen = std::max(src1Len, src2Len);
    const int shortLen = std::min(src1Len, src2Len);
    std::memset(pDst, 0, sizeof(Ipp32f) * (count(longLen) + count(shortLen) - 1));
    for (int k = 0; k < shortLen; ++k) {
        const Ipp32f weight = pShort[k];
        Ipp32f *out = pDst + k;
        for (int n = 0; n < longLen; ++n) {
            out[n] += weight * pLong[n];
        }
    }
    return ippStsNoErr;
}

IppStatus ippsAutoCorr_32f(const Ipp32f *pSrc, int srcLen, Ipp32f *pDst, int dstLen) {
    if (IppStatus s = check(std::min(srcLen, dstLen), pSrc, pDst)) {
        return s;
    }
    for (int k = 0; k < dstLen; ++k) {
        double sum = 0.0;
        for (int n = 0; n + k < srcLen; ++n) {
            sum += static_cast<double>(pSrc[n]) * pSrc[n + k];
        }
        pDst[k] = static_cast<Ipp32f>(sum);
    }
    return ippStsNoErr;
}
