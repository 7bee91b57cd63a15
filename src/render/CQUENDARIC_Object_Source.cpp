#include "render/CQUENDARIC_Object_Source.h"

#include <cmath>
#include <cstring>
#include <mutex>

#include "field/CSFM.h"
#include "field/CSFM_ISM_ORMS.h"
#include "field/CSFM_PCIRS.h"
#include "platform/Archive.h"
#include "render/BlockMath.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "settings/CRenderResources.h"
#include "world/CVRSoundSource.h"

QK_IMPLEMENT_SERIAL(CQUENDARIC_Object_Source)

CQUENDARIC_Object_Source::~CQUENDARIC_Object_Source() {
    ClearMonaural();
    ClearBinaural();
    FreeFilters();
}

void CQUENDARIC_Object_Source::FreeFilters() {
    ippsIIRFree_32f(m_pIIRLow);
    ippsIIRFree_32f(m_pIIRHigh);
    m_pIIRLow = nullptr;
    m_pIIRHigh = nullptr;
}

void CQUENDARIC_Object_Source::Serialize(qk::CArchive &ar) {
    CQUENDARIC_Object::Serialize(ar);
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iSSS_SourceID) << m_strChannelName1
           << m_strChannelName2 << static_cast<int32_t>(m_iChannelSelect)
           << static_cast<int32_t>(m_iAudioLink) << static_cast<int32_t>(m_iSourceFlag1)
           << static_cast<int32_t>(m_iSourceFlag2);
        return;
    }
    float fVersion = 0.0f;
    int32_t iSourceID = 0, iSelect = 0, iLink = 0, iFlag1 = 0, iFlag2 = 0;
    std::string strName1, strName2;
    ar >> fVersion >> iSourceID >> strName1 >> strName2 >> iSelect >> iLink >> iFlag1 >> iFlag2;
    m_iSSS_SourceID = iSourceID;
    m_strChannelName1 = strName1;
    m_strChannelName2 = strName2;
    m_iChannelSelect = iSelect;
    m_iAudioLink = iLink;
    m_iSourceFlag1 = iFlag1;
    m_iSourceFlag2 = iFlag2;
}

void CQUENDARIC_Object_Source::SetDescription(const std::string &strDescription) {
    if (m_pParameters != nullptr && m_pParameters->m_iChannelMode == 1) {
        m_strChannelName1 = strDescription;
    } else {
        m_strChannelName2 = strDescription;
    }
    if (m_pDraw != nullptr) {
        m_pDraw->m_strDescription = strDescription;
    }
}

// --- Geometry

// The geometry is the sound field models', so that a source and its room agree on angles.
int CQUENDARIC_Object_Source::_GetAzimuth(C3Point a, C3Point b) {
    return CSFM::_GetAzimuth(a, b);
}

int CQUENDARIC_Object_Source::_GetElevation(C3Point a, C3Point b) {
    return CSFM::_GetElevation(a, b);
}

float CQUENDARIC_Object_Source::GetAzimuth(C3Point S, C3Point L, C3Point P, C3Point Q) {
    return CSFM::GetAzimuth(S, L, P, Q);
}

float CQUENDARIC_Object_Source::GetElevation(C3Point S, C3Point L, C3Point P, C3Point Q) {
    return CSFM::GetElevation(S, L, P, Q);
}

float CQUENDARIC_Object_Source::GetDistance(C3Point a, C3Point b) {
    return CSFM::GetDistance(a, b);
}

void CQUENDARIC_Object_Source::Recalculate() {
    const C3Point &S = m_pSink->m_position;
    const C3Point &L = m_pSink->m_lookAt;
    m_fAzimuth = GetAzimuth(S, L, m_position, m_lookAt);
    m_fElevation = GetElevation(S, L, m_position, m_lookAt);
    m_fDistance = GetDistance(S, m_position);
}

int CQUENDARIC_Object_Source::TruncatedAzimuth() const {
    return CSFM::TruncatedDegrees(m_fAzimuth);
}

int CQUENDARIC_Object_Source::TruncatedElevation() const {
    return CSFM::TruncatedDegrees(m_fElevation);
}

void CQUENDARIC_Object_Source::Move(C3Point position) {
    if (m_pSink == nullptr) {
        return;
    }
    m_position = position;
    Recalculate();
}

bool CQUENDARIC_Object_Source::TakeMove() {
    CPoseSlot::Pose pose{};
    if (!m_PoseRequest.Take(pose)) {
        return false;
    }
    const C3Point point(pose[0], pose[1], pose[2], 0);
    if (m_pVRSource != nullptr) {
        m_pVRSource->m_position = point;
    }
    Move(point);
    return true;
}

