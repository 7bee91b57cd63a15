#include "binaural/CService_HRTF.h"

#include <cstring>

#include "binaural/CHELPER_HRTF.h"
#include "dsp/IppBuffer.h"
#include "platform/Archive.h"
#include "platform/Vectorize.h"

QK_IMPLEMENT_SERIAL(CService_HRTF)

namespace {
// pfDest += pfSrc * fGain. A level of 1 multiplies exactly, so this is the sum of the scaled
// copy whatever the level.
QK_VECTORIZE_WIDE void addScaled(const float *__restrict pfSrc, float *__restrict pfDest, int n,
                                 float fGain) {
    for (int i = 0; i < n; ++i) {
        pfDest[i] += pfSrc[i] * fGain;
    }
}
}  // namespace

CService_HRTF::CService_HRTF() {
    m_strName = "HRTF";
}

CService_HRTF::~CService_HRTF() {
    FreeFIR();
    FreeIppArray(m_pfLeft);
    FreeIppArray(m_pfRight);
}

int CService_HRTF::InitializeHelperHRTF(int iSampleRate) {
    if (m_pHelper == nullptr) {
        return -1;
    }
    m_pHelper->m_pStream = m_pStream;
    m_pHelper->m_iSampleRate = iSampleRate;
    m_pHelper->ReadWrite(0, m_sHRTFFile);
    m_pHelper->UpdateTaps();
    return 0;
}

void CService_HRTF::CopyResponse(const float *pfLeft, const float *pfRight, int iLength) {
    FreeIppArray(m_pfLeft);
    FreeIppArray(m_pfRight);
    m_pfLeft = CopyIppArray(pfLeft, iLength);
    m_pfRight = CopyIppArray(pfRight, iLength);
}

int CService_HRTF::InitializeExternal(const float *pfLeft, const float *pfRight, int iLength) {
    if (iLength < 1 || pfLeft == nullptr || pfRight == nullptr) {
        return 0;
    }
    m_bAskedFromTable = false;
    CopyResponse(pfLeft, pfRight, iLength);
    m_iLength = m_pfLeft != nullptr && m_pfRight != nullptr ? iLength : 0;
    return 0;
}

int CService_HRTF::ReInitializeExternal(const float *pfLeft, const float *pfRight, int iLength) {
    if (iLength < 1 || pfLeft == nullptr || pfRight == nullptr) {
        return 0;
    }
    m_bAskedFromTable = false;
    CopyResponse(pfLeft, pfRight, iLength);
    // m_iLength always tells the length of the arrays; the filter in use has its own copy.
    m_iLength = m_pfLeft != nullptr && m_pfRight != nullptr ? iLength : 0;
    if (m_iLength != 0) {
        m_iNewLength = iLength;
        m_bReInitialize = 1;
    }
    return 0;
}

int CService_HRTF::_init(int iBlockLength, int iSampleRate) {
    m_method = qk::ConvolutionOfWord(m_sMethod);  // the word is read once, here
    if (m_iEnable == 1) {
        m_bReInitialize = 0;
        if (m_pHelper == nullptr) {
            return -1;
        }
        if (m_iLength == 0 &&
            m_pHelper->GetHRTF(m_pfLeft, m_pfRight, m_iLength, static_cast<float>(m_iAzimuth),
                               static_cast<float>(m_iElevation), iSampleRate) == 0) {
            m_strStatus = "CANNOT_READ_DATA_FROM_HELPER";
            m_iState = 0;
            m_iLength = 0;  // the next _init asks the set again
            return -1;
        }
        if (TakeIntoUse(iBlockLength) != 0) {
            m_strStatus = "CANNOT_INITIALIZE_FILTER";
            return -1;
        }
        m_iLengthInUse = m_iLength;
    }
    m_strStatus = "OK";
    return 0;
}

int CService_HRTF::InitializeFIR(const float *pfLeft, const float *pfRight, int iLength) {
    FreeFIR();
    ippsFIRInitAlloc_32f(&m_pFIRLeft, pfLeft, iLength, nullptr);
    ippsFIRInitAlloc_32f(&m_pFIRRight, pfRight, iLength, nullptr);
    return 0;
}

void CService_HRTF::FreeFIR() {
    ippsFIRFree_32f(m_pFIRLeft);
    ippsFIRFree_32f(m_pFIRRight);
    m_pFIRLeft = nullptr;
    m_pFIRRight = nullptr;
}

void CService_HRTF::SetMethod(qk::Convolution method) {
    m_method = method;
    m_sMethod = qk::WordOf(method);
}

int CService_HRTF::TakeIntoUse(int n) {
    if (m_method == qk::Convolution::Fir) {
        InitializeFIR(m_pfLeft, m_pfRight, m_iLength);
        return m_pFIRLeft != nullptr && m_pFIRRight != nullptr ? 0 : -1;
    }
    if (m_method == qk::Convolution::Partitioned) {
        m_Partitioned._quit();  // set up anew: the history starts silent
        return m_Partitioned.SetResponse(m_pfLeft, m_pfRight, m_iLength, n);
    }
    return m_Overlap._init(m_pfLeft, m_pfRight, m_iLength, n);
}

