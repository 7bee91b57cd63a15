// The post-processing stages that rest on services of their own: the global late reverb pair
// and the cross-talk canceller.
#include <algorithm>

#include "sdk/CQUENDARIK_PROCESSOR.h"

int CQUENDARIK_PROCESSOR::CrossTalk(float *pfBlock, int n, int iSampleRate, int) {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    const bool speakers = p.m_iPO == 2 && p.m_i3DAudio == 1;
    const bool plain = p.m_iCTCIfNot3DAudio == 1 && p.m_i3DAudio == 0;
    if (!speakers && !plain) {
        return 0;
    }
    // The loudspeaker fields are read once, so that the design and the block see one set.
    const float az1 = p.m_fCTCAzimuthL, el1 = p.m_fCTCElevationL, d1 = p.m_fCTCDistanceL;
    const float az2 = p.m_fCTCAzimuthR, el2 = p.m_fCTCElevationR, d2 = p.m_fCTCDistanceR;
    const int mode = p.m_iCTCFilterMode;
    const float tes = p.m_fTES;
    CHELPER_HRTF *set = m_Context.m_pHRTF_CTC.get();
    if (m_CrossTalk.m_iInitialized == 0) {
        if (set == nullptr) {
            return -1;
        }
        m_CrossTalk.Terminate();
        m_CrossTalk.Initialize(set, az1, el1, d1, az2, el2, d2, n, mode, iSampleRate, tes);
        m_CrossTalk.m_iInitialized = 1;
    }
    // The service decides itself whether the present values need a new design.
    m_CrossTalk.GetSamples(set, az1, el1, d1, az2, el2, d2, n, mode, pfBlock, n, iSampleRate, tes);
    return 0;
}

int CQUENDARIK_PROCESSOR::Reverb_Initialize(CQUENDARIC_Service_Reverb &left,
                                            CQUENDARIC_Service_Reverb &right, int iSampleRate) {
    // The room's time, and the early delays and echogram length of the source the room model
    // served last.
    CSFM_ISM_ORMS &room = *m_Context.m_pSFM_ORMS;
    m_GlobalLateField.fRT60 = room.GetRT60();
    std::copy(room.m_afEarlyDelays, room.m_afEarlyDelays + 6, m_GlobalLateField.afEarlyDelays);
    m_GlobalLateField.fOnset = static_cast<float>(room.m_iLastLength);
    // Without a reverberation time (no room) the pair is tuned all the same, once: its combs
    // are plain delays, and it stays set up until the world or a material changes.
    CLatePart::Initialize(m_GlobalLateField, iSampleRate, left, right);
    return 0;
}

int CQUENDARIK_PROCESSOR::Reverb_Process(CQUENDARIC_Service_Reverb &left,
                                         CQUENDARIC_Service_Reverb &right, const float *pfIn,
                                         float *pfOut, int n, int iSampleRate) {
    CQUENDARIC_PARAMETERS &p = m_Parameters;
    const float rate = static_cast<float>(iSampleRate);
    if (left.m_fSampleRate != rate || right.m_fSampleRate != rate || p.m_iWorldChanged == 1 ||
        p.m_iMaterialChanged == 1) {
        Reverb_Terminate(left, right);
        Reverb_Initialize(left, right, iSampleRate);
    }
    const float dry = p.m_fReverbDryLevel;
    p.m_fReverbWetLevel = 1.0f - dry;
    CLatePart::Process(pfIn, pfOut, n, dry, left, right, m_pfLateScratch);
    return 0;
}

int CQUENDARIK_PROCESSOR::Reverb_Terminate(CQUENDARIC_Service_Reverb &left,
                                           CQUENDARIC_Service_Reverb &right) {
    CLatePart::Terminate(left, right);
    return 0;
}
