#include "sdk/CQUENDARIK_PROCESSOR.h"
#include "sdk/SourceKinds.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "audio/CSOURCE_SOUNDCARD.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "sdk/Messages.h"
#include "sources/CSOURCE_AC3.h"
#include "sources/CSOURCE_GAUSS.h"
#include "sources/CSOURCE_HOSTFED.h"
#include "sources/CSOURCE_MP3.h"
#include "sources/CSOURCE_WAVE.h"

qk::Relaxed<int> CQUENDARIK_PROCESSOR::s_iWinAmpResult = 0;

// The four arguments of a hosted block and its outcome. Shared between the caller and the
// message, so that a message that runs after its caller gave up still finds them alive.
struct CQUENDARIK_PROCESSOR::WinAmpCall {
    int iLength = 0;
    int iBits = 0;
    int iChannels = 0;
    int iSampleRate = 0;
    qk::Relaxed<int> iResult = 0;
    qk::CEvent evtDone;
    // The message's own reference, taken over by the engine thread when it runs the call:
    // the call lives on for the engine when the caller has given up waiting.
    std::shared_ptr<WinAmpCall> self;
};

CQUENDARIK_PROCESSOR::CQUENDARIK_PROCESSOR() {
    m_evtStarted.ResetEvent();
    m_evtExited.ResetEvent();
    m_evtStopped.ResetEvent();
    m_iPlaybackState = 7;
    m_iScratchLength = 32768;
    m_pfScratch.AllocateZeroed(2 * m_iScratchLength);
    // The post shelves: low at the settings' low corner, high at the high corner.
    m_FilterLowL._init(8, m_Parameters.m_fGain_LSF, 1.0f, 0.5f, m_Parameters.m_fFrequency_LSF,
                       44100.0f);
    m_FilterLowR._init(8, m_Parameters.m_fGain_LSF, 1.0f, 0.5f, m_Parameters.m_fFrequency_LSF,
                       44100.0f);
    m_FilterHighL._init(9, m_Parameters.m_fGain_HSF, 1.0f, 0.5f, m_Parameters.m_fFrequency_HSF,
                        44100.0f);
    m_FilterHighR._init(9, m_Parameters.m_fGain_HSF, 1.0f, 0.5f, m_Parameters.m_fFrequency_HSF,
                        44100.0f);
}

CQUENDARIK_PROCESSOR::~CQUENDARIK_PROCESSOR() {
    // The thread must be gone before the members it uses.
    Join();
    RemoveAllSources();
    RemoveAll3DSources();
    RemoveAll3DListeners();
    m_FilterLowL._quit();
    m_FilterLowR._quit();
    m_FilterHighL._quit();
    m_FilterHighR._quit();
}

bool CQUENDARIK_PROCESSOR::InitInstance() {
    // Only requested here: the block path loads them.
    const std::string folder = qk::JoinPath(qk::CommonFolder(), "TORVELLAN/Common/QKHRTF");
    SetHRTF(qk::JoinPath(folder, "VORLAN1_16s_DFE.qkhrtf"));
    SetHRTFCTC(qk::JoinPath(folder, "KEMAR_SMALL_16s_DFE.qkhrtf"));
    m_evtStarted.SetEvent();
    return true;
}

int CQUENDARIK_PROCESSOR::ExitInstance() {
    if (m_Parameters.m_iSaveWave == 1) {
        m_SinkWave._quit();
    }
    // Messages still queued run now, so that no hosted caller waits for nothing.
    while (PeekMessage() && PumpMessage()) {
    }
    m_iExited = 1;
    m_evtExited.SetEvent();
    return 0;
}

void CQUENDARIK_PROCESSOR::OnThreadMessage(const qk::ThreadMessage &msg) {
    switch (msg.message) {
        case kMsgPlay:
            OnPlay(msg.wParam, msg.lParam);
            break;
        case kMsgStop:
            OnStop(msg.wParam, msg.lParam);
            break;
        case kMsgProcessWinAmp:
            OnProcessWinAmp(msg.wParam, msg.lParam);
            break;
        default:
            break;
    }
}

