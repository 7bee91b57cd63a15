// The engine: a thread with its own message queue that owns every runtime object of the
// system (the settings, the sound sources, and with them everything the block path reads).
// Its thread sleeps in the message pump until "play", then stays inside OnPlay, pumping
// messages between blocks, until "stop".
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "audio/CAudio_Playback.h"
#include "binaural/CHRTF_Converter.h"
#include "binaural/CQUENDARIC_Service_CrossTalk.h"
#include "core/CSERVICE_FILTER.h"
#include "dsp/IppBuffer.h"
#include "field/CSFM.h"
#include "platform/EngineLock.h"
#include "platform/Event.h"
#include "platform/Relaxed.h"
#include "platform/Thread.h"
#include "platform/WorkerPool.h"
#include "render/CQUENDARIC_Object_Sink.h"
#include "render/CQUENDARIC_Object_Source.h"
#include "sdk/CMoveDirectory.h"
#include "services/CLatePart.h"
#include "settings/CEngineContext.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "sources/CSINK_WAVE.h"
#include "sources/CSOURCE.h"

class CQUENDARIK_PROCESSOR : public qk::CWinThread {
  public:
    // Thread messages.
    static constexpr unsigned kMsgPlay = 2850;
    static constexpr unsigned kMsgStop = 2851;
    static constexpr unsigned kMsgProcessWinAmp = 2852;
    // How long a hosted block may take before its caller gives up, ms.
    static constexpr unsigned kWinAmpTimeout = 10000;

    using OnValuesFn = void (*)(unsigned long user, float *left, float *right, int frames, int bits,
                                int channels, int rate, float gain);

    CQUENDARIK_PROCESSOR();
    ~CQUENDARIK_PROCESSOR() override;

    bool InitInstance() override;
    int ExitInstance() override;

    // Sound sources. Ids come from CSSS::m_iObjectCounter. Unknown ids give -1.
    int AddSource_Gauss(int &iID);
    // Sources a host pushes its samples into.
    int AddSource_WinAmp(int &iID);
    int AddSource_VST(int &iID);
    int AddSource_DXi2(int &iID);
    int AddSource_WMP(int &iID);
    // A capture source on the default device; iDevice isn't passed on, and iID isn't
    // written (as it never was).
    int AddSource_SoundCard(int &iID, int iDevice);
    // The kind is fixed by the last three characters of the name: WAV, AC3 or MP3.
    int AddSource_File(int &iID, const std::string &strPath);
    int SetSource_File(int iID, const std::string &strPath);
    int SoundSource_File_GetFileInfo(int iID, char *pcInfo1, char *pcInfo2, int *piInfo);
    int RemoveSource(int iID);
    int RemoveAllSources();
    int GenerateSamples_1P(int iID, void *pData, int iLength, int iBits, int iChannels,
                           int iSampleRate);
    int GenerateSamples_2P(int iID, void **ppData, int iLength, int iBits, int iChannels,
                           int iSampleRate);
    int SoundSource_Set_Enable(int iID, int iEnable);
    int SoundSource_Get_Enable(int iID, int &iEnable);
    // The source with that id (the later one if two share it), or null. Call under the lock.
    CSOURCE *GetSourceFromID(int iID);
    // Appends a source the caller made; returns its id.
    int AddSource(std::unique_ptr<CSOURCE> pSource);

