#include "binaural/CQUENDARIC_Service_CrossTalk.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/Vectorize.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Service_CrossTalk)

namespace {
void zero(float *pf, int n) {
    std::memset(pf, 0, sizeof(float) * static_cast<size_t>(n));
}

// out = a x X - b x Y, element by element on Pack spectra of length n: the first and the last
// value are real, the rest are (re, im) pairs.
QK_VECTORIZE void mulPackSub(const float *a, const float *x, const float *b, const float *y,
                             float *__restrict out, int n) {
    out[0] = a[0] * x[0] - b[0] * y[0];
    out[n - 1] = a[n - 1] * x[n - 1] - b[n - 1] * y[n - 1];
    for (int k = 1; k + 1 < n; k += 2) {
        const float re = a[k] * x[k] - a[k + 1] * x[k + 1] - (b[k] * y[k] - b[k + 1] * y[k + 1]);
        const float im = a[k] * x[k + 1] + a[k + 1] * x[k] - (b[k] * y[k + 1] + b[k + 1] * y[k]);
        out[k] = re;
        out[k + 1] = im;
    }
}

// With y the circular result of this piece (N floats, exact since the piece and the filter fit
// in N): the piece's output is y[0, n) plus the tail left by earlier pieces; the tail then
// moves on by n and takes y[n, N).
void overlapAdd(const float *y, float *tail, float *out, int n, int N) {
    for (int k = 0; k < n; ++k) {
        out[k] = y[k] + tail[k];
    }
    std::memmove(tail, tail + n, sizeof(float) * static_cast<size_t>(N - n));
    zero(tail + (N - n), n);
    for (int k = 0; k < N - n; ++k) {
        tail[k] += y[n + k];
    }
}

// A loudspeaker's delay in samples for its distance, bounded.
int pathDelay(float fDistance, int iSampleRate) {
    const double samples = static_cast<double>(fDistance) / 343.0 * iSampleRate;
    return static_cast<int>(std::min(samples, static_cast<double>(1 << 16)));
}

int orderFor(int n) {
    int order = 0;
    while ((1 << order) < n) {
        ++order;
    }
    return order;
}
}  // namespace

CQUENDARIC_Service_CrossTalk::~CQUENDARIC_Service_CrossTalk() {
    Terminate();
}

bool CQUENDARIC_Service_CrossTalk::Fetch(CHELPER_HRTF *pHRTF, float fAzimuth, float fElevation,
                                         float fDistance, float fOtherDistance, float *&pfLeftEar,
                                         float *&pfRightEar, int &iLength) {
    if (pHRTF->GetHRTF(pfLeftEar, pfRightEar, iLength, fAzimuth, fElevation, m_iSampleRate) != 1 ||
        pfLeftEar == nullptr || pfRightEar == nullptr || iLength < 1) {
        return false;
    }
    // Unequal distances: this path is delayed by its travel time and attenuated by 1 / r.
    if (fDistance > 0.1f && fDistance != fOtherDistance) {
        const int delay = pathDelay(fDistance, m_iSampleRate);
        const float gain = 1.0f / fDistance;
        for (float **pp : {&pfLeftEar, &pfRightEar}) {
            float *longer = ippsMalloc_32f(iLength + delay);
            zero(longer, delay);
            for (int k = 0; k < iLength; ++k) {
                longer[delay + k] = (*pp)[k] * gain;
            }
            FreeIppArray(*pp);
            *pp = longer;
        }
        iLength += delay;
    }
    return true;
}

