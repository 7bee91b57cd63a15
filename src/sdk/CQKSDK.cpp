// The facade: the Frame, Appl, Ssrc and Asnk families and the HRTF paths.
#include "quendarik/CQKSDK.h"

#include <cstring>
#include <map>

#include "platform/Module.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace {
// How often qkStop looks whether the engine thread is still there while it waits, ms.
constexpr unsigned kStopPoll = 100;

// How deep each host thread holds each engine's lock through qk_Enter_CS, so that a
// qk_Leave_CS without an Enter does no harm.
thread_local std::map<const CQUENDARIK_PROCESSOR *, int> t_hostLockDepth;

void copyOut(char *pcBuffer, const std::string &text) {
    if (pcBuffer != nullptr) {
        std::memcpy(pcBuffer, text.c_str(), text.size() + 1);
    }
}

std::string hrtfFolderPath(const char *pcName) {
    // The folder words are spelled as the system has always spelled them in this call.
    return qk::JoinPath(qk::JoinPath(qk::CommonFolder(), "TORVELLAN/COMMON/QKHRTF"),
                        pcName != nullptr ? pcName : "");
}
}  // namespace

CQKSDK::CQKSDK() {
    qkInit();
}

CQKSDK::~CQKSDK() {
    if (m_hSettingsModule != nullptr) {
        delete static_cast<qk::CModule *>(m_hSettingsModule);
        m_hSettingsModule = nullptr;
        m_pfnDlgSettings = nullptr;
    }
    qkQuit();
}

int CQKSDK::qkInit() {
    if (m_pProcessor != nullptr) {
        return 0;
    }
    m_pProcessor = new CQUENDARIK_PROCESSOR;
    if (m_iThreaded == 1) {
        m_pProcessor->CreateThread(true);
        m_pProcessor->m_evtStarted.Lock();
    } else {
        m_pProcessor->InitInstance();
    }
    return 0;
}

int CQKSDK::qkQuit() {
    if (m_pProcessor == nullptr) {
        return 0;
    }
    qkStop();
    if (m_iThreaded == 1) {
        m_pProcessor->PostThreadMessage(qk::kMsgQuit, 0, 0);
        m_pProcessor->m_evtExited.Lock();
    } else {
        m_pProcessor->ExitInstance();
    }
    t_hostLockDepth.erase(m_pProcessor);
    delete m_pProcessor;
    m_pProcessor = nullptr;
    return 0;
}

int CQKSDK::qkPlay() {
    m_pProcessor->m_iPaused = 0;
    if (m_iPlaying == 1) {
        return -1;
    }
    m_pProcessor->PostThreadMessage(CQUENDARIK_PROCESSOR::kMsgPlay, 0, 0);
    m_iPlaying = 1;
    return 0;
}

int CQKSDK::qkStop() {
    if (m_iPlaying != 1) {
        return -1;
    }
    m_pProcessor->PostThreadMessage(CQUENDARIK_PROCESSOR::kMsgStop, 0, 0);
    // Waits for the end of play; an engine thread that has already gone (a quit during play)
    // will never answer, and then there is nothing left to wait for.
    while (!m_pProcessor->m_evtStopped.Lock(kStopPoll)) {
        if (m_pProcessor->HasExited()) {
            break;
        }
    }
    m_pProcessor->m_evtStopped.ResetEvent();
    m_iPlaying = 0;
    return 0;
}

int CQKSDK::qkPause() {
    m_pProcessor->m_iPaused = 1;
    return 0;
}

int CQKSDK::qk_Set_Playback_State(int iState) {
    return m_pProcessor->Set_Playback_State(iState);
}

int CQKSDK::qk_Get_Playback_State(int &iState) {
    return m_pProcessor->Get_Playback_State(iState);
}

int CQKSDK::qk_Enter_CS() {
    m_pProcessor->m_csEngine.lock();
    ++t_hostLockDepth[m_pProcessor];
    return 0;
}

int CQKSDK::qk_Leave_CS() {
    auto it = t_hostLockDepth.find(m_pProcessor);
    if (it == t_hostLockDepth.end() || it->second == 0) {
        return 0;  // this thread holds no lock through the facade
    }
    --it->second;
    m_pProcessor->m_csEngine.unlock();
    return 0;
}

int CQKSDK::qk_Dlg_Settings(int iArg) {
    if (m_hSettingsModule == nullptr) {
        auto module = std::make_unique<qk::CModule>();
        if (module->Load("libmQUENDARIKe.so")) {
            {
                std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
                m_pProcessor->m_Parameters._read();
            }
            m_pfnDlgSettings = module->Symbol("dlgQKSDKSettings");
            m_hSettingsModule = module.release();
        }
    }
    if (m_pfnDlgSettings == nullptr) {
        return 0;
    }
    using DlgFn = void (*)(CQKSDK *, int);
    reinterpret_cast<DlgFn>(m_pfnDlgSettings)(this, iArg);
    return 0;
}

