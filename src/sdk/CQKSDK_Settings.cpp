// The facade's settings families: Siml, CTC, SFM and Research. Each writes or reads a field
// of the settings object; scalar fields are written without the engine lock and take effect
// at the next block, while the operations that make the engine rebuild structures (the
// sound field model, the material count, the research switches) take the lock.
#include <cstring>
#include <mutex>

#include "field/SoundFieldModel.h"
#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace {
constexpr int kHeadphones = 1;
constexpr int kLoudspeakers = 2;

// The research switch of a key, exact case, or null.
qk::Relaxed<int> *researchFlag(CQUENDARIC_PARAMETERS &params, const char *pcKey,
                               bool &bWorldChanges) {
    bWorldChanges = false;
    if (pcKey == nullptr) {
        return nullptr;
    }
    if (std::strcmp(pcKey, "ORMS") == 0) {
        bWorldChanges = true;
        return &params.m_iORMS;
    }
    if (std::strcmp(pcKey, "GRAPH_BIR") == 0) {
        return &params.m_iGraphBIR;
    }
    if (std::strcmp(pcKey, "INFO") == 0) {
        return &params.m_iInfo;
    }
    if (std::strcmp(pcKey, "ONEREVERB") == 0) {
        bWorldChanges = true;
        return &params.m_iOneReverb;
    }
    return nullptr;
}
}  // namespace

// --- Siml

