// The root of everything that makes, changes or swallows a stream of samples: sound sources,
// the wave sink and the services. It owns the sample buffer m_pfData and carries the object
// id shared by all of them.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "dsp/IppBuffer.h"
#include "platform/Archive.h"
#include "platform/Object.h"
#include "platform/Relaxed.h"

class CSSS : public qk::CObject {
    QK_DECLARE_SERIAL(CSSS)

  public:
    CSSS();
    ~CSSS() override;
    CSSS(const CSSS &) = delete;
    CSSS &operator=(const CSSS &) = delete;

    void Serialize(qk::CArchive &ar) override;

    // Life cycle, in the order of the virtual slots. The base versions do nothing and return 0
    // (CheckFileName: 1).
    virtual int _init(int iBlockLength, int iSampleRate);
    virtual int _process(float *pfData, int iLength, int iChannels);
    virtual int _process(int iLength, int iChannels, int &iResult);
    virtual int _quit();
    virtual int CheckFileName(const std::string &strFileName);

    // Grows m_pfData to iLength floats, keeping what it held at the start and zeroing the rest.
    // A smaller or equal length changes nothing: the buffer never shrinks. Returns 0.
    int _adjustDataBuffer(int iLength);

    // Replaces m_pcFileName by a NUL-terminated copy of the text.
    void MakeStr(const std::string &str);

    // Second-order Butterworth coefficients b0, b1, b2, a0, a1, a2 (not divided by a0) for the
    // corner fCorner in Hz at iSampleRate. pfCoefs is freed (ippsFree) if set and replaced by a
    // new array of six floats from ippsMalloc_32f, which the caller frees.
    static void GetLPCoefs(float *&pfCoefs, float fCorner, int iSampleRate);
    static void GetHPCoefs(float *&pfCoefs, float fCorner, int iSampleRate);

    // Ids of sound sources, sinks and services: the constructor pre-increments the counter,
    // so the first object has id 1. Objects are made on any thread (services by the engine's
    // workers too).
    static std::atomic<int> m_iObjectCounter;

    int m_iBufferLength = 32768;           // frames a channel in every fixed source buffer
    std::unique_ptr<char[]> m_pcFileName;  // file name for the platform's file calls
    qk::Relaxed<int> m_iEnable = 1;        // a disabled file source produces nothing
    int m_iInitialized = 0;                // _init has run
    int m_iStarted = 0;                    // _init ended well; until then silence
    int m_iFailed = 0;                     // the sink could not open its file
    std::string m_strName;
    std::string m_strFile;              // file name in use
    const void *m_pFileData = nullptr;  // optional in-memory file bytes; not owned
    CIppBuffer m_pfData;                // planar sample block
    int m_iDataLength = 0;              // floats allocated, kept by _adjustDataBuffer only
    int m_iID;
};