void CQUENDARIK_PROCESSOR::OnPlay(uintptr_t, intptr_t) {
    // A play message that arrives while playing (a playback state change from 3 to 7) would
    // nest a second loop inside the first; it is ignored instead.
    if (m_bInPlay) {
        return;
    }
    m_bInPlay = true;
    // Read once: a change of block length, bits or channels takes effect at the next play.
    // Real-time play is always at 44100 Hz.
    const int iBlockLength = m_Parameters.m_iBlockLength;
    const int iBits = m_Parameters.m_iBits;
    const int iChannels = m_Parameters.m_iChannels;
    const int iSampleRate = 44100;
    m_Parameters.m_iHRTFChanged = 0;
    m_iBlocks = 0;
    {
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        for (auto &source : m_listSources) {
            source->_init(iBlockLength, iSampleRate);
        }
    }
    using Clock = std::chrono::steady_clock;
    const auto blockTime = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(static_cast<double>(iBlockLength) / iSampleRate));
    Clock::time_point due = Clock::now();  // when the next clocked block is due
    bool bClocked = false;                 // the last block reached no device
    for (;;) {
        if (m_iStopRequested != 0) {
            break;
        }
        while (PeekMessage()) {
            if (!PumpMessage()) {
                // Quit during play: leave at once, without ending the sources, and let the
                // outer loop see the quit again.
                PostThreadMessage(qk::kMsgQuit, 0, 0);
                m_bInPlay = false;
                return;
            }
        }
        if (bClocked && Clock::now() < due) {
            if (m_iStopRequested == 0) {
                WaitForMessage(due);  // a message cuts the wait short; it is run first
            }
            continue;
        }
        if (m_iPaused == 0) {
            bClocked = PlayOneBlock(iBlockLength, iBits, iChannels, iSampleRate);
            due = bClocked ? std::max(due + blockTime, Clock::now()) : Clock::now();
            // Unpaced this loop would take the lock back at once, every time; host threads
            // waiting for it go first.
            m_csEngine.YieldToWaiters();
        } else {
            // Paused: nothing to do but answer messages and notice the end of the pause.
            WaitForMessage(Clock::now() + std::chrono::milliseconds(10));
        }
    }
    {
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        for (auto &source : m_listSources) {
            source->_quit();
        }
    }
    m_iStopRequested = 0;
    m_bInPlay = false;
    m_evtStopped.SetEvent();
}

bool CQUENDARIK_PROCESSOR::PlayOneBlock(int iBlockLength, int iBits, int iChannels,
                                        int iSampleRate) {
    {
        // Held while walking the list, so that a host thread adding a source can't move the
        // list under the walk.
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        for (auto &source : m_listSources) {
            source->_process_1P(nullptr, iBlockLength, iBits, iChannels, iSampleRate);
        }
    }
    const int result = _processWinAmp(iBlockLength, iBits, iChannels, iSampleRate);
    m_iBlocks = m_iBlocks + 1;
    // The device's wait for a free buffer is the loop's clock. A block that reached no device
    // (none opens, or nothing was rendered: no HRTF set, no listener) is paced by the clock
    // instead, so that play keeps to real time and doesn't spin. With no output at all (-2)
    // blocks are made as fast as they can be.
    const bool bDevicePaced = result == 1 && m_Playback.IsOpen();
    return result == -1 || (result == 1 && !bDevicePaced);
}

void CQUENDARIK_PROCESSOR::OnStop(uintptr_t, intptr_t) {
    m_iStopRequested = 1;
}

void CQUENDARIK_PROCESSOR::OnProcessWinAmp(uintptr_t wParam, intptr_t) {
    auto *pCall = reinterpret_cast<WinAmpCall *>(wParam);
    if (pCall == nullptr) {
        return;
    }
    const std::shared_ptr<WinAmpCall> keep = std::move(pCall->self);
    WinAmpCall &call = *pCall;
    const int result = _processWinAmp(call.iLength, call.iBits, call.iChannels, call.iSampleRate);
    call.iResult = result;
    s_iWinAmpResult = result;
    call.evtDone.SetEvent();
}

int CQUENDARIK_PROCESSOR::_processWinAmpThread(int iLength, int iBits, int iChannels,
                                               int iSampleRate) {
    s_iWinAmpResult = 0;
    if (HasExited()) {
        return 0;  // nobody would ever run the message
    }
    // A host asking for block after block reuses one call once the engine has let it go; a
    // second host thread asking at the same time, or a call the engine still holds, gets a
    // new one.
    const bool bOwn = !m_bWinAmpCallBusy.exchange(true, std::memory_order_acquire);
    std::shared_ptr<WinAmpCall> call;
    if (bOwn && m_pWinAmpCall != nullptr && m_pWinAmpCall.use_count() == 1) {
        call = m_pWinAmpCall;
        call->evtDone.ResetEvent();
    } else {
        call = std::make_shared<WinAmpCall>();
    }
    call->iLength = iLength;
    call->iBits = iBits;
    call->iChannels = iChannels;
    call->iSampleRate = iSampleRate;
    call->self = call;
    PostThreadMessage(kMsgProcessWinAmp, reinterpret_cast<uintptr_t>(call.get()), 0);
    const bool bDone = call->evtDone.Lock(kWinAmpTimeout);
    const int result = bDone ? static_cast<int>(call->iResult) : 0;
    if (bOwn) {
        // A call given up on is never reused: the engine may still be writing it.
        m_pWinAmpCall = bDone ? std::move(call) : nullptr;
        m_bWinAmpCallBusy.store(false, std::memory_order_release);
    }
    return result;
}

