// The diffuse-field and low-frequency magnitude conversions of HRTF sets.
#include "binaural/CHRTF_Converter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"
#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CHRTF_Converter)

namespace {
// The smallest order whose power of two holds n samples.
int orderFor(int n) {
    int order = 0;
    while ((1 << order) < n) {
        ++order;
    }
    return order;
}

// One real transform of 2^order points, inverse divided by N, released with the object.
class RealFFT {
  public:
    RealFFT(int order, IppHintAlgorithm hint) : m_iLength(1 << order) {
        ippsFFTInitAlloc_R_32f(&m_pSpec, order, IPP_FFT_DIV_INV_BY_N, hint);
    }
    ~RealFFT() { ippsFFTFree_R_32f(m_pSpec); }
    RealFFT(const RealFFT &) = delete;
    RealFFT &operator=(const RealFFT &) = delete;
    // A response of iTaps samples, zero-padded, into its CCS spectrum (N + 2 floats).
    void Forward(const float *pfResponse, int iTaps, float *pfTime, float *pfCCS) const {
        std::memset(pfTime, 0, sizeof(float) * static_cast<size_t>(m_iLength));
        std::memcpy(pfTime, pfResponse, sizeof(float) * static_cast<size_t>(iTaps));
        ippsFFTFwd_RToCCS_32f(pfTime, pfCCS, m_pSpec, nullptr);
    }
    void Inverse(const float *pfCCS, float *pfTime) const {
        ippsFFTInv_CCSToR_32f(pfCCS, pfTime, m_pSpec, nullptr);
    }
    int Length() const { return m_iLength; }

  private:
    IppsFFTSpec_R_32f *m_pSpec = nullptr;
    int m_iLength;
};

Ipp32fc *complexBins(float *pfCCS) {
    return reinterpret_cast<Ipp32fc *>(pfCCS);
}
}  // namespace

bool CHRTF_Converter::LoadSet(const std::string &strFile) {
    return !strFile.empty() && m_HRTF.ReadWrite(0, strFile) == 0 && m_HRTF.m_iFileTaps > 0 &&
           m_HRTF.m_pfData != nullptr;
}

int CHRTF_Converter::ResponseCount() const {
    const int64_t iStored = static_cast<int64_t>(m_HRTF.m_iMeasurements) * m_HRTF.m_iChannels;
    return static_cast<int>(std::min<int64_t>(iStored, m_HRTF.DataLength() / m_HRTF.m_iFileTaps));
}

std::string CHRTF_Converter::OutputName(const std::string &strFile, const char *pcSuffix) {
    return strFile.substr(0, strFile.size() > 6 ? strFile.size() - 6 : 0) + pcSuffix;
}

int CHRTF_Converter::GetAverage(const std::string &strFile, float *&pfAverage, int &iLength) {
    if (strFile.empty()) {
        return -1;
    }
    ippsFree(pfAverage);
    pfAverage = nullptr;
    if (!LoadSet(strFile)) {
        return -1;
    }
    const int T = m_HRTF.m_iFileTaps;
    const int B = T / 2 + 1;
    // Bins come from the taps, the transform from the next power of two: the two agree for
    // the power-of-two sets in use.
    const RealFFT fft(orderFor(T), ippAlgHintAccurate);
    CIppBuffer time(fft.Length()), ccs(fft.Length() + 2), magnitude(B), sum(B);
    ippsZero_32f(sum, B);
    const int iCount = ResponseCount();
    for (int r = 0; r < iCount; ++r) {
        fft.Forward(m_HRTF.m_pfData.get() + static_cast<size_t>(r) * T, T, time, ccs);
        ippsMagnitude_32fc(complexBins(ccs), magnitude, B);
        if (m_bPowerAverage == 1) {
            ippsMul_32f_I(magnitude, magnitude, B);
        }
        ippsAdd_32f_I(magnitude, sum, B);
    }
    ippsMulC_32f_I(1.0f / static_cast<float>(std::max(iCount, 1)), sum, B);
    // The root is taken in both modes: averaged magnitudes come out as their square roots,
    // which is how the sets in use were equalised.
    ippsSqrt_32f_I(sum, B);

    ippsZero_32f(ccs, fft.Length() + 2);
    ippsRealToCplx_32f(sum, nullptr, complexBins(ccs), B);
    fft.Inverse(ccs, time);
    pfAverage = ippsMalloc_32f(T);
    m_Design.Rotate(time, T, T / 2, pfAverage);
    iLength = T;
    return 0;
}

int CHRTF_Converter::GetInverse(const std::string &strFile, float *&pfInverse, int &iLength) {
    if (GetAverage(strFile, pfInverse, iLength) != 0) {
        return -1;
    }
    return Invert(pfInverse, iLength) ? 0 : -1;
}