    // Virtual sources and listeners. Ids come from CQUENDARIC_Object::m_iObjectCounter;
    // unknown ids give -1 unless told otherwise. Each operation takes the engine lock. The
    // lists run in step with the world's lists of CVRSoundSource and CVRClient entries.
    //
    // A virtual source playing sound iSoundID (the later source if two share the id; none
    // leaves it silent) with channel selector iAudioLink, at x, y, z metres, with a world
    // entry of its own. Returns 0 and the new id.
    int Add3DSource_Sound(int &iID, int iSoundID, int iAudioLink, float x, float y, float z,
                          const std::string &strName);
    // The same without place or name, for callers that set them later.
    int Add3DSource_Sound(int &iID, int iSoundID, int iAudioLink);
    // Deletes the source and its world entry. -1 for an unknown id, else 0.
    int Remove3DSourceSound(int iID);
    // Deletes every virtual source; their world entries are left to the caller.
    int RemoveAll3DSources();
    // The source with that id, or null. The pointer is good while the lock is held.
    CQUENDARIC_Object_Source *Get3DSourceFromID(int iID);
    int Get3DSource_ID(int iID, int &iOut);
    int Get3DSource_Name(int iID, std::string &strName);
    // Also on the world entry.
    int Set3DSource_Enable(int iID, int iEnable);
    // The description of the object and of its draw element.
    int Set3DSource_Description(int iID, const std::string &strDescription);
    int Set3DSource_SelectedChannelPlaylist(int iID, int iAudioLink);
    // Moves the world entry and the object at the start of the next block; the angles follow
    // once a listener is known. Never waits for the engine lock; -1 for an unknown id.
    int Set3DSource_Position(int iID, float x, float y, float z);
    int Get3DSource_Position(int iID, float &x, float &y, float &z);
    // Moves the object to its world entry's position; -2 when it has no entry.
    int Update3DSource_Position(int iID);
    // Metres and whole degrees against the listener.
    int Get3DSource_Binaural_Position(int iID, float &fDistance, float &fAzimuth,
                                      float &fElevation);
    // The world entry (a CVRSoundSource); -2 when there is none.
    int GetVRSource(int iID, void *&pVRSource);
    // The binaural response of the last rebuild; the arrays stay the object's and are
    // replaced at its next rebuild.
    int Get3DSource_Binaural_IR(int iID, float *&pfLeft, float *&pfRight, int &iLength);
    // Number in a pre-computed set. 0 always; an unknown id changes nothing.
    int Get3DSource_3DSourceWavID(int iID, int &iWavID);
    int Set3DSource_3DSourceWavID(int iID, int iWavID);
    // A listener at the origin looking along +y, with a world entry; it becomes the current
    // sink that new sources are told. Returns 0 and the new id.
    int Add3DListener(int &iID);
    // Deletes the listener and its world entry (reporting "TODO: Remove3DListener"); sources
    // that pointed at it are given the current sink. -1 for an unknown id, else 0.
    int Remove3DListener(int iID);
    // Deletes every listener; their world entries are left to the caller.
    int RemoveAll3DListeners();
    // The listener with that id, or null. The pointer is good while the lock is held.
    CQUENDARIC_Object_Sink *Get3DSinkFromID(int iID);
    // The listener that renders: the first enabled one, or null. Good while the lock is held.
    CQUENDARIC_Object_Sink *GetSink();
    // Its block, or null; the argument isn't used.
    float *GetSinkData(int iID);
    // Moves the listener (metres; the look-at is a point) and its world entry at the start of
    // the next block. Never waits for the engine lock; -1 for an unknown id.
    int Set3DListener_Position_LookAt(int iID, float x, float y, float z, float lx, float ly,
                                      float lz);
    // Read from the world entry, or from the listener when it has none.
    int Get3DListener_Position_LookAt(int iID, float &x, float &y, float &z, float &lx, float &ly,
                                      float &lz);
    // Moves the listener to its world entry's points; -2 when it has no entry.
    int Update3DListener_Position(int iID);

    // Playback state: a number for the host; a change from 3 to 7 starts play.
    int Set_Playback_State(int iState);
    int Get_Playback_State(int &iState);
    int Register_On_Values(unsigned long ulCallback, unsigned long ulUser);

    // HRTF data sets: only the request is stored; the block path loads it.
    int SetHRTF(const std::string &strPath);
    int SetHRTFCTC(const std::string &strPath);
    int GetHRTF(char *&pcBuffer);
    int GetHRTFCTC(char *&pcBuffer);

    // The loudspeakers of the canceller: distance, azimuth, elevation, left then right.
    int CTCSetParameters(float fDistL, float fAzL, float fElL, float fDistR, float fAzR,
                         float fElR);
    int CTCGetParameters(float &fDistL, float &fAzL, float &fElL, float &fDistR, float &fAzR,
                         float &fElR);