int CQKSDK::qk_Appl_Get(char *&pcBuffer) {
    std::lock_guard<std::recursive_mutex> guard(m_pProcessor->m_Parameters.m_csStrings);
    copyOut(pcBuffer, m_pProcessor->m_Parameters.m_strApplication);
    return 0;
}

int CQKSDK::qk_Appl_Set(const char *pcName) {
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    std::string strHRTF;
    std::string strHRTF_CTC;
    {
        std::lock_guard<std::recursive_mutex> guard(params.m_csStrings);
        params.m_strApplication = pcName != nullptr ? pcName : "";
        params._read();
        strHRTF = params.m_strHRTF;
        strHRTF_CTC = params.m_strHRTF_CTC;
    }
    if (!strHRTF.empty()) {
        m_pProcessor->SetHRTF(strHRTF);
    }
    if (!strHRTF_CTC.empty()) {
        m_pProcessor->SetHRTFCTC(strHRTF_CTC);
    }
    return 0;
}

int CQKSDK::qk_Appl_Register_On_Values(unsigned long ulCallback, unsigned long ulUser) {
    return m_pProcessor->Register_On_Values(ulCallback, ulUser);
}

int CQKSDK::qk_Appl_UnRegister_On_Values() {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_pfnOnValues = nullptr;
    return 0;
}

int CQKSDK::qk_Appl_Register_On_Message(QK_ON_MESSAGE pfnCallback, unsigned long ulUser) {
    qk::SetReportHandler(pfnCallback, ulUser);
    return 0;
}

int CQKSDK::qk_Ssrc_Add_Gauss(int &iID) {
    return m_pProcessor->AddSource_Gauss(iID);
}

int CQKSDK::qk_Ssrc_Add_Winamp(int &iID) {
    return m_pProcessor->AddSource_WinAmp(iID);
}

int CQKSDK::qk_Ssrc_Add_VST(int &iID) {
    return m_pProcessor->AddSource_VST(iID);
}

int CQKSDK::qk_Ssrc_Add_DXi2(int &iID) {
    return m_pProcessor->AddSource_DXi2(iID);
}

int CQKSDK::qk_Ssrc_Add_WMP(int &iID) {
    return m_pProcessor->AddSource_WMP(iID);
}

int CQKSDK::qk_Ssrc_Add_SoundCard(int &iID, int iDevice) {
    return m_pProcessor->AddSource_SoundCard(iID, iDevice);
}

int CQKSDK::qk_Ssrc_Add_File(int &iID, const char *pcPath) {
    if (pcPath == nullptr) {
        return -1;
    }
    return m_pProcessor->AddSource_File(iID, pcPath);
}

int CQKSDK::qk_Ssrc_File_Set(int &iID, const char *pcPath) {
    if (pcPath == nullptr) {
        return -1;
    }
    return m_pProcessor->SetSource_File(iID, pcPath);
}

int CQKSDK::qk_Ssrc_File_GetInfo(int &iID, char *pcInfo1, char *pcInfo2, int *piInfo) {
    return m_pProcessor->SoundSource_File_GetFileInfo(iID, pcInfo1, pcInfo2, piInfo);
}

int CQKSDK::qk_Ssrc_Gen_Samples_1P(int iID, void *pData, int iLength, int iBits, int iChannels,
                                   int iSampleRate) {
    return m_pProcessor->GenerateSamples_1P(iID, pData, iLength, iBits, iChannels, iSampleRate);
}

int CQKSDK::qk_Ssrc_Gen_Samples_2P(int iID, void **ppData, int iLength, int iBits, int iChannels,
                                   int iSampleRate) {
    return m_pProcessor->GenerateSamples_2P(iID, ppData, iLength, iBits, iChannels, iSampleRate);
}

int CQKSDK::qk_Ssrc_Get_Enable(int iID, int &iEnable) {
    return m_pProcessor->SoundSource_Get_Enable(iID, iEnable);
}

int CQKSDK::qk_Ssrc_Set_Enable(int iID, int iEnable) {
    return m_pProcessor->SoundSource_Set_Enable(iID, iEnable);
}

int CQKSDK::qk_Asnk_Set(int iDevice) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_Parameters.m_iAudioSink = iDevice;
    return 0;
}

int CQKSDK::qk_Asnk_Get(int &iDevice) {
    iDevice = m_pProcessor->m_Parameters.m_iAudioSink;
    return 0;
}

int CQKSDK::qk_HRTF_Set_Full(const char *pcPath) {
    return m_pProcessor->SetHRTF(pcPath != nullptr ? pcPath : "");
}

