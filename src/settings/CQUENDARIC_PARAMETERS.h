// The one settings object: embedded in the engine, read by every rendering object through a
// pointer and written by the facade. It says what is wanted; what is in force (the world, the
// HRTF sets, the room models) is the engine context's (CEngineContext). Scalar settings are written
// by host threads and read by the engine thread once a block, so they are relaxed atomic words.
// Strings that cross threads are read and written through the accessors, under m_csStrings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Object.h"
#include "platform/Relaxed.h"

namespace qk {
class CArchive;
}

class CQUENDARIC_PARAMETERS : public qk::CObject {
    QK_DECLARE_SERIAL(CQUENDARIC_PARAMETERS)

  public:
    CQUENDARIC_PARAMETERS();
    // Stores the settings file first, so that the settings are kept whatever the host did.
    ~CQUENDARIC_PARAMETERS() override;
    CQUENDARIC_PARAMETERS(const CQUENDARIC_PARAMETERS &) = delete;
    CQUENDARIC_PARAMETERS &operator=(const CQUENDARIC_PARAMETERS &) = delete;

    // The persistent settings: a version float (1.0, ignored on loading), then the fields
    // marked "stored" below in their order, ints and floats in 32 bits, strings counted.
    // Storing keeps the names of the HRTF sets last asked for and leaves a request that is
    // still waiting as it is. Loading reads everything before it changes anything: an
    // archive that ends early throws and leaves the settings as they were.
    void Serialize(qk::CArchive &ar) override;

    // The .qksettings file of the application. _read leaves everything as it was when the
    // file is missing, unreadable, truncated or not a settings file. _write replaces the file
    // through a temporary one, so a failed write keeps the old file; it never reports.
    void _read();
    void _write();
    // Where both go: the settings folder, then the application's name cut to its first four
    // characters (names of fewer are used whole), or "default" when it is empty.
    std::string SettingsPath();
    // Loads settings from the bytes of a settings file. False, and nothing changed, when the
    // bytes are not exactly one settings archive.
    bool LoadSettings(const void *pData, size_t size);
    // The bytes of a settings file for what is in force now.
    std::vector<uint8_t> StoreSettings();
    // The stored form read from an archive without changing anything (a project is read whole
    // before any of it is put in force); ApplyStored puts it in force. Throws as the archive
    // does.
    struct Stored;
    static std::shared_ptr<Stored> ReadStored(qk::CArchive &ar);
    void ApplyStored(const Stored &v) { Apply(v); }

    // Second-order Butterworth coefficients b0, b1, b2, a0, a1, a2 for a corner in Hz at
    // m_iSampleRate, not divided by a0. pfCoefs is freed with ippsFree when set and replaced
    // by 6 floats from ippsMalloc_32f.
    void GetLPCoefs(float *&pfCoefs, float fCorner) const;
    void GetHPCoefs(float *&pfCoefs, float fCorner) const;

    // Hooks run after a project is loaded; 0.
    int OnLoading();
    int OnLoading_QKHRTF() { return 0; }
    int OnLoading_WORLD() { return 0; }

    // True while a request differs from the path in force, so that the block path knows a
    // set is to be loaded.
    bool HRTFRequestPending() const;
    bool HRTFRequestPendingCTC() const;

    // Paths of the HRTF data sets the host asked for; the block path loads them.
    void SetHRTFRequest(const std::string &strPath);
    std::string GetHRTFRequest() const;
    void SetHRTFRequestCTC(const std::string &strPath);
    std::string GetHRTFRequestCTC() const;