    // One block of the render path: -1 when nothing was made, 0 made without a device,
    // 1 made and handed to the device.
    int _processWinAmp(int iLength, int iBits, int iChannels, int iSampleRate);
    // The stages after the mix, on the listener's planar stereo block of n frames: canceller,
    // post shelves (only with m_iPostEQ 2), limiter, output gain. Return 0.
    int PostProcess(float *pfBlock, int n, int iSampleRate, int iBits);
    // The canceller, on loudspeaker output (m_iPO 2 with 3-D audio, or m_iCTCIfNot3DAudio
    // without): designed at its first block and whenever it was told to forget its design, then
    // run on every block with the present loudspeaker fields. 0; -1 when it should run but has
    // no data set (the block goes out uncancelled).
    int CrossTalk(float *pfBlock, int n, int iSampleRate, int iBits);
    // The global late reverb pair (model 2 with "ONEREVERB"), tuned from m_GlobalLateField.
    // Initialize returns 0; Process rebuilds the pair first when its rate differs or the world
    // or a material changed, then mixes by the dry level and writes the wet level (1 - dry)
    // back to the settings. pfIn and pfOut may be the same block. Return 0.
    int Reverb_Initialize(CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right,
                          int iSampleRate);
    int Reverb_Process(CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right,
                       const float *pfIn, float *pfOut, int n, int iSampleRate);
    int Reverb_Terminate(CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right);
    // Turns m_fGain down at once so that this block peaks at 0.95 of full scale
    // (2^(bits-1); 1.0 for bits 0 or 32) when it would exceed it; never turns it up.
    int CheckAutomaticLimiter(float *pfBlock, int n, int iSampleRate, int iBits);
    int CheckForMaterialChanges(int iSampleRate);
    // Runs _processWinAmp on the engine thread and waits for it, at most kWinAmpTimeout ms;
    // 0 on time-out.
    int _processWinAmpThread(int iLength, int iBits, int iChannels, int iSampleRate);

    // Response sets for the pre-computed model. For the listener that renders and each enabled
    // virtual source, the image model's binaural response (whatever model is in force) is
    // kept as a 16-bit stereo wave file at 44100 Hz in m_strDirPreComputedWav, named by
    // PreComputedName; each file is written under a temporary name and renamed. A file that
    // can't be written is skipped without a word. Holds the engine lock throughout. 0; -1
    // with no HRTF data set; -2 with no listener.
    int SFM_PreComputeWav();
    // The file name of a response (no folder): listener id, its position and look-at, source
    // id, its position and look-at, '_' between them, coordinates in centimetres rounded to
    // whole numbers, then ".wav".
    static std::string PreComputedName(int iListenerID, C3Point listenerPos, C3Point listenerLookAt,
                                       int iSourceID, C3Point sourcePos, C3Point sourceLookAt);
    // Writes a planar block (frames per channel, channel k from element k * iFrames) as a PCM
    // wave file. The block is first scaled by 2^(bits - 1) in place: the caller's floats
    // change. 0; -1 for more than 2 channels (the block untouched) or a format that can't be
    // (no channel, frames below 0, bits outside 1..32); -2 the file can't be made; -3 its
    // data can't be started (the file is removed); -4 writing fails.
    static int SaveAsWave(const std::string &strName, float *pfBlock, int iFrames, int iChannels,
                          int iBits, int iRate);
    // Planar floats to interleaved PCM bytes, truncated toward zero, low byte first, no
    // clipping (values out of range wrap) and no offset for 8 bits. pbOut, when null, is given
    // channels x bits x frames / 8 zeroed bytes (new[]; the caller's). Only 8 or 16 bits in 1
    // or 2 channels write anything.
    static void ConvertFloatToBytesForWav(unsigned char *&pbOut, const float *pfBlock, int iFrames,
                                          int iChannels, int iBits, int iRate);
    // The model a response set is made with: a private image model on the settings' world.
    std::unique_ptr<CSFM> MakePrivateModel();