int CQKSDK::qk_Siml_Set_3DAudio(int iValue) {
    m_pProcessor->m_Parameters.m_i3DAudio = iValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_3DAudio(int &iValue) {
    iValue = m_pProcessor->m_Parameters.m_i3DAudio;
    return 0;
}

int CQKSDK::qk_Siml_Set_CTCIfNot3DAudio(int iValue) {
    m_pProcessor->m_Parameters.m_iCTCIfNot3DAudio = iValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_CTCIfNot3DAudio(int &iValue) {
    iValue = m_pProcessor->m_Parameters.m_iCTCIfNot3DAudio;
    return 0;
}

int CQKSDK::qk_Siml_Set_ReverbDryLevel(float fValue) {
    m_pProcessor->m_Parameters.m_fReverbDryLevel = fValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_ReverbDryLevel(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fReverbDryLevel;
    return 0;
}

int CQKSDK::qk_Siml_Set_AGC(int iValue) {
    m_pProcessor->m_Parameters.m_iAGC = iValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_AGC(int &iValue) {
    iValue = m_pProcessor->m_Parameters.m_iAGC;
    return 0;
}

int CQKSDK::qk_Siml_Set_SpecularOrder(int iValue) {
    m_pProcessor->m_Parameters.m_iSpecularOrder = iValue;
    m_pProcessor->m_Parameters.m_iWorldChanged = 1;
    return 0;
}

int CQKSDK::qk_Siml_Get_SpecularOrder(int &iValue) {
    iValue = m_pProcessor->m_Parameters.m_iSpecularOrder;
    return 0;
}

int CQKSDK::qkSimReflections(int iValue) {
    m_pProcessor->m_Parameters.m_iReflections = iValue;
    return 0;
}

int CQKSDK::qkSimSetBlockLength(int iValue) {
    m_pProcessor->m_Parameters.m_iBlockLength = iValue;
    return 0;
}

int CQKSDK::qk_Siml_Set_PO(int iValue) {
    // Only headphones and loudspeakers exist; anything else is ignored.
    if (iValue == kHeadphones || iValue == kLoudspeakers) {
        m_pProcessor->m_Parameters.m_iPO = iValue;
    }
    return 0;
}

int CQKSDK::qk_Siml_Get_PO(int &iValue) {
    const int iPO = m_pProcessor->m_Parameters.m_iPO;
    if (iPO == kHeadphones || iPO == kLoudspeakers) {
        iValue = iPO;
    }
    return 0;
}

int CQKSDK::qkSimSetCrossTalkAzimuth(int iAzimuth) {
    m_pProcessor->m_Parameters.m_fCTCAzimuthL = static_cast<float>(iAzimuth);
    m_pProcessor->m_Parameters.m_fCTCAzimuthR = 360.0f - static_cast<float>(iAzimuth);
    return 0;
}

int CQKSDK::qkSimSetCrossTalkElevation(int iElevation) {
    m_pProcessor->m_Parameters.m_fCTCElevationL = static_cast<float>(iElevation);
    m_pProcessor->m_Parameters.m_fCTCElevationR = static_cast<float>(iElevation);
    return 0;
}

int CQKSDK::qk_Siml_Set_PostEQ(int iValue) {
    m_pProcessor->m_Parameters.m_iPostEQ = iValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_PostEQ(int &iValue) {
    iValue = m_pProcessor->m_Parameters.m_iPostEQ;
    return 0;
}

int CQKSDK::qk_Siml_Set_Convolution(int iMethod) {
    if (iMethod == 0 || iMethod == 1) {
        m_pProcessor->m_Parameters.m_iConvolution = iMethod;
    }
    return 0;
}

int CQKSDK::qk_Siml_Get_Convolution(int &iMethod) {
    iMethod = m_pProcessor->m_Parameters.m_iConvolution;
    return 0;
}

int CQKSDK::qk_Siml_Set_Threads(int iThreads) {
    if (iThreads < 0 || iThreads > 64) {
        return -1;
    }
    m_pProcessor->m_Parameters.m_iThreads = iThreads;
    return 0;
}

int CQKSDK::qk_Siml_Get_Threads(int &iThreads) {
    iThreads = m_pProcessor->m_Parameters.m_iThreads;
    return 0;
}

int CQKSDK::qk_Siml_Set_Gain(float fValue) {
    m_pProcessor->m_Parameters.m_fGain = fValue;
    return 0;
}

// The limiter lowers the gain while it works, so this shows the gain in force.
int CQKSDK::qk_Siml_Get_Gain(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fGain;
    return 0;
}

int CQKSDK::qk_Siml_Set_Gain_LSF(float fValue) {
    m_pProcessor->m_Parameters.m_fGain_LSF = fValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_Gain_LSF(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fGain_LSF;
    return 0;
}

int CQKSDK::qk_Siml_Set_Frequency_LSF(float fValue) {
    m_pProcessor->m_Parameters.m_fFrequency_LSF = fValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_Frequency_LSF(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fFrequency_LSF;
    return 0;
}

int CQKSDK::qk_Siml_Set_Gain_HSF(float fValue) {
    m_pProcessor->m_Parameters.m_fGain_HSF = fValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_Gain_HSF(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fGain_HSF;
    return 0;
}

int CQKSDK::qk_Siml_Set_Frequency_HSF(float fValue) {
    m_pProcessor->m_Parameters.m_fFrequency_HSF = fValue;
    return 0;
}

int CQKSDK::qk_Siml_Get_Frequency_HSF(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fFrequency_HSF;
    return 0;
}

// --- CTC

int CQKSDK::qk_CTC_Set_TES(float fValue) {
    m_pProcessor->m_Parameters.m_fTES = fValue;
    return 0;
}

int CQKSDK::qk_CTC_Get_TES(float &fValue) {
    fValue = m_pProcessor->m_Parameters.m_fTES;
    return 0;
}

int CQKSDK::qk_CTC_Set_Parameters(float fDistL, float fAzL, float fElL, float fDistR, float fAzR,
                                  float fElR) {
    return m_pProcessor->CTCSetParameters(fDistL, fAzL, fElL, fDistR, fAzR, fElR);
}

int CQKSDK::qk_CTC_Get_Parameters(float &fDistL, float &fAzL, float &fElL, float &fDistR,
                                  float &fAzR, float &fElR) {
    return m_pProcessor->CTCGetParameters(fDistL, fAzL, fElL, fDistR, fAzR, fElR);
}

// --- SFM

int CQKSDK::qk_SFM_Set(int iModel) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_Parameters.m_iSFM = iModel;
    m_pProcessor->m_Parameters.m_iWorldChanged = 1;
    return 0;
}

int CQKSDK::qk_SFM_Get(int &iModel) {
    iModel = m_pProcessor->m_Parameters.m_iSFM;
    return 0;
}

int CQKSDK::qk_SFM_Set_Material_Coeffs(int iCount) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_Parameters.m_iMaterialCoeffs = iCount;
    m_pProcessor->m_Parameters.m_iMaterialChanged = 1;
    m_pProcessor->m_Parameters.m_iWorldChanged = 1;
    return 0;
}

int CQKSDK::qk_SFM_Get_Material_Coeffs(int &iCount) {
    iCount = m_pProcessor->m_Parameters.m_iMaterialCoeffs;
    return 0;
}

int CQKSDK::qk_SFM_Get_DirPreComputedWav(std::string &strDir) {
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    std::lock_guard<std::recursive_mutex> guard(params.m_csStrings);
    strDir = params.m_strDirPreComputedWav;
    return 0;
}

int CQKSDK::qk_SFM_Set_DirPreComputedWav(const char *pcDir) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    {
        std::lock_guard<std::recursive_mutex> strings(params.m_csStrings);
        params.m_strDirPreComputedWav = pcDir != nullptr ? pcDir : "";
    }
    if (qk::field::Model(params.m_iSFM).response == qk::field::Response::PreComputed) {
        params.m_iWorldChanged = 1;
        m_pProcessor->m_Context.m_pSFM_PCIRS->init(pcDir != nullptr ? pcDir : "");
    }
    return 0;
}

int CQKSDK::qk_SFM_PreComputeWav() {
    return m_pProcessor->SFM_PreComputeWav();
}

// --- Research

int CQKSDK::qk_Research_Set_BOOL(const char *pcKey, int iValue) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    bool bWorldChanges = false;
    qk::Relaxed<int> *flag = researchFlag(m_pProcessor->m_Parameters, pcKey, bWorldChanges);
    if (flag != nullptr) {
        *flag = iValue;
        if (bWorldChanges) {
            m_pProcessor->m_Parameters.m_iWorldChanged = 1;
        }
    }
    return 0;
}

int CQKSDK::qk_Research_Get_BOOL(const char *pcKey, int &iValue) {
    bool bWorldChanges = false;
    qk::Relaxed<int> *flag = researchFlag(m_pProcessor->m_Parameters, pcKey, bWorldChanges);
    if (flag != nullptr) {
        iValue = *flag;
    }
    return 0;
}

// No integer research settings exist; the pair is kept for hosts that call it.
int CQKSDK::qk_Research_Set_INT(const char * /*pcKey*/, int /*iValue*/) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    return 0;
}

int CQKSDK::qk_Research_Get_INT(const char * /*pcKey*/, int & /*iValue*/) {
    return 0;
}

int CQKSDK::qk_Research_Set_STRING(const char *pcKey, const char *pcValue) {
    if (pcKey == nullptr || pcValue == nullptr || std::strcmp(pcKey, "GRAPH_DIR") != 0) {
        return -1;
    }
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    std::lock_guard<std::recursive_mutex> guard(params.m_csStrings);
    params.m_strGraphFolder = pcValue;
    return 0;
}

int CQKSDK::qk_Research_Get_STRING(const char *pcKey, std::string &strValue) {
    if (pcKey == nullptr || std::strcmp(pcKey, "GRAPH_DIR") != 0) {
        return -1;
    }
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    std::lock_guard<std::recursive_mutex> guard(params.m_csStrings);
    strValue = params.m_strGraphFolder;
    return 0;
}