int CQKSDK::qk_HRTF_Get_Full(char *pcBuffer) {
    return m_pProcessor->GetHRTF(pcBuffer);
}

int CQKSDK::qk_HRTF_Set(const char *pcName) {
    return m_pProcessor->SetHRTF(hrtfFolderPath(pcName));
}

int CQKSDK::qk_HRTF_Get(char *pcBuffer) {
    copyOut(pcBuffer, qk::FileNamePart(m_pProcessor->m_Parameters.GetHRTFRequest()));
    return 0;
}

int CQKSDK::qk_HRTF_CTC_Set_Full(const char *pcPath) {
    return m_pProcessor->SetHRTFCTC(pcPath != nullptr ? pcPath : "");
}

int CQKSDK::qk_HRTF_CTC_Get_Full(char *pcBuffer) {
    return m_pProcessor->GetHRTFCTC(pcBuffer);
}

int CQKSDK::qk_HRTF_CTC_Set(const char *pcName) {
    return m_pProcessor->SetHRTFCTC(hrtfFolderPath(pcName));
}

int CQKSDK::qk_HRTF_CTC_Get(char *pcBuffer) {
    copyOut(pcBuffer, qk::FileNamePart(m_pProcessor->m_Parameters.GetHRTFRequestCTC()));
    return 0;
}

int CQKSDK::qk_Siml_Set_FileResampling(int iQuality) {
    return m_pProcessor->SetFileResampling(iQuality);
}

int CQKSDK::qk_Siml_Set_FileEnd(int iMode) {
    return m_pProcessor->SetFileEnd(iMode);
}

int CQKSDK::qk_Siml_Get_FileEnd(int &iMode) {
    iMode = m_pProcessor->GetFileEnd();
    return 0;
}

int CQKSDK::qk_Siml_Get_FileResampling(int &iQuality) {
    iQuality = m_pProcessor->GetFileResampling();
    return 0;
}

int CQKSDK::qk_Siml_Get_Blocks(int &iBlocks) {
    iBlocks = m_pProcessor->GetBlockCount();
    return 0;
}

int CQKSDK::testHRTFSet(int i1, float f2, int i3, int i4, int i5, int i6, int i7) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CHRTF_Converter &converter = m_pProcessor->m_HRTFConverter;
    converter.m_iInverseMethod = i1;
    converter.m_fInverseLimit = f2;
    converter.m_bMinimumPhase = i3;
    converter.m_iDynamic = i4;
    converter.m_iOffset = i5;
    converter.m_bNormalise = i6;
    converter.m_bPowerAverage = i7;
    m_pProcessor->m_iTestHRTF = 1;
    return 0;
}

int CQKSDK::qk_Siml_Process_WinAmp(int iSamples, int iBits, int iChannels, int iSampleRate) {
    return m_pProcessor->_processWinAmpThread(iSamples, iBits, iChannels, iSampleRate);
}

int CQKSDK::qk_Save_Wave_Start(std::string strName) {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    CQUENDARIC_PARAMETERS &params = m_pProcessor->m_Parameters;
    {
        std::lock_guard<std::recursive_mutex> strings(params.m_csStrings);
        params.m_strSaveWave = strName;
    }
    m_pProcessor->m_SinkWave.m_strSinkFile = strName;
    params.m_iSaveWave = 1;  // the block path opens the file at its next block
    return 0;
}

int CQKSDK::qk_Save_Wave_Stop() {
    std::lock_guard<qk::CEngineLock> guard(m_pProcessor->m_csEngine);
    m_pProcessor->m_Parameters.m_iSaveWave = 0;
    m_pProcessor->m_SinkWave._quit();
    return 0;
}

int CQKSDK::qk_Wrld_Get_File_Full(char *pcBuffer) {
    std::lock_guard<std::recursive_mutex> guard(m_pProcessor->m_Parameters.m_csStrings);
    copyOut(pcBuffer, m_pProcessor->m_Parameters.m_strWorldFile);
    return 0;
}

int CQKSDK::qk_Wrld_Get_File(char *pcBuffer) {
    std::lock_guard<std::recursive_mutex> guard(m_pProcessor->m_Parameters.m_csStrings);
    copyOut(pcBuffer, qk::FileNamePart(m_pProcessor->m_Parameters.m_strWorldFile));
    return 0;
}

int CQKSDK::qk_Wrld_Get(void *&pWorld) {
    pWorld = &m_pProcessor->m_Context.m_World;
    return 0;
}

int CQKSDK::qk_Wrld_Get_Model(int &iModel) {
    iModel = m_pProcessor->m_Parameters.m_iWorldModel;
    return 0;
}