    // Project files: the settings, the sound sources, the listeners (none: they aren't
    // kept), the virtual sources and an end mark 1.0, in that order, each object written
    // behind a tag of its kind. Storing and loading take the engine lock. Loading reads the
    // whole project before it changes anything; an archive that ends early or holds what
    // can't be a project throws CArchiveException and leaves the engine as it was.
    void Serialize(qk::CArchive &ar);
    void Serialize_Sources(qk::CArchive &ar);
    void Serialize_3DSinks(qk::CArchive &ar);
    void Serialize_3DSources(qk::CArchive &ar);
    // A project read whole and not yet in force.
    struct SProject {
        std::shared_ptr<CQUENDARIC_PARAMETERS::Stored> settings;
        std::vector<std::unique_ptr<CSOURCE>> sources;
        std::vector<std::unique_ptr<CQUENDARIC_Object_Source>> objects;
    };
    // Reads the sections and the end mark; throws as the archive does, changing nothing.
    SProject ReadProject(qk::CArchive &ar);
    // Puts a project in force: the settings, the new lists in place of the old ones (and of
    // the world's source entries), each virtual source bound to its sound by id (the later of
    // two with one id), told the settings and the current listener; then the data set of the
    // settings is requested. Listeners stay as they were. Never throws.
    void CommitProject(SProject &project);

    // True once the engine thread has left its message loop for good.
    bool HasExited() const { return m_iExited != 0; }
    // How file sources at another rate than the engine's are converted: 0 the source base's
    // integer zero-stuffing (the default), 1 band-limited. Applies to every file source, those
    // there now and those added later.
    int SetFileResampling(int iQuality);
    int GetFileResampling() const { return m_iFileResampling; }
    // How the end of a file is heard: 0 as the sources always have (an ended AC-3 stream
    // keeps old samples in its blocks, a wave file's wrap keeps old samples behind the fresh
    // ones), 1 exact (silence after an AC-3 stream, a wave file going on from its start
    // without a gap). Applies to every file source, those there now and those added later.
    int SetFileEnd(int iMode);
    int GetFileEnd() const { return m_iFileEnd; }
    // Blocks made by the play loop since the last play started.
    int GetBlockCount() const { return m_iBlocks; }

    qk::CEngineLock m_csEngine;  // the one lock of the system; re-entrant
    qk::Relaxed<int> m_iPlaybackState = 7;
    qk::Relaxed<unsigned long> m_dwOnValuesUser = 0;
    qk::Relaxed<OnValuesFn> m_pfnOnValues = nullptr;
    CIppBuffer m_pfScratch;  // the limiter's scratch block, 2 x m_iScratchLength
    qk::CEvent m_evtStarted;
    qk::CEvent m_evtExited;
    qk::CEvent m_evtStopped;
    CQUENDARIC_PARAMETERS m_Parameters;
    // The world, the material session, the room models and the HRTF sets in force.
    CEngineContext m_Context{m_Parameters};
    std::vector<std::unique_ptr<CSOURCE>> m_listSources;  // owned
    // The listener added last, told to new sources; not owned. Lists change under the lock.
    CQUENDARIC_Object_Sink *m_pCurrentSink = nullptr;
    std::vector<std::unique_ptr<CQUENDARIC_Object_Source>> m_list3DSources;  // owned
    std::vector<std::unique_ptr<CQUENDARIC_Object_Sink>> m_list3DSinks;      // owned
    qk::Relaxed<int> m_iPaused = 0;
    qk::Relaxed<int> m_iStopRequested = 0;
    int m_iScratchLength = 32768;
    qk::Relaxed<int> m_iTestHRTF = 0;  // a conversion of the requested set is wanted
    CAudio_Playback m_Playback;
    CSINK_WAVE m_SinkWave;  // the recording sink
    CSERVICE_FILTER m_FilterLowL;
    CSERVICE_FILTER m_FilterHighL;
    CSERVICE_FILTER m_FilterLowR;
    CSERVICE_FILTER m_FilterHighR;
    CHRTF_Converter m_HRTFConverter;
    CQUENDARIC_Service_CrossTalk m_CrossTalk;  // m_iInitialized 0: design at the next block
    CQUENDARIC_Service_Reverb m_ReverbL;       // the global late pair
    CQUENDARIC_Service_Reverb m_ReverbR;
    // What the shared room model tells the global late part: its reverberation time, the
    // delays of its first six images and the length of its early part. Zero until a model
    // fills it in; without a reverberation time the pair stays empty and adds nothing.
    SLateField m_GlobalLateField;
    CIppBuffer m_pfLateScratch;  // the global late part's wet block