int CService_HRTF::ReInitialize(int iAzimuth, int iElevation, int iSampleRate) {
    if (m_pHelper == nullptr) {
        return -1;
    }
    m_iAzimuth = iAzimuth;
    m_iElevation = iElevation;
    // The partitioned convolver takes a measured direction's spectra from the set's shared
    // table when the set is at its own rate: the taps aren't copied, nor transformed.
    m_bNewFromTable =
        m_method == qk::Convolution::Partitioned && iSampleRate == m_pHelper->m_iFileRate &&
        m_pHelper->ResponseSlots(static_cast<float>(iAzimuth), static_cast<float>(iElevation),
                                 m_iNewLeftSlot, m_iNewRightSlot);
    m_bAskedFromTable = m_bNewFromTable;
    m_pAskedSet = m_pHelper;
    m_uAskedGeneration = m_pHelper->SamplesGeneration();
    if (m_bNewFromTable) {
        // A move within the same measured direction changes nothing: the filter in use stays,
        // without a cross-fade between two equal filters. Anything waiting is dropped, as a
        // later response would replace it.
        const int iPartition = m_Partitioned.PartitionLength();
        const CHRTFFilterBank *table =
            iPartition > 0 && !m_Partitioned.Fading() ? Table(iPartition).get() : nullptr;
        const bool bSame =
            table != nullptr && m_Partitioned.InUse(*table, m_iNewLeftSlot, m_iNewRightSlot);
        m_bReInitialize = bSame ? 0 : 1;
        m_bNewFromTable = !bSame;
        return 0;
    }
    if (m_pHelper->GetHRTF(m_pfLeft, m_pfRight, m_iNewLength, static_cast<float>(iAzimuth),
                           static_cast<float>(iElevation), iSampleRate) != 0) {
        m_iLength = m_iNewLength;
        m_bReInitialize = 1;
    } else {
        // The set has replaced the arrays by silence; the filter in use keeps sounding from
        // its own spectra or FIR states, and the next _init asks the set again.
        FreeIppArray(m_pfLeft);
        FreeIppArray(m_pfRight);
        m_iLength = 0;
        m_iNewLength = 0;
    }
    return 0;
}

bool CService_HRTF::RequestedResponse(const CHELPER_HRTF *pSet, const float *&pfLeft,
                                      const float *&pfRight, int &iLength) const {
    if (m_bAskedFromTable) {
        if (pSet == nullptr || pSet != m_pAskedSet ||
            pSet->SamplesGeneration() != m_uAskedGeneration || pSet->m_iFileTaps < 1) {
            return false;
        }
        const int64_t taps = pSet->m_iFileTaps;
        const int64_t held = pSet->DataLength();
        const int64_t left = m_iNewLeftSlot * taps;
        const int64_t right = m_iNewRightSlot * taps;
        if (left < 0 || right < 0 || left + taps > held || right + taps > held) {
            return false;
        }
        pfLeft = pSet->m_pfData.get() + left;
        pfRight = pSet->m_pfData.get() + right;
        iLength = static_cast<int>(taps);
        return true;
    }
    if (m_iNewLength == 0 || m_iLength < 1 || m_pfLeft == nullptr || m_pfRight == nullptr) {
        return false;
    }
    pfLeft = m_pfLeft;
    pfRight = m_pfRight;
    iLength = m_iLength;
    return true;
}

int CService_HRTF::RenderCurrent(float *pfIn, int n, float *pfOut) {
    if (m_method == qk::Convolution::Fir) {
        if (m_pFIRLeft == nullptr || m_pFIRRight == nullptr) {
            std::memset(pfOut, 0, sizeof(float) * 2 * static_cast<size_t>(n));
            return -1;
        }
        ippsFIR_32f(pfIn, pfOut, n, m_pFIRLeft);
        ippsFIR_32f(pfIn, pfOut + n, n, m_pFIRRight);
        return 0;
    }
    if (m_method == qk::Convolution::Partitioned) {
        return m_Partitioned._process(pfIn, n, pfOut);
    }
    return m_Overlap._process(pfIn, n, pfOut);
}

int CService_HRTF::_process(float *pfIn, int n, int) {
    m_Overlap.ForgetInput();
    if (m_pHelper == nullptr || pfIn == nullptr || n < 1) {
        return -1;
    }
    _adjustDataBuffer(2 * n);
    if (m_bReInitialize == 0) {
        RenderCurrent(pfIn, n, m_pfData);
        return 0;
    }
    if (m_method == qk::Convolution::Partitioned) {
        // The convolver fades from the old filter to the new on the same input history.
        TakeWaitingResponse(n);
        m_Partitioned._process(pfIn, n, m_pfData);
        return 0;
    }
    CrossFade(pfIn, n);
    return 0;
}

