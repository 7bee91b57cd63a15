// The facade's Vsrc and Vrcv families: virtual sources and listeners. Each forwards to the
// engine, which takes its lock for the look-up and the change; unknown ids give -1 unless an
// operation says otherwise.
#include <cstring>
#include <mutex>

#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sdk/EngineObjects.h"

namespace {
using Guard = std::lock_guard<qk::CEngineLock>;
}  // namespace

// --- Vsrc

int CQKSDK::qk_Vsrc_Add(int &iID, int iSoundID, int iAudioLink, float x, float y, float z,
                        const char *pcName) {
    m_pProcessor->Add3DSource_Sound(iID, iSoundID, iAudioLink, x, y, z,
                                    pcName != nullptr ? pcName : "");
    return 0;
}

int CQKSDK::qk_Vsrc_Remove(int iID) {
    Guard guard(m_pProcessor->m_csEngine);
    m_pProcessor->Remove3DSourceSound(iID);
    return 0;
}

int CQKSDK::qk_Vsrc_Set_Position(int iID, float x, float y, float z) {
    return m_pProcessor->Set3DSource_Position(iID, x, y, z);
}

int CQKSDK::qk_Vsrc_Get_Position(int iID, float &x, float &y, float &z) {
    return m_pProcessor->Get3DSource_Position(iID, x, y, z);
}

int CQKSDK::qk_Vsrc_Upd_Position(int iID) {
    return m_pProcessor->Update3DSource_Position(iID);
}

int CQKSDK::qk_Vsrc_Get_Binaural_Position(int iID, float &fDistance, float &fAzimuth,
                                          float &fElevation) {
    return m_pProcessor->Get3DSource_Binaural_Position(iID, fDistance, fAzimuth, fElevation);
}

int CQKSDK::qk_Vsrc_Get_First() {
    Guard guard(m_pProcessor->m_csEngine);
    if (m_pProcessor->m_list3DSources.empty()) {
        m_posVsrc = -1;
        return -1;
    }
    m_posVsrc = 0;
    return 0;
}

int CQKSDK::qk_Vsrc_Get_Next(int &iID) {
    Guard guard(m_pProcessor->m_csEngine);
    const auto &list = m_pProcessor->m_list3DSources;
    if (m_posVsrc < 0 || m_posVsrc >= static_cast<long>(list.size())) {
        m_posVsrc = -1;
        iID = -1;
        return -1;
    }
    iID = list[static_cast<size_t>(m_posVsrc)]->m_iID;
    ++m_posVsrc;
    return 0;
}

int CQKSDK::qk_Vsrc_Get_Enable(int iID, int &iEnable) {
    return qk::WithSource(*m_pProcessor, iID, [&](const CQUENDARIC_Object_Source &object) {
        iEnable = object.m_iEnable;
        return 0;
    });
}

int CQKSDK::qk_Vsrc_Set_Enable(int iID, int iEnable) {
    m_pProcessor->Set3DSource_Enable(iID, iEnable);
    return 0;
}

int CQKSDK::qk_Vsrc_Get_AudioLink(int iID, int &iAudioLink) {
    return qk::WithSource(*m_pProcessor, iID, [&](const CQUENDARIC_Object_Source &object) {
        iAudioLink = object.m_iAudioLink;
        return 0;
    });
}

int CQKSDK::qk_Vsrc_Set_AudioLink(int iID, int iAudioLink) {
    return m_pProcessor->Set3DSource_SelectedChannelPlaylist(iID, iAudioLink);
}

int CQKSDK::qk_Vsrc_Get_Description(int iID, char *pcBuffer) {
    return qk::WithSource(*m_pProcessor, iID, [&](const CQUENDARIC_Object_Source &object) {
        if (pcBuffer != nullptr) {
            const std::string &text = object.m_strDescription;
            std::memcpy(pcBuffer, text.c_str(), text.size() + 1);
        }
        return 0;
    });
}

// The object's description only; its draw element keeps what it showed.
int CQKSDK::qk_Vsrc_Set_Description(int iID, const char *pcDescription) {
    return qk::WithSource(*m_pProcessor, iID, [&](CQUENDARIC_Object_Source &object) {
        object.m_strDescription = pcDescription != nullptr ? pcDescription : "";
        return 0;
    });
}

int CQKSDK::qk_Vsrc_OGL_Get_VRSource(int iID, void *&pVRSource) {
    return m_pProcessor->GetVRSource(iID, pVRSource);
}

int CQKSDK::qk_Vsrc_Get_BIR(int iID, float *&pfLeft, float *&pfRight, int &iLength) {
    return m_pProcessor->Get3DSource_Binaural_IR(iID, pfLeft, pfRight, iLength);
}

int CQKSDK::qk_Vsrc_Get_ID(int iID, int &iOut) {
    return m_pProcessor->Get3DSource_ID(iID, iOut);
}

int CQKSDK::qk_Vsrc_Get_Name(int iID, std::string &strName) {
    return m_pProcessor->Get3DSource_Name(iID, strName);
}

int CQKSDK::qk_Vsrc_Get_3DSourceWavID(int iID, int &iWavID) {
    return m_pProcessor->Get3DSource_3DSourceWavID(iID, iWavID);
}

int CQKSDK::qk_Vsrc_Set_3DSourceWavID(int iID, int iWavID) {
    return m_pProcessor->Set3DSource_3DSourceWavID(iID, iWavID);
}

// --- Vrcv

int CQKSDK::qk_Vrcv_Add(int &iID) {
    return m_pProcessor->Add3DListener(iID);
}

int CQKSDK::qk_Vrcv_Set_Position_LookAt(int iID, float x, float y, float z, float lx, float ly,
                                        float lz) {
    return m_pProcessor->Set3DListener_Position_LookAt(iID, x, y, z, lx, ly, lz);
}

// The block of the listener that renders, whatever the id: the first enabled one.
int CQKSDK::qk_Vrcv_Get_Data(int iID, float *&pfData) {
    pfData = m_pProcessor->GetSinkData(iID);
    return 0;
}

int CQKSDK::qk_Vrcv_Get_Position_LookAt(int iID, float &x, float &y, float &z, float &lx, float &ly,
                                        float &lz) {
    return m_pProcessor->Get3DListener_Position_LookAt(iID, x, y, z, lx, ly, lz);
}

int CQKSDK::qk_Vrcv_Upd_Position(int iID) {
    return m_pProcessor->Update3DListener_Position(iID);
}
