// The room's part of a sound object: the late part of models 2 and 3, the echogram the late
// part of model 3 is tuned from, and the diagnostic graph of each rebuilt response.
#include <algorithm>
#include <cstdio>
#include <mutex>

#include "field/CSFM_ISM_ORMS.h"
#include "field/CSFM_PCIRS.h"
#include "field/ResponsePlot.h"
#include "platform/Report.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "settings/CRenderResources.h"

namespace {
constexpr const char *kCaption = "Quendarik";
}  // namespace

// The diagnostic graph of the response just rebuilt, as an SVG file in the settings' graph
// folder, one file per rebuild. A file that can't be written is reported once.
void CQUENDARIC_Object_Source_Sound::DrawGraph(int iRate) {
    CQUENDARIC_PARAMETERS &p = *m_pParameters;
    std::string folder;
    {
        std::lock_guard<std::recursive_mutex> guard(p.m_csStrings);
        folder = p.m_strGraphFolder;
    }
    SettleBIR();
    SResponsePlot plot;
    plot.pfLeft = m_pfBIRLeft;
    plot.pfRight = m_pfBIRRight;
    plot.iLength = m_iBIRLength;
    plot.pfEchogram = m_pfMonoIR;
    plot.iEchogramLength = m_iMonoIRLength;
    plot.iSampleRate = iRate;
    if (CSFM *pModel = RoomModel()) {
        plot.fRT60 = pModel->GetRT60();
    }
    CSFM_ISM_ORMS *pRooms = m_pResources != nullptr ? m_pResources->RoomModel() : nullptr;
    if (const CSFM_ISM *pRoom = pRooms != nullptr ? pRooms->Model(m_iID) : nullptr) {
        plot.iImagesTotal = pRoom->m_iImagesTotal;
        plot.iImagesUsed = pRoom->m_iImagesValid;
    }
    char name[64];
    std::snprintf(name, sizeof name, "BIR_%d_%05d.svg", m_iID, m_iGraphCount++);
    const std::string path = folder.empty() ? name : folder + "/" + name;
    if (WriteResponsePlot(path, plot) != 0 && !m_bGraphFailed) {
        m_bGraphFailed = true;
        qk::Report("The response graph could not be written to " + path, kCaption,
                   qk::Severity::Warning);
    }
}

// The room model's echogram and early delays for this source, without a binaural response:
// what the late part of model 3 is tuned from.
void CQUENDARIC_Object_Source_Sound::EarlyPartOnly() {
    CSFM *pModel = RoomModel();
    if (pModel == nullptr) {
        return;
    }
    const CQUENDARIC_PARAMETERS &p = *m_pParameters;
    float *pfLeft = nullptr;
    float *pfRight = nullptr;
    int iLength = 0;
    float fPeakL = 0.0f;
    float fPeakR = 0.0f;
    pModel->GetBinauralImpulseResponse(
        nullptr, m_pfMonoIR, m_iMonoIRLength, pfLeft, pfRight, iLength, m_position, m_lookAt,
        m_pSink->m_position, m_pSink->m_lookAt, "", p.m_iSpecularOrder, p.m_fTemperature, m_iRate,
        fPeakL, fPeakR, p.m_iMaterialChanged, m_iRecalculate, p.m_iMaterialCoeffs, m_iID);
}

float CQUENDARIC_Object_Source_Sound::Initialize_LatePart(int, int iRate,
                                                          CQUENDARIC_Service_Reverb *pLeft,
                                                          CQUENDARIC_Service_Reverb *pRight) {
    CSFM *pModel = RoomModel();
    if (pModel == nullptr || pLeft == nullptr || pRight == nullptr || m_pParameters == nullptr) {
        return 0.0f;
    }
    SLateField field;
    field.fRT60 = pModel->GetRT60();
    field.fOnset = static_cast<float>(m_iMonoIRLength);
    if (CSFM_ISM_ORMS *pRooms = m_pResources != nullptr ? m_pResources->RoomModel() : nullptr) {
        pRooms->EarlyDelays(m_iID, field.afEarlyDelays);
    }
    // Without a reverberation time (no room) the pair is tuned all the same: its combs are
    // plain delays.
    return CLatePart::Initialize(field, iRate, *pLeft, *pRight);
}

void CQUENDARIC_Object_Source_Sound::GetSamples_LatePart(float *pfIn, float *pfOut, int n,
                                                         CQUENDARIC_Service_Reverb *pLeft,
                                                         CQUENDARIC_Service_Reverb *pRight,
                                                         int iRate) {
    CQUENDARIC_PARAMETERS &p = *m_pParameters;
    const float fDry = p.m_fReverbDryLevel;
    p.m_fReverbWetLevel = 1.0f - fDry;
    if (pLeft == nullptr) {
        return;
    }
    if (pRight == nullptr) {
        CLatePart::ProcessChannel(pfIn, pfOut, n, fDry, *pLeft, m_pfLateScratch);
        return;
    }
    // The binaural road: each ear's early signal feeds that ear's reverb.
    if (m_HRTF._process(pfIn, n, iRate) != 0 || m_HRTF.m_pfData == nullptr) {
        std::fill(pfOut, pfOut + 2 * n, 0.0f);
        return;
    }
    CLatePart::Process(m_HRTF.m_pfData, pfOut, n, fDry, *pLeft, *pRight, m_pfLateScratch);
}

void CQUENDARIC_Object_Source_Sound::Terminate_LatePart(CQUENDARIC_Service_Reverb *pLeft,
                                                        CQUENDARIC_Service_Reverb *pRight) {
    if (pLeft != nullptr && pRight != nullptr) {
        CLatePart::Terminate(*pLeft, *pRight);
    }
}

// Dry and wet (model 2): the room's early response with this source's late part mixed in by
// the dry level. Wet only (model 3): one HRTF for the direction, then each ear's reverb, whose
// output alone is heard. Either way the object's block holds the result, and m_pfMono the
// block's mono signal.
void CQUENDARIC_Object_Source_Sound::RenderWithLatePart(int n, int iRate,
                                                        qk::field::LatePart late) {
    float *pfMono = m_pfBlockMono;
    if (pfMono != m_pfMono.get()) {
        std::copy(pfMono, pfMono + n, m_pfMono.get());
    }
    m_iMonoHeld = 0;
    m_iBlockHeld = 0;
    if (late == qk::field::LatePart::DryAndWet) {
        GetSamples_LatePart(m_pfMono, m_pfData, n, &m_ReverbL, &m_ReverbR, iRate);
        return;
    }
    Convolve(m_pfMono, n, iRate, 1.0f);
    SettleBlock();
    if (m_pfLateScratch.size() < n) {
        m_pfLateScratch.AllocateZeroed(2 * n);
    }
    m_ReverbL.Process(m_pfData, m_pfLateScratch, n);
    std::copy(m_pfLateScratch.get(), m_pfLateScratch.get() + n, m_pfData.get());
    m_ReverbR.Process(m_pfData + n, m_pfLateScratch, n);
    std::copy(m_pfLateScratch.get(), m_pfLateScratch.get() + n, m_pfData.get() + n);
}