CSOURCE *CQUENDARIK_PROCESSOR::GetSourceFromID(int iID) {
    CSOURCE *found = nullptr;
    for (auto &source : m_listSources) {
        if (source->m_iID == iID) {
            found = source.get();
        }
    }
    return found;
}

int CQUENDARIK_PROCESSOR::AddSource(std::unique_ptr<CSOURCE> pSource) {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    const int iID = pSource->m_iID;
    m_listSources.push_back(std::move(pSource));
    return iID;
}

int CQUENDARIK_PROCESSOR::AddSource_Gauss(int &iID) {
    iID = AddSource(std::make_unique<CSOURCE_GAUSS>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_WinAmp(int &iID) {
    iID = AddSource(std::make_unique<CSOURCE_WINAMP>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_VST(int &iID) {
    iID = AddSource(std::make_unique<CSOURCE_VST>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_DXi2(int &iID) {
    iID = AddSource(std::make_unique<CSOURCE_DXi2>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_WMP(int &iID) {
    iID = AddSource(std::make_unique<CSOURCE_WMP>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_SoundCard(int &, int) {
    AddSource(std::make_unique<CSOURCE_SOUNDCARD>());
    return 0;
}

int CQUENDARIK_PROCESSOR::AddSource_File(int &iID, const std::string &strPath) {
    if (strPath.size() < 3) {
        return -1;
    }
    const std::string ending = qk::ToUpper(strPath.substr(strPath.size() - 3));
    const qk::sources::SSourceKind *kind = qk::sources::KindOfExtension(ending);
    if (kind == nullptr) {
        qk::Report(ending + " files are not supported.", kCaption, qk::Severity::Error);
        return -1;
    }
    std::unique_ptr<CSOURCE> made = kind->pfnMake();
    std::unique_ptr<CSOURCE_FILE> source(dynamic_cast<CSOURCE_FILE *>(made.get()));
    if (source == nullptr) {
        return -1;  // a kind with a name ending is a file kind; this is never reached
    }
    made.release();
    if (kind->pfnPrepare != nullptr && !kind->pfnPrepare(*source, strPath)) {
        return -1;
    }
    source->m_strFile = strPath;
    source->m_iResampleQuality = m_iFileResampling.load();
    source->m_iExactEnd = m_iFileEnd.load();
    iID = AddSource(std::move(source));
    return 0;
}

int CQUENDARIK_PROCESSOR::SetFileResampling(int iQuality) {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    m_iFileResampling = iQuality != 0 ? 1 : 0;
    for (auto &source : m_listSources) {
        if (auto *file = dynamic_cast<CSOURCE_FILE *>(source.get())) {
            file->m_iResampleQuality = m_iFileResampling.load();
        }
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::SetFileEnd(int iMode) {
    if (iMode != 0 && iMode != 1) {
        return 0;
    }
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    m_iFileEnd = iMode;
    for (auto &source : m_listSources) {
        if (auto *file = dynamic_cast<CSOURCE_FILE *>(source.get())) {
            file->m_iExactEnd = iMode;
        }
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::SetSource_File(int iID, const std::string &strPath) {
    if (strPath.size() < 3) {
        return -1;
    }
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    CSOURCE *source = GetSourceFromID(iID);
    if (source == nullptr) {
        return -1;
    }
    auto *file = dynamic_cast<CSOURCE_FILE *>(source);
    if (file == nullptr) {
        return -2;
    }
    file->SetFile(strPath);
    return 0;
}

int CQUENDARIK_PROCESSOR::SoundSource_File_GetFileInfo(int iID, char *pcInfo1, char *pcInfo2,
                                                       int *piInfo) {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    CSOURCE *source = GetSourceFromID(iID);
    if (source == nullptr) {
        return -1;
    }
    auto *file = dynamic_cast<CSOURCE_FILE *>(source);
    if (file == nullptr) {
        return -2;
    }
    file->GetFileInfo(pcInfo1, pcInfo2, piInfo);
    return 0;
}

// Does nothing and returns 0, as it always has, and no facade operation reaches it. A sound
// source can't simply go: virtual sources hold it by pointer (a removal would leave them
// reading freed memory), and a project names its sources by their place in the list.
// Removing one would first have to unbind the virtual sources that play it.
int CQUENDARIK_PROCESSOR::RemoveSource(int) {
    return 0;
}

int CQUENDARIK_PROCESSOR::RemoveAllSources() {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    for (auto &source : m_listSources) {
        source->_quit();
    }
    m_listSources.clear();
    return 0;
}

int CQUENDARIK_PROCESSOR::GenerateSamples_1P(int iID, void *pData, int iLength, int iBits,
                                             int iChannels, int iSampleRate) {
    CSOURCE *source = nullptr;
    {
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        source = GetSourceFromID(iID);
    }
    if (source == nullptr) {
        return -1;
    }
    return source->_process_1P(pData, iLength, iBits, iChannels, iSampleRate);
}

int CQUENDARIK_PROCESSOR::GenerateSamples_2P(int iID, void **ppData, int iLength, int iBits,
                                             int iChannels, int iSampleRate) {
    CSOURCE *source = nullptr;
    {
        std::lock_guard<qk::CEngineLock> guard(m_csEngine);
        source = GetSourceFromID(iID);
    }
    if (source == nullptr) {
        return -1;
    }
    return source->_process_2P(ppData, iLength, iBits, iChannels, iSampleRate);
}

int CQUENDARIK_PROCESSOR::SoundSource_Set_Enable(int iID, int iEnable) {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    CSOURCE *source = GetSourceFromID(iID);
    if (source == nullptr) {
        return -1;
    }
    source->m_iEnable = iEnable;
    return 0;
}

int CQUENDARIK_PROCESSOR::SoundSource_Get_Enable(int iID, int &iEnable) {
    std::lock_guard<qk::CEngineLock> guard(m_csEngine);
    CSOURCE *source = GetSourceFromID(iID);
    if (source == nullptr) {
        return -1;
    }
    iEnable = source->m_iEnable;
    return 0;
}

int CQUENDARIK_PROCESSOR::Set_Playback_State(int iState) {
    const int old = m_iPlaybackState;
    if (iState == 7 && old == 3) {
        PostThreadMessage(kMsgPlay, 0, 0);
    }
    m_iPlaybackState = iState;
    return 0;
}

int CQUENDARIK_PROCESSOR::Get_Playback_State(int &iState) {
    iState = m_iPlaybackState;
    return 0;
}

int CQUENDARIK_PROCESSOR::Register_On_Values(unsigned long ulCallback, unsigned long ulUser) {
    m_pfnOnValues = reinterpret_cast<OnValuesFn>(ulCallback);
    m_dwOnValuesUser = ulUser;
    return 0;
}

int CQUENDARIK_PROCESSOR::SetHRTF(const std::string &strPath) {
    m_Parameters.SetHRTFRequest(strPath);
    return 0;
}

int CQUENDARIK_PROCESSOR::SetHRTFCTC(const std::string &strPath) {
    m_Parameters.SetHRTFRequestCTC(strPath);
    return 0;
}

int CQUENDARIK_PROCESSOR::GetHRTF(char *&pcBuffer) {
    if (pcBuffer != nullptr) {
        const std::string path = m_Parameters.GetHRTFRequest();
        std::memcpy(pcBuffer, path.c_str(), path.size() + 1);
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::GetHRTFCTC(char *&pcBuffer) {
    if (pcBuffer != nullptr) {
        const std::string path = m_Parameters.GetHRTFRequestCTC();
        std::memcpy(pcBuffer, path.c_str(), path.size() + 1);
    }
    return 0;
}

int CQUENDARIK_PROCESSOR::CTCSetParameters(float fDistL, float fAzL, float fElL, float fDistR,
                                           float fAzR, float fElR) {
    m_Parameters.m_fCTCDistanceL = fDistL;
    m_Parameters.m_fCTCAzimuthL = fAzL;
    m_Parameters.m_fCTCElevationL = fElL;
    m_Parameters.m_fCTCDistanceR = fDistR;
    m_Parameters.m_fCTCAzimuthR = fAzR;
    m_Parameters.m_fCTCElevationR = fElR;
    return 0;
}

int CQUENDARIK_PROCESSOR::CTCGetParameters(float &fDistL, float &fAzL, float &fElL, float &fDistR,
                                           float &fAzR, float &fElR) {
    fDistL = m_Parameters.m_fCTCDistanceL;
    fAzL = m_Parameters.m_fCTCAzimuthL;
    fElL = m_Parameters.m_fCTCElevationL;
    fDistR = m_Parameters.m_fCTCDistanceR;
    fAzR = m_Parameters.m_fCTCAzimuthR;
    fElR = m_Parameters.m_fCTCElevationR;
    return 0;
}
