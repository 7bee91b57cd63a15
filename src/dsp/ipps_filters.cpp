// FIR filtering and the least-mean-squares adaptive FIR. Both keep their delay lines between
// calls, so a stream can be filtered block by block with the same result as in one piece.
#include <algorithm>
#include <cstring>
#include <vector>

#include "dsp/ipps.h"

namespace {
// The FIR works through its input in chunks of this many samples, so that its work space is
// fixed when the state is made and a block of any length allocates nothing.
constexpr int kFIRChunk = 1024;
}  // namespace

struct IppsFIRState_32f {
    int taps = 0;
    std::vector<float> reversed;  // taps in reverse order: reversed[j] = taps[taps - 1 - j]
    // taps - 1 past inputs (oldest first) followed by room for one chunk of new input.
    std::vector<float> window;
    std::vector<float> sum;  // one chunk of outputs being accumulated

    void filterChunk(const Ipp32f *pSrc, Ipp32f *pDst, int n) {
        float *fresh = window.data() + (taps - 1);
        std::memcpy(fresh, pSrc, sizeof(float) * static_cast<size_t>(n));
        std::fill(sum.begin(), sum.begin() + n, 0.0f);
        // y[i] = sum over j of reversed[j] * window[i + j]; tap by tap so that the inner loop is
        // a scaled add over contiguous memory.
        for (int j = 0; j < taps; ++j) {
            const float weight = reversed[static_cast<size_t>(j)];
            const float *x = window.data() + j;
            for (int i = 0; i < n; ++i) {
                sum[static_cast<size_t>(i)] += weight * x[i];
            }
        }
        std::memcpy(pDst, sum.data(), sizeof(float) * static_cast<size_t>(n));
        // The last taps - 1 inputs become the history of the next chunk.
        std::memmove(window.data(), window.data() + n,
                     sizeof(float) * static_cast<size_t>(taps - 1));
    }
};

IppStatus ippsFIRInitAlloc_32f(IppsFIRState_32f **ppState, const Ipp32f *pTaps, int tapsLen,
                               const Ipp32f *pDlyLine) {
    if (ppState == nullptr || pTaps == nullptr) {
        return ippStsNullPtrErr;
    }
    if (tapsLen < 1) {
        return ippStsSizeErr;
    }
    auto *state = new IppsFIRState_32f;
    state->taps = tapsLen;
    state->reversed.assign(pTaps, pTaps + tapsLen);
    std::reverse(state->reversed.begin(), state->reversed.end());
    state->window.assign(static_cast<size_t>(tapsLen - 1 + kFIRChunk), 0.0f);
    state->sum.assign(kFIRChunk, 0.0f);
    if (pDlyLine != nullptr) {
        // Most recent first in the argument, oldest first in the window.
        for (int k = 0; k < tapsLen - 1; ++k) {
            state->window[static_cast<size_t>(tapsLen - 2 - k)] = pDlyLine[k];
        }
    }
    *ppState = state;
    return ippStsNoErr;
}

IppStatus ippsFIR_32f(const Ipp32f *pSrc, Ipp32f *pDst, int numIters, IppsFIRState_32f *pState) {
    if (pSrc == nullptr || pDst == nullptr || pState == nullptr) {
        return ippStsNullPtrErr;
    }
    if (numIters < 1) {
        return ippStsSizeErr;
    }
    for (int done = 0; done < numIters; done += kFIRChunk) {
        pState->filterChunk(pSrc + done, pDst + done, std::min(kFIRChunk, numIters - done));
    }
    return ippStsNoErr;
}

IppStatus ippsFIRFree_32f(IppsFIRState_32f *pState) {
    delete pState;
    return ippStsNoErr;
}

struct IppsFIRLMSState_32f {
    int taps = 0;
    std::vector<float> coefs;  // impulse-response order
    // The inputs twice over, so that the taps most recent inputs are always contiguous:
    // history[pos + k] is x[n - k] for k = 0 .. taps - 1.
    std::vector<float> history;
    int pos = 0;

    void push(float x) {
        pos = pos == 0 ? taps - 1 : pos - 1;
        history[static_cast<size_t>(pos)] = x;
        history[static_cast<size_t>(pos + taps)] = x;
    }
};

IppStatus ippsFIRLMSInitAlloc_32f(IppsFIRLMSState_32f **ppState, const Ipp32f *pTaps, int tapsLen,
                                  const Ipp32f *pDlyLine, int dlyLineIndex) {
    if (ppState == nullptr) {
        return ippStsNullPtrErr;
    }
    if (tapsLen < 1) {
        return ippStsSizeErr;
    }
    auto *state = new IppsFIRLMSState_32f;
    state->taps = tapsLen;
    state->coefs.assign(static_cast<size_t>(tapsLen), 0.0f);
    if (pTaps != nullptr) {
        state->coefs.assign(pTaps, pTaps + tapsLen);
    }
    state->history.assign(2 * static_cast<size_t>(tapsLen), 0.0f);
    if (pDlyLine != nullptr) {
        // With pos at 0 before the first sample, history[k] is x[-1 - k].
        const int start = ((dlyLineIndex % tapsLen) + tapsLen) % tapsLen;
        for (int k = 0; k < tapsLen; ++k) {
            const float x = pDlyLine[(start + k) % tapsLen];
            state->history[static_cast<size_t>(k)] = x;
            state->history[static_cast<size_t>(k + tapsLen)] = x;
        }
    }
    *ppState = state;
    return ippStsNoErr;
}

IppStatus ippsFIRLMS_32f(const Ipp32f *pSrc, const Ipp32f *pRef, Ipp32f *pDst, int len, float mu,
                         IppsFIRLMSState_32f *pState) {
    if (pSrc == nullptr || pRef == nullptr || pDst == nullptr || pState == nullptr) {
        return ippStsNullPtrErr;
    }
    if (len < 1) {
        return ippStsSizeErr;
    }
    const int taps = pState->taps;
    float *coefs = pState->coefs.data();
    for (int n = 0; n < len; ++n) {
        const float ref = pRef[n];  // read before pDst[n] is written, should they be one array
        pState->push(pSrc[n]);
        const float *x = pState->history.data() + pState->pos;
        float y = 0.0f;
        for (int k = 0; k < taps; ++k) {
            y += coefs[k] * x[k];
        }
        const float step = 2.0f * mu * (ref - y);
        for (int k = 0; k < taps; ++k) {
            coefs[k] += step * x[k];
        }
        pDst[n] = y;
    }
    return ippStsNoErr;
}

IppStatus ippsFIRLMSGetTaps_32f(const IppsFIRLMSState_32f *pState, Ipp32f *pOutTaps) {
    if (pState == nullptr || pOutTaps == nullptr) {
        return ippStsNullPtrErr;
    }
    std::copy(pState->coefs.begin(), pState->coefs.end(), pOutTaps);
    return ippStsNoErr;
}

IppStatus ippsFIRLMSFree_32f(IppsFIRLMSState_32f *pState) {
    delete pState;
    return ippStsNoErr;
}