void CQUENDARIC_Object_Source::Move(float fY) {
    if (m_pSink == nullptr) {
        return;
    }
    m_position.y = fY;
    Recalculate();
}

void CQUENDARIC_Object_Source::LookAt(C3Point lookAt) {
    if (m_pSink == nullptr) {
        return;
    }
    m_lookAt = lookAt;
    Recalculate();
}

void CQUENDARIC_Object_Source::Move_LookAt(C3Point position, C3Point lookAt) {
    if (m_pSink == nullptr) {
        return;
    }
    m_position = position;
    m_lookAt = lookAt;
    Recalculate();
}

// --- Responses

void CQUENDARIC_Object_Source::ClearMonaural() {
    m_iMonoIRLength = 0;
    FreeIppArray(m_pfMonoIR);
}

void CQUENDARIC_Object_Source::ClearBinaural() {
    m_bBIRPending = false;
    m_iBIRLength = 0;
    FreeIppArray(m_pfBIRLeft);
    FreeIppArray(m_pfBIRRight);
}

void CQUENDARIC_Object_Source::InitializeHRTFVariables() {
    if (m_pParameters != nullptr) {
        std::lock_guard<std::recursive_mutex> guard(m_pParameters->m_csStrings);
        m_HRTF.m_sHRTFFile = m_pParameters->m_strHRTF;
        m_HRTF.m_pHelper = HRTFSet();
        m_iConvolutionInUse = m_pParameters->m_iConvolution;
        m_HRTF.SetMethod(qk::ConvolutionOfSetting(m_iConvolutionInUse));
    }
    m_HRTF.m_pStream = nullptr;
    m_HRTF.m_iAzimuth = TruncatedAzimuth();
    m_HRTF.m_iElevation = TruncatedElevation();
}

void CQUENDARIC_Object_Source::ReInitializeHRTF(int iRate) {
    if (m_pSink == nullptr) {
        return;
    }
    // The convolver's two numbers are what the block path compares the angles with, so they
    // are stored even when there is no set to ask.
    const int iAzimuth = TruncatedAzimuth();
    const int iElevation = TruncatedElevation();
    m_HRTF.m_iAzimuth = iAzimuth;
    m_HRTF.m_iElevation = iElevation;
    m_HRTF.ReInitialize(iAzimuth, iElevation, iRate);
    m_bBIRPending = true;
}

void CQUENDARIC_Object_Source::SettleBIR() {
    if (!m_bBIRPending) {
        return;
    }
    m_bBIRPending = false;
    const float *pfLeft = nullptr;
    const float *pfRight = nullptr;
    int iLength = 0;
    const CHELPER_HRTF *pSet = HRTFSet();
    if (!m_HRTF.RequestedResponse(pSet, pfLeft, pfRight, iLength)) {
        ClearBinaural();
        return;
    }
    // A response of the set's length goes where the last one was.
    if (m_pfBIRLeft == nullptr || m_pfBIRRight == nullptr || m_iBIRLength != iLength) {
        ClearBinaural();
        m_pfBIRLeft = ippsMalloc_32f(iLength);
        m_pfBIRRight = ippsMalloc_32f(iLength);
        if (m_pfBIRLeft == nullptr || m_pfBIRRight == nullptr) {
            ClearBinaural();
            return;
        }
        m_iBIRLength = iLength;
    }
    ippsCopy_32f(pfLeft, m_pfBIRLeft, iLength);
    ippsCopy_32f(pfRight, m_pfBIRRight, iLength);
}

CHELPER_HRTF *CQUENDARIC_Object_Source::HRTFSet() const {
    return m_pResources != nullptr ? m_pResources->HRTF() : nullptr;
}

CSFM *CQUENDARIC_Object_Source::RoomModel() {
    if (m_pSFM == nullptr && m_pResources != nullptr) {
        m_pSFM = m_pResources->RoomModel();
    }
    return m_pSFM;
}

void CQUENDARIC_Object_Source::ReInitializeMonauralImpulseResponse() {
    m_HRTF.m_iAzimuth = TruncatedAzimuth();
    m_HRTF.m_iElevation = TruncatedElevation();
    CSFM *pModel = RoomModel();
    if (m_pSink == nullptr || pModel == nullptr) {
        return;
    }
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    pModel->GetMonauralImpulseResponse(m_pfMonoIR, m_iMonoIRLength, m_position, m_lookAt,
                                       m_pSink->m_position, m_pSink->m_lookAt, p.m_iSpecularOrder,
                                       p.m_fTemperature, m_iRate, m_fMonoPeak, p.m_iMaterialChanged,
                                       m_iRecalculate, p.m_iMaterialCoeffs);
}