    // Stored: every field from here to m_strHRTF_CTC, in this order, then the four research
    // flags at the end.
    qk::Relaxed<int> m_iChannelMode = 2;  // 2: m_iAudioLink selects, 1: m_iChannelSelect
    qk::Relaxed<int> m_i3DAudio = 1;      // 1 spatial rendering, 0 straight routing
    qk::Relaxed<int> m_iSFM = 0;          // sound field model, 0..4
    qk::Relaxed<int> m_iReflections = 0;
    qk::Relaxed<int> m_iSpecularOrder = 1;
    qk::Relaxed<float> m_fTemperature = 25.0f;  // degrees Celsius
    qk::Relaxed<int> m_iSettingA = 0;
    qk::Relaxed<int> m_iMaterialCoeffs = 32;
    qk::Relaxed<float> m_fReverbDryLevel = 0.9f;
    qk::Relaxed<float> m_fReverbWetLevel = 0.1f;
    std::string m_strDirPreComputedWav;
    qk::Relaxed<int> m_iCTCIfNot3DAudio = 0;
    qk::Relaxed<float> m_fTES = 6.0f;
    qk::Relaxed<float> m_fCTCAzimuthL = 20.0f;  // degrees
    qk::Relaxed<float> m_fCTCElevationL = 0.0f;
    qk::Relaxed<float> m_fCTCDistanceL = 1.0f;  // metres
    qk::Relaxed<float> m_fCTCAzimuthR;          // 360 - left, set by the constructor
    qk::Relaxed<float> m_fCTCElevationR = 0.0f;
    qk::Relaxed<float> m_fCTCDistanceR = 1.0f;
    qk::Relaxed<int> m_iCTCFilterMode = 1024;
    qk::Relaxed<int> m_iPostEQ = 0;  // 2 switches the shelves on
    qk::Relaxed<int> m_iPO = 2;      // 1 headphones, 2 loudspeakers
    qk::Relaxed<float> m_fGain = 0.0f;
    qk::Relaxed<float> m_fGain_LSF = 0.0f;
    qk::Relaxed<float> m_fGain_HSF = 0.0f;
    qk::Relaxed<float> m_fFrequency_LSF = 100.0f;   // Hz
    qk::Relaxed<float> m_fFrequency_HSF = 5000.0f;  // Hz
    qk::Relaxed<float> m_fSettingB = 0.2f;
    qk::Relaxed<int> m_iSaveWave = 0;
    std::string m_strSaveWave = "E:\\temp.wav";
    qk::Relaxed<int> m_iAGC = 1;
    qk::Relaxed<int> m_iBlockLength = 8192;  // frames; read when play starts
    qk::Relaxed<int> m_iSampleRate = 44100;
    qk::Relaxed<int> m_iBits = 16;
    qk::Relaxed<int> m_iChannels = 2;
    qk::Relaxed<int> m_iSplitBands = 0;
    qk::Relaxed<int> m_iHeadMotion = 0;
    qk::Relaxed<int> m_iWorldModel = 2;
    std::string m_strWorldFile;
    qk::Relaxed<int> m_iAudioSink = -1;  // device number; -1 default, -2 none
    std::string m_strHRTF;               // data set in use
    std::string m_strHRTF_CTC;           // data set of the canceller

    qk::Relaxed<int> m_iSharedSFM = 1;
    // Where each rebuilt response is drawn as an SVG while "GRAPH_BIR" is set; empty: the
    // working folder. Under m_csStrings.
    std::string m_strGraphFolder;
    std::string m_strHRTFRequest;
    std::string m_strHRTFRequest_CTC;
    qk::Relaxed<int> m_iWorldChanged = 1;  // one-block change flags
    qk::Relaxed<int> m_iMaterialChanged = 0;
    qk::Relaxed<int> m_iHoldIRs = 0;
    // How virtual sources convolve: 0 the whole-filter method (the default), 1 the uniformly
    // partitioned one. Not in the stored form; a change takes effect at the next block, with
    // a silent history.
    qk::Relaxed<int> m_iConvolution = 0;
    // Threads that render the sources of a block, the engine's own counted; 0: QK_THREADS, or
    // the machine's cores. Not in the stored form. The output is the same whatever the count.
    qk::Relaxed<int> m_iThreads = 0;
    std::string m_strApplication;
    qk::Relaxed<int> m_iHRTFChanged = 0;

    qk::Relaxed<int> m_iORMS = 0;  // research flags
    qk::Relaxed<int> m_iGraphBIR = 0;
    qk::Relaxed<int> m_iInfo = 0;
    qk::Relaxed<int> m_iOneReverb = 1;

    // Guards the strings above that a host thread writes while the engine reads them.
    mutable std::recursive_mutex m_csStrings;

  private:
    static void SerializeStored(qk::CArchive &ar, Stored &v);
    Stored Capture();
    void Apply(const Stored &v);
};