bool CHRTF_Converter::Invert(float *pfInverse, int iTaps) {
    float *pfResult = nullptr;
    int iResult = 0;
    switch (m_iInverseMethod) {
        case 1:
            m_Design.InvertRegularised(pfInverse, iTaps, m_iDynamic, pfResult, iResult,
                                       m_bNormalise);
            break;
        case 2:
            iResult = 2048;
            m_Design.InvertLMS(pfInverse, iTaps, &pfResult, &iResult, 16384, 2048, 0.0001f, 1);
            break;
        case 3:
            m_Design.InvertMagnitude(pfInverse, iTaps, pfResult, iResult, m_fInverseLimit);
            break;
        default:
            return false;
    }
    // The caller keeps seeing T samples, whatever length the inversion made.
    ippsZero_32f(pfInverse, iTaps);
    ippsCopy_32f(pfResult, pfInverse, std::min(iTaps, iResult));
    ippsFree(pfResult);
    if (m_bMinimumPhase == 1) {
        int iLength = iTaps;
        float *pfCepstrum = nullptr;
        float *pfMinimum = nullptr;
        m_Design.MinimumPhase(pfInverse, iLength, pfCepstrum, pfMinimum);
        ippsCopy_32f(pfMinimum, pfInverse, std::min(iTaps, iLength));
        ippsFree(pfCepstrum);
        ippsFree(pfMinimum);
    }
    return true;
}

int CHRTF_Converter::Equalise(const float *pfInverse, int iLength) {
    const int T = m_HRTF.m_iFileTaps;
    if (pfInverse == nullptr || iLength < 1 || T < 1 || m_HRTF.m_pfData == nullptr) {
        return -1;
    }
    m_Filter._init(1, 0.0f, 1.0f, 0.707f, 0.8f * m_HRTF.m_iFileRate / 2.0f,
                   static_cast<float>(m_HRTF.m_iFileRate));
    // The response is read for iLength samples (its taps when the inverse is as long as the
    // set's responses), zero-padded beyond them.
    CIppBuffer padded(iLength), product(2 * iLength - 1);
    const int iCount = ResponseCount();
    float fPeak = 0.0f;
    for (int r = 0; r < iCount; ++r) {
        float *pf = m_HRTF.m_pfData.get() + static_cast<size_t>(r) * T;
        ippsZero_32f(padded, iLength);
        ippsCopy_32f(pf, padded, std::min(T, iLength));
        ippsConv_32f(padded, iLength, pfInverse, iLength, product);
        // Keeping the taps from m_iOffset on removes the delay of the centred inverse.
        for (int k = 0; k < T; ++k) {
            const int64_t at = static_cast<int64_t>(m_iOffset) + k;
            pf[k] = (at >= 0 && at < product.size()) ? product[at] : 0.0f;
            fPeak = std::max(fPeak, std::fabs(pf[k]));
        }
    }
    // Scaled by 1 / peak as a division, so that the peak sample becomes exactly 1.0 (a
    // product with the rounded reciprocal may fall one step short).
    if (fPeak > 0.0f) {
        float *pf = m_HRTF.m_pfData.get();
        for (int i = 0; i < m_HRTF.DataLength(); ++i) {
            pf[i] /= fPeak;
        }
    }
    m_Filter._quit();
    return 0;
}

int CHRTF_Converter::ConvertDFE(const std::string &strFile) {
    if (strFile.empty()) {
        return -1;
    }
    float *pfInverse = nullptr;
    int iLength = 0;
    int iResult = -1;
    if (GetInverse(strFile, pfInverse, iLength) == 0 && Equalise(pfInverse, iLength) == 0) {
        m_sOutputName = OutputName(strFile, "_DFE.qkhrtf");
        // The question whether to save elsewhere is put together and not asked here: the
        // engine runs this conversion and loads the proposed name itself.
        iResult = m_HRTF.ReadWrite(1, m_sOutputName);
    }
    ippsFree(pfInverse);
    return iResult;
}

int CHRTF_Converter::ConvertMFR(const std::string &strFile, float fCornerHz) {
    if (!LoadSet(strFile)) {
        return -1;
    }
    FlattenLowMagnitude(fCornerHz);
    m_sOutputName = OutputName(strFile, "_MFR.qkhrtf");
    // Either answer keeps the proposed name: no other name is asked for.
    qk::Report("Converted HTF will be saved as:\n" + m_sOutputName +
                   "\nDo you want to save it under a diffferent filename?",
               "QUENDARIK-HRTF", qk::Severity::Question);
    return m_HRTF.ReadWrite(1, m_sOutputName);
}

void CHRTF_Converter::FlattenLowMagnitude(float fCornerHz) {
    const int T = m_HRTF.m_iFileTaps;
    const int B = T / 2 + 1;
    const int iHalfRate = m_HRTF.m_iFileRate / 2;
    int k = iHalfRate > 0 ? static_cast<int>(std::ceil(B * fCornerHz / iHalfRate)) : B;
    k = std::clamp(k, 0, B);
    const RealFFT fft(orderFor(T), ippAlgHintAccurate);
    CIppBuffer time(fft.Length()), ccs(fft.Length() + 2), magnitude(B), phase(B), re(B), im(B);
    const int iCount = ResponseCount();
    for (int r = 0; r < iCount; ++r) {
        float *pf = m_HRTF.m_pfData.get() + static_cast<size_t>(r) * T;
        fft.Forward(pf, T, time, ccs);
        ippsPhase_32fc(complexBins(ccs), phase, B);
        ippsMagnitude_32fc(complexBins(ccs), magnitude, B);
        ippsSet_32f(1.0f, magnitude, k);
        for (int i = 0; i < B; ++i) {
            re[i] = magnitude[i] * std::cos(phase[i]);
            im[i] = magnitude[i] * std::sin(phase[i]);
        }
        ippsRealToCplx_32f(re, im, complexBins(ccs), B);
        fft.Inverse(ccs, time);
        ippsCopy_32f(time, pf, T);
    }
}