// The waiting response goes to the convolver, which fades to it in this block, whichever way
// the block is rendered.
void CService_HRTF::TakeWaitingResponse(int n) {
    if (m_bReInitialize == 0) {
        return;
    }
    m_bReInitialize = 0;
    if (m_bNewFromTable) {
        m_bNewFromTable = false;
        if (m_Partitioned.SetResponseSpectra(Table(CSERVICE_PARTITIONED_HRTF::PartitionFor(n)),
                                             m_iNewLeftSlot, m_iNewRightSlot, n) == 0) {
            return;
        }
        // No table fits: the taps after all.
        if (m_pHelper->GetHRTF(m_pfLeft, m_pfRight, m_iNewLength, static_cast<float>(m_iAzimuth),
                               static_cast<float>(m_iElevation), m_pHelper->m_iFileRate) == 0) {
            return;
        }
    }
    m_iLength = m_iNewLength;
    m_iLengthInUse = m_iLength;
    m_Partitioned.SetResponse(m_pfLeft, m_pfRight, m_iLength, n);
}

int CService_HRTF::ProcessIntoMix(float *pfIn, int n, CFrequencyMix &mix, float fGain) {
    if (m_pHelper == nullptr || pfIn == nullptr || n < 1 ||
        m_method != qk::Convolution::Partitioned) {
        return -1;
    }
    TakeWaitingResponse(n);
    return m_Partitioned._processInto(pfIn, n, mix, fGain);
}

// The old filter renders the block, the new one is taken into use and renders the same block
// again, and the two are faded into each other. With "OVERLAP" the first pass has already
// advanced the overlap, and the second pass adds the next block's share of the old tail once
// more; that is how the change has always sounded, and it stays.
void CService_HRTF::CrossFade(float *pfIn, int n) {
    const int iBlock = 2 * n;
    if (m_pfFadeOld.size() < iBlock) {
        m_pfFadeOld.Allocate(iBlock);
        m_pfFadeNew.Allocate(iBlock);
        m_pfFadeRamp.Allocate(n);
    }
    float *a = m_pfFadeOld;
    float *b = m_pfFadeNew;
    float *ramp = m_pfFadeRamp;
    RenderCurrent(pfIn, n, a);
    m_iLength = m_iNewLength;
    if (m_method == qk::Convolution::Fir) {
        FreeFIR();
    }
    TakeIntoUse(n);
    m_iLengthInUse = m_iLength;
    RenderCurrent(pfIn, n, b);

    Ramp(ramp, n, 1.0, 0.0);
    ippsMul_32f_I(ramp, a, n);
    ippsMul_32f_I(ramp, a + n, n);
    Ramp(ramp, n, 0.0, 1.0);
    ippsMul_32f_I(ramp, b, n);
    ippsMul_32f_I(ramp, b + n, n);
    ippsAdd_32f(a, b, m_pfData, 2 * n);
    m_bReInitialize = 0;
}

void CService_HRTF::AddInto(float *pfDest, int n, float fGain) const {
    const float *pfBlock = m_pfData;
    if (pfDest != nullptr && pfBlock != nullptr && 2 * n <= m_iDataLength) {
        addScaled(pfBlock, pfDest, 2 * n, fGain);
    }
}

void CService_HRTF::Ramp(float *pf, int n, double a, double b) {
    if (n == 1) {
        pf[0] = static_cast<float>(a);
        return;
    }
    const double step = (b - a) / (n - 1);
    for (int i = 0; i < n; ++i) {
        pf[i] = static_cast<float>(a + step * i);
    }
}

int CService_HRTF::_quit() {
    if (m_iEnable == 1 && m_iLength != 0 && m_method == qk::Convolution::Fir) {
        FreeFIR();
    }
    m_iLength = 0;
    FreeIppArray(m_pfLeft);
    FreeIppArray(m_pfRight);
    m_bAskedFromTable = false;
    m_pfData.Reset();
    m_iDataLength = 0;
    m_Overlap._quit();
    m_Partitioned._quit();
    m_strStatus = "OK";
    return 0;
}

void CService_HRTF::ClearHistory() {
    m_Overlap.ClearHistory();
    m_Partitioned.ClearHistory();
    if (m_pFIRLeft != nullptr && m_iLength > 0) {
        InitializeFIR(m_pfLeft, m_pfRight, m_iLength);
    }
}

void CService_HRTF::Serialize(qk::CArchive &ar) {
    CSERVICE::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iAzimuth) << static_cast<int32_t>(m_iElevation)
           << m_sHRTFFile;
    } else {
        float fVersion = 0.0f;
        int32_t iAzimuth = 0;
        int32_t iElevation = 0;
        ar >> fVersion >> iAzimuth >> iElevation >> m_sHRTFFile;
        m_iAzimuth = iAzimuth;
        m_iElevation = iElevation;
    }
}

// The set's table for a partition length, asked of the set only when the set, its samples or
// the length changed: moves of many sources on several threads don't meet at the set's lock.
const std::shared_ptr<const CHRTFFilterBank> &CService_HRTF::Table(int iPartition) {
    const unsigned generation = m_pHelper->SamplesGeneration();
    if (m_pTable == nullptr || m_pTableSet != m_pHelper || m_uTableGeneration != generation ||
        m_pTable->PartitionLength() != iPartition) {
        m_pTable = m_pHelper->Spectra(iPartition);
        m_pTableSet = m_pHelper;
        m_uTableGeneration = generation;
    }
    return m_pTable;
}
