#include "binaural/CSERVICE_QKEQ.h"

#include <cmath>
#include <vector>

#include "dsp/CFILTER_DESIGN.h"
#include "dsp/IppBuffer.h"

QK_IMPLEMENT_SERIAL(CSERVICE_QKEQ)
QK_IMPLEMENT_SERIAL(CSERVICE_DISPLACEMENT)

namespace {
void freeState(IppsFIRState_32f *&pState) {
    if (pState != nullptr) {
        ippsFIRFree_32f(pState);
        pState = nullptr;
    }
}

// ceil(log2 n) as the ratio of two decimal logarithms.
int orderFor(int n) {
    return static_cast<int>(std::ceil(std::log10(static_cast<double>(n)) / std::log10(2.0)));
}
}  // namespace

CSERVICE_QKEQ::~CSERVICE_QKEQ() {
    _quit();
}

IppsFIRState_32f *CSERVICE_QKEQ::Design(const float *pfResponse, int iLength, float fLimit) {
    const int half = iLength / 2;
    const int order = orderFor(iLength);
    if (half < 1 || order > kIppMaxFFTOrder) {
        return nullptr;
    }
    const int N = 1 << order;
    const int bins = half + 1;
    IppsFFTSpec_R_32f *spec = nullptr;
    ippsFFTInitAlloc_R_32f(&spec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    std::vector<float> padded(static_cast<size_t>(N), 0.0f);
    std::copy(pfResponse, pfResponse + iLength, padded.begin());
    std::vector<Ipp32fc> spectrum(static_cast<size_t>(N / 2 + 1));
    ippsFFTFwd_RToCCS_32f(padded.data(), &spectrum[0].re, spec, nullptr);
    ippsFFTFree_R_32f(spec);
    std::vector<float> grid(static_cast<size_t>(bins));
    std::vector<float> inverse(static_cast<size_t>(bins));
    for (int k = 0; k < bins; ++k) {
        float m =
            std::hypot(spectrum[static_cast<size_t>(k)].re, spectrum[static_cast<size_t>(k)].im);
        m = m < fLimit ? fLimit : m;
        m = m > 1.0f / fLimit ? 1.0f / fLimit : m;
        inverse[static_cast<size_t>(k)] = 1.0f / m;
        grid[static_cast<size_t>(k)] = static_cast<float>(k) / static_cast<float>(half);
        if (!std::isfinite(inverse[static_cast<size_t>(k)])) {
            return nullptr;  // a limit of 0 (or not a number) has no inverse to give
        }
    }
    CFILTER_DESIGN design;
    float *taps = nullptr;
    design.FIR2(half - 1, grid.data(), inverse.data(), bins, taps);
    IppsFIRState_32f *state = nullptr;
    if (taps != nullptr) {
        ippsFIRInitAlloc_32f(&state, taps, half, nullptr);
        ippsFree(taps);
    }
    return state;
}

int CSERVICE_QKEQ::_init(CHELPER_HRTF *pHRTF, float fLimit, float fSampleRate) {
    if (pHRTF == nullptr) {
        return -1;
    }
    m_fLimit = fLimit;
    m_fSampleRate = fSampleRate;
    const int rate = std::isfinite(fSampleRate) && fSampleRate > 0.0f && fSampleRate < 1e7f
                         ? static_cast<int>(fSampleRate)
                         : 0;
    float *left = nullptr, *right = nullptr, *left2 = nullptr, *right2 = nullptr;
    int length = 0, length2 = 0;
    const bool bFetched = pHRTF->GetHRTF(left, right, length, 0.0f, 0.0f, rate) == 1 &&
                          pHRTF->GetHRTF(left2, right2, length2, 0.0f, 0.0f, rate) == 1;
    if (bFetched && length > 0) {
        freeState(m_pFIRLeft);
        freeState(m_pFIRRight);
        m_pFIRLeft = Design(left, length, fLimit);
        m_pFIRRight = Design(right2, length2, fLimit);
    }
    for (float *p : {left, right, left2, right2}) {
        ippsFree(p);
    }
    return bFetched && length > 0 ? 0 : -1;
}

int CSERVICE_QKEQ::_process(CHELPER_HRTF *pHRTF, float *pfBlock, int n, float fLimit,
                            float fSampleRate) {
    if (fLimit != m_fLimit || fSampleRate != m_fSampleRate) {
        _quit();
        _init(pHRTF, fLimit, fSampleRate);
    }
    if (pfBlock == nullptr || n < 1) {
        return 0;
    }
    if (m_pFIRLeft != nullptr) {
        ippsFIR_32f(pfBlock, pfBlock, n, m_pFIRLeft);
    }
    if (m_pFIRRight != nullptr) {
        ippsFIR_32f(pfBlock + n, pfBlock + n, n, m_pFIRRight);
    }
    return 0;
}

int CSERVICE_QKEQ::_quit() {
    freeState(m_pFIRLeft);
    freeState(m_pFIRRight);
    return 0;
}

int CSERVICE_DISPLACEMENT::_init(CHELPER_HRTF *pHRTF, const float *pfPaths, float fSampleRate) {
    if (pHRTF == nullptr || pfPaths == nullptr) {
        return -1;
    }
    const int rate = std::isfinite(fSampleRate) && fSampleRate > 0.0f && fSampleRate < 1e7f
                         ? static_cast<int>(fSampleRate)
                         : 0;
    for (int i = 0; i < 4; ++i) {
        const float *path = pfPaths + 3 * i;
        float *left = nullptr, *right = nullptr;
        int length = 0;
        const int result =
            pHRTF->GetHRTFForPaths(left, right, length, path, path + 1, path + 2, 1, 1, rate);
        ippsFree(left);
        ippsFree(right);
        if (result != 1 || length < 1) {
            return -1;
        }
    }
    return 0;
}
