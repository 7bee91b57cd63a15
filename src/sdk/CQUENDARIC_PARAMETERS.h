// The one settings object: embedded in the engine, read by every rendering object through a
// pointer and written by the facade. Scalar settings are written by host threads and read by
// the engine thread once a block, so they are relaxed atomic words. Strings that cross threads
// are read and written through the accessors, under m_csStrings.
#pragma once

#include <mutex>
#include <string>

#include "platform/Object.h"
#include "platform/Relaxed.h"

class CQUENDARIC_PARAMETERS : public qk::CObject {
    QK_DECLARE_SERIAL(CQUENDARIC_PARAMETERS)

  public:
    CQUENDARIC_PARAMETERS();
    ~CQUENDARIC_PARAMETERS() override;

    // The .qksettings file of the application: loading leaves everything as it was when the
    // file is missing or unreadable; storing never reports.
    void _read();
    void _write();

    // Paths of the HRTF data sets the host asked for; the block path loads them.
    void SetHRTFRequest(const std::string &strPath);
    std::string GetHRTFRequest() const;
    void SetHRTFRequestCTC(const std::string &strPath);
    std::string GetHRTFRequestCTC() const;

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
    std::string m_strHRTF;
    std::string m_strHRTF_CTC;

    qk::Relaxed<int> m_iSharedSFM = 1;
    std::string m_strHRTFRequest;
    std::string m_strHRTFRequest_CTC;
    qk::Relaxed<int> m_iWorldChanged = 1;  // one-block change flags
    qk::Relaxed<int> m_iMaterialChanged = 0;
    qk::Relaxed<int> m_iHoldIRs = 0;
    std::string m_strApplication;
    qk::Relaxed<int> m_iHRTFChanged = 0;

    qk::Relaxed<int> m_iORMS = 0;  // research flags
    qk::Relaxed<int> m_iGraphBIR = 0;
    qk::Relaxed<int> m_iInfo = 0;
    qk::Relaxed<int> m_iOneReverb = 1;

    // Guards the strings above that a host thread writes while the engine reads them.
    mutable std::recursive_mutex m_csStrings;
};