// The room's response for this source from the model, handed whole to the convolver, which
// cross-fades into it over its next block. A model that fails leaves the responses as they
// were, and the convolver keeps its filter.
void CQUENDARIC_Object_Source::ReInitializeBinauralImpulseResponse() {
    m_HRTF.m_iAzimuth = TruncatedAzimuth();
    m_HRTF.m_iElevation = TruncatedElevation();
    CSFM *pModel = RoomModel();
    if (m_pSink == nullptr || pModel == nullptr) {
        return;
    }
    SettleBIR();  // what stays if the model fails
    CQUENDARIC_PARAMETERS &p = *m_pParameters;
    if (auto *pShared = dynamic_cast<CSFM_ISM_ORMS *>(pModel)) {
        pShared->m_iORMS = p.m_iORMS;
        pShared->m_iInfo = p.m_iInfo;
    }
    std::string strHRTF;
    {
        std::lock_guard<std::recursive_mutex> guard(p.m_csStrings);
        strHRTF = p.m_strHRTF;
    }
    pModel->GetBinauralImpulseResponse(
        HRTFSet(), m_pfMonoIR, m_iMonoIRLength, m_pfBIRLeft, m_pfBIRRight, m_iBIRLength, m_position,
        m_lookAt, m_pSink->m_position, m_pSink->m_lookAt, strHRTF, p.m_iSpecularOrder,
        p.m_fTemperature, m_iRate, m_fBIRPeakL, m_fBIRPeakR, p.m_iMaterialChanged, m_iRecalculate,
        p.m_iMaterialCoeffs, m_iID);
    if (m_pfBIRLeft != nullptr && m_pfBIRRight != nullptr && m_iBIRLength > 0) {
        m_HRTF.ReInitializeExternal(m_pfBIRLeft, m_pfBIRRight, m_iBIRLength);
    }
}

// The block path has made sure of a listener; an object outside it without one, or without
// settings, asks for nothing.
int CQUENDARIC_Object_Source::ReInitializeBIR_PCIRS() {
    m_HRTF.m_iAzimuth = TruncatedAzimuth();
    m_HRTF.m_iElevation = TruncatedElevation();
    CSFM_PCIRS *pSet = m_pResources != nullptr ? m_pResources->PreComputed() : nullptr;
    if (m_pSink == nullptr || m_pParameters == nullptr || pSet == nullptr) {
        return 0;
    }
    SettleBIR();
    pSet->GetBIR(m_pfBIRLeft, m_pfBIRRight, m_iBIRLength, m_position, m_lookAt, m_pSink->m_position,
                 m_pSink->m_lookAt, m_iRate, m_i3DSourceWavID);
    m_HRTF.ReInitializeExternal(m_pfBIRLeft, m_pfBIRRight, m_iBIRLength);
    return 0;
}

float CQUENDARIC_Object_Source::LevelForDistance() const {
    // Written so that a distance that isn't a number changes nothing either.
    if (!(m_fDistance > 1.0f)) {
        return 1.0f;
    }
    const double dB = -20.0 * std::log10(static_cast<double>(m_fDistance));
    return static_cast<float>(std::pow(10.0, dB / 20.0));
}

// The level isn't smoothed across blocks: it steps at block edges.
void CQUENDARIC_Object_Source::AdjustLevelForDistance(float *pfBlock, int n) {
    if (pfBlock == nullptr || !(m_fDistance > 1.0f)) {
        return;
    }
    qk::ScaleBlock(pfBlock, 2 * n, LevelForDistance());
}

void CQUENDARIC_Object_Source::CalculateIRs(int iKeepReflections, int iRate) {
    if (m_iEnable == 0 || m_pParameters == nullptr) {
        ClearMonaural();
        ClearBinaural();
        return;
    }
    const bool bReflections = m_pParameters->m_iReflections != 0;
    if (m_pParameters->m_i3DAudio != 0) {
        ClearMonaural();
        if (bReflections) {
            if (iKeepReflections == 0) {
                ReInitializeBinauralImpulseResponse();
            }
        } else if (TruncatedAzimuth() != m_HRTF.m_iAzimuth ||
                   TruncatedElevation() != m_HRTF.m_iElevation) {
            ReInitializeHRTF(iRate);
        }
        return;
    }
    ClearBinaural();
    if (bReflections) {
        if (iKeepReflections == 0) {
            ReInitializeMonauralImpulseResponse();
        }
    } else {
        ClearMonaural();
    }
}