int CQUENDARIC_Service_CrossTalk::Initialize(CHELPER_HRTF *pHRTF, float fAzimuth1,
                                             float fElevation1, float fDistance1, float fAzimuth2,
                                             float fElevation2, float fDistance2, int iBlockLength,
                                             int iFilterMode, int iSampleRate, float fTES) {
    if (pHRTF == nullptr) {
        return 0;
    }
    Terminate();
    m_fAzimuth1 = fAzimuth1;
    m_fElevation1 = fElevation1;
    m_fDistance1 = fDistance1;
    m_fAzimuth2 = fAzimuth2;
    m_fElevation2 = fElevation2;
    m_fDistance2 = fDistance2;
    m_iFilterMode = iFilterMode;
    m_iSampleRate = iSampleRate;
    float *a = nullptr, *b = nullptr, *c = nullptr, *d = nullptr;
    int La = 0, Lc = 0;
    const bool bFetched = Fetch(pHRTF, fAzimuth1, fElevation1, fDistance1, fDistance2, a, b, La) &&
                          Fetch(pHRTF, fAzimuth2, fElevation2, fDistance2, fDistance1, c, d, Lc);
    if (bFetched) {
        // det = a*d - b*c, and its inverse regularised to +-3 dB about its mean level, with
        // the mean removed and the peak in the middle; its first kInverseTaps taps are kept.
        const int iDet = La + Lc - 1;
        CIppBuffer ad(iDet), bc(iDet);
        ippsConv_32f(a, La, d, Lc, ad);
        ippsConv_32f(b, La, c, Lc, bc);
        ippsSub_32f(bc, ad, ad, iDet);
        float *g = nullptr;
        int iInverse = kInverseTaps;
        m_Design.InvertRegularised(ad, iDet, kInverseDynamic, g, iInverse, 1);
        if (g != nullptr && iInverse >= kInverseTaps) {
            const int M = std::max(La, Lc);
            m_iFilterLength = kInverseTaps + M - 1;
            const int iBlock = std::max(iBlockLength, 1);
            m_iFFTOrder = orderFor(m_iFilterLength + kTESTaps - 1 + iBlock - 1);
            m_iFFTLength = 1 << m_iFFTOrder;
            m_iPiece = m_iFFTLength - (m_iFilterLength + kTESTaps - 1) + 1;
            ippsFFTInitAlloc_R_32f(&m_pFFTSpec, m_iFFTOrder, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
            MakeRoutes(a, b, La, c, d, Lc, g);
        }
        ippsFree(g);
    }
    for (float *p : {a, b, c, d}) {
        ippsFree(p);
    }
    if (m_pFFTSpec == nullptr) {
        Terminate();
        return 0;
    }
    InitializeTES(fTES);
    return 1;
}

void CQUENDARIC_Service_CrossTalk::MakeRoutes(const float *a, const float *b, int iLengthA,
                                              const float *c, const float *d, int iLengthC,
                                              const float *g) {
    const int N = m_iFFTLength;
    struct Route {
        CIppBuffer *filter;
        CIppBuffer *spectrum;
        const float *h;
        int length;
    };
    const Route routes[] = {{&m_pfFilterLL, &m_pfSpectrumLL, d, iLengthC},
                            {&m_pfFilterRL, &m_pfSpectrumRL, c, iLengthC},
                            {&m_pfFilterLR, &m_pfSpectrumLR, b, iLengthA},
                            {&m_pfFilterRR, &m_pfSpectrumRR, a, iLengthA}};
    for (const Route &r : routes) {
        r.filter->AllocateZeroed(N + 2);
        ippsConv_32f(r.h, r.length, g, kInverseTaps, *r.filter);
        r.spectrum->Allocate(N);
        ippsFFTFwd_RToPack_32f(*r.filter, *r.spectrum, m_pFFTSpec, nullptr);
    }
    for (CIppBuffer *p : {&m_pfRunLL, &m_pfRunRL, &m_pfRunLR, &m_pfRunRR, &m_pfWorkL, &m_pfWorkR,
                          &m_pfOutL, &m_pfOutR}) {
        p->Allocate(N);
    }
    m_pfTailL.AllocateZeroed(N);
    m_pfTailR.AllocateZeroed(N);
}

void CQUENDARIC_Service_CrossTalk::DesignTES(const float *pfDirect, const float *pfCross,
                                             int iDynamic, CIppBuffer &taps) {
    const int N = m_iFFTLength;
    CIppBuffer e(N);
    ippsSub_32f(pfCross, pfDirect, e, N);
    float *inverse = nullptr;
    int iLength = N;
    m_Design.InvertRegularised(e, N, iDynamic, inverse, iLength, 0);
    float *cepstrum = nullptr;
    float *minimum = nullptr;
    if (inverse != nullptr) {
        m_Design.MinimumPhase(inverse, iLength, cepstrum, minimum);
    }
    if (minimum != nullptr && iLength >= kTESTaps) {
        // The falling half of a 2048-point Hamming window over the first 1024 taps.
        CIppBuffer window(2 * kTESTaps);
        ippsSet_32f(1.0f, window, 2 * kTESTaps);
        ippsWinHamming_32f_I(window, 2 * kTESTaps);
        taps.Allocate(kTESTaps);
        for (int k = 0; k < kTESTaps; ++k) {
            taps[k] = minimum[k] * window[kTESTaps + k];
        }
    } else {
        taps.Reset();
    }
    for (float *p : {inverse, cepstrum, minimum}) {
        ippsFree(p);
    }
}

int CQUENDARIC_Service_CrossTalk::InitializeTES(float fTES) {
    if (m_pFFTSpec == nullptr) {
        m_fTES = fTES;
        return 0;
    }
    // The band in force is the stored one: this call's value serves the next design.
    const int iDynamic =
        std::isfinite(m_fTES) ? static_cast<int>(std::clamp(m_fTES, 0.0f, 200.0f)) : 0;
    DesignTES(m_pfFilterLL, m_pfFilterRL, iDynamic, m_pfTESLeft);
    DesignTES(m_pfFilterRR, m_pfFilterLR, iDynamic, m_pfTESRight);
    m_fTES = fTES;
    FoldTES();
    return 0;
}

void CQUENDARIC_Service_CrossTalk::FoldTES() {
    const int N = m_iFFTLength;
    struct Output {
        const CIppBuffer *tes;
        CIppBuffer *run[2];
        const CIppBuffer *spectrum[2];
    };
    const Output outputs[] = {
        {&m_pfTESLeft, {&m_pfRunLL, &m_pfRunRL}, {&m_pfSpectrumLL, &m_pfSpectrumRL}},
        {&m_pfTESRight, {&m_pfRunRR, &m_pfRunLR}, {&m_pfSpectrumRR, &m_pfSpectrumLR}}};
    for (const Output &o : outputs) {
        for (int i = 0; i < 2; ++i) {
            ippsCopy_32f(*o.spectrum[i], *o.run[i], N);
        }
        if (*o.tes == nullptr) {
            continue;  // no TES filter: the output runs without one
        }
        zero(m_pfWorkL, N);
        ippsCopy_32f(*o.tes, m_pfWorkL, kTESTaps);
        ippsFFTFwd_RToPack_32f(m_pfWorkL, m_pfWorkL, m_pFFTSpec, nullptr);
        for (int i = 0; i < 2; ++i) {
            ippsMulPack_32f(m_pfWorkL, *o.run[i], *o.run[i], N);
        }
    }
}

int CQUENDARIC_Service_CrossTalk::GetSamples(CHELPER_HRTF *pHRTF, float fAzimuth1,
                                             float fElevation1, float fDistance1, float fAzimuth2,
                                             float fElevation2, float fDistance2, int iBlockLength,
                                             int iFilterMode, float *pfData, int iLength,
                                             int iSampleRate, float fTES) {
    auto moved = [](float a, float b) { return std::fabs(a - b) > kRedesignDegrees; };
    if (moved(m_fAzimuth1, fAzimuth1) || moved(m_fElevation1, fElevation1) ||
        moved(m_fAzimuth2, fAzimuth2) || moved(m_fElevation2, fElevation2) ||
        iFilterMode != m_iFilterMode || iLength > m_iFFTLength || iSampleRate != m_iSampleRate) {
        Terminate();
        if (Initialize(pHRTF, fAzimuth1, fElevation1, fDistance1, fAzimuth2, fElevation2,
                       fDistance2, std::max(iBlockLength, iLength), iFilterMode, iSampleRate,
                       fTES) == 0) {
            return 0;
        }
    } else if (m_fTES != fTES) {
        InitializeTES(fTES);
    }
    if (m_pFFTSpec == nullptr || pfData == nullptr || iLength < 1) {
        return 0;
    }
    for (int done = 0; done < iLength; done += m_iPiece) {
        const int n = std::min(m_iPiece, iLength - done);
        ProcessPiece(pfData + done, pfData + iLength + done, n);
    }
    return 1;
}

void CQUENDARIC_Service_CrossTalk::ProcessPiece(float *pfLeft, float *pfRight, int n) {
    const int N = m_iFFTLength;
    ippsCopy_32f(pfLeft, m_pfWorkL, n);
    zero(m_pfWorkL + n, N - n);
    ippsCopy_32f(pfRight, m_pfWorkR, n);
    zero(m_pfWorkR + n, N - n);
    ippsFFTFwd_RToPack_32f(m_pfWorkL, m_pfWorkL, m_pFFTSpec, nullptr);
    ippsFFTFwd_RToPack_32f(m_pfWorkR, m_pfWorkR, m_pFFTSpec, nullptr);
    // The inverse is linear: each output's two routes are summed before it is taken.
    mulPackSub(m_pfRunLL, m_pfWorkL, m_pfRunRL, m_pfWorkR, m_pfOutL, N);
    mulPackSub(m_pfRunRR, m_pfWorkR, m_pfRunLR, m_pfWorkL, m_pfOutR, N);
    ippsFFTInv_PackToR_32f(m_pfOutL, m_pfOutL, m_pFFTSpec, nullptr);
    ippsFFTInv_PackToR_32f(m_pfOutR, m_pfOutR, m_pFFTSpec, nullptr);
    overlapAdd(m_pfOutL, m_pfTailL, pfLeft, n, N);
    overlapAdd(m_pfOutR, m_pfTailR, pfRight, n, N);
}

int CQUENDARIC_Service_CrossTalk::Terminate() {
    for (CIppBuffer *p :
         {&m_pfFilterLL,   &m_pfFilterRL,   &m_pfFilterLR,   &m_pfFilterRR, &m_pfSpectrumLL,
          &m_pfSpectrumRL, &m_pfSpectrumLR, &m_pfSpectrumRR, &m_pfTailL,    &m_pfTailR,
          &m_pfTESLeft,    &m_pfTESRight,   &m_pfRunLL,      &m_pfRunRL,    &m_pfRunLR,
          &m_pfRunRR,      &m_pfWorkL,      &m_pfWorkR,      &m_pfOutL,     &m_pfOutR}) {
        p->Reset();
    }
    ippsFFTFree_R_32f(m_pFFTSpec);
    m_pFFTSpec = nullptr;
    m_iFFTLength = 0;
    m_iFFTOrder = 0;
    m_iFilterLength = 0;
    m_iPiece = 0;
    m_iInitialized = 0;
    return 1;
}