    // The last result of a block run through the message, for hosts that read it.
    static qk::Relaxed<int> s_iWinAmpResult;

  protected:
    void OnThreadMessage(const qk::ThreadMessage &msg) override;

  private:
    struct WinAmpCall;
    // The call _processWinAmpThread reuses from block to block, and whether a host thread is
    // using it.
    std::shared_ptr<WinAmpCall> m_pWinAmpCall;
    std::atomic<bool> m_bWinAmpCallBusy{false};

    // Makes the move directory anew from the lists; under the lock, after every change.
    void RefreshMoves();
    // Applies the moves hosts have left since the last block; under the lock. The block path
    // takes the listeners' first, and each virtual source's where it renders that source.
    void TakeMoves();
    void TakeListenerMoves();
    // The sections of a project, read into new lists.
    static std::vector<std::unique_ptr<CSOURCE>> ReadSources(qk::CArchive &ar);
    static std::vector<std::unique_ptr<CQUENDARIC_Object_Source>> Read3DSources(qk::CArchive &ar);
    void StoreSources(qk::CArchive &ar);
    void Store3DSources(qk::CArchive &ar);
    // Puts read sources in place of the old ones; BindSounds then points every virtual
    // source at its sound again.
    void InstallSources(std::vector<std::unique_ptr<CSOURCE>> &sources);
    void BindSounds();

    // Steps of one block under the lock; the block to hand to the device, or null when none
    // was made.
    float *RenderBlock(int n, int iBits, int b, int iChannels, int iSampleRate);
    void FollowHRTFRequests();
    // Clears the listener's block and lets each enabled virtual source add itself to it.
    float *RenderObjects(CQUENDARIC_Object_Sink &listener, int n, int iSampleRate);
    // The sources of a block shared out among the worker threads: groups of sources render
    // into their own spectrum sums (any thread), which are added into the listener's in group
    // order as they come in; then each source finishes in list order (this thread). The sums
    // are thus formed in the same order whatever the thread count, and so is the output.
    void RenderObjectsInPhases(CQUENDARIC_Object_Sink &listener, int n, int iRate,
                               bool bFrequencyMix);
    // Ends the block of each object of m_blockObjects in list order, on the engine thread.
    void FinishObjects(int n, int iRate);
    // The worker pool for the thread count in force; made again when the count changes.
    qk::CWorkerPool &Workers();
    // Ends the one-block change pulses.
    void FinishBlock(CQUENDARIC_Object_Sink &listener);

    void OnPlay(uintptr_t wParam, intptr_t lParam);
    // One block of play: every sound source's block, then the block itself. True when the
    // block reached no device, so that the loop keeps time by the clock.
    bool PlayOneBlock(int iBlockLength, int iBits, int iChannels, int iSampleRate);
    void OnStop(uintptr_t wParam, intptr_t lParam);
    void OnProcessWinAmp(uintptr_t wParam, intptr_t lParam);

    CMoveDirectory m_Moves;  // where hosts leave moves without the engine lock
    std::unique_ptr<qk::CWorkerPool> m_pWorkers;
    // The enabled sources of the block being rendered in phases; keeps its capacity.
    std::vector<CQUENDARIC_Object_Source *> m_blockObjects;
    // When the block path next looks for a canceller's set that failed to load.
    std::chrono::steady_clock::time_point m_nextCTCLook{};
    // The spectrum sums of the groups of sources a block is summed by; kept across blocks.
    std::vector<std::unique_ptr<CFrequencyMix>> m_groupMixes;
    const int m_iDefaultThreads = qk::CWorkerPool::DefaultThreads();
    qk::Relaxed<int> m_iFileResampling = 0;
    qk::Relaxed<int> m_iFileEnd = 0;
    qk::Relaxed<int> m_iExited = 0;
    qk::Relaxed<int> m_iBlocks = 0;
    bool m_bInPlay = false;  // engine thread only
};
