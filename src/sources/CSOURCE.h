// The base of the sound sources: block production with one or two data pointers, stepping,
// named variables, the integer rate change and the optional split into two bands.
#pragma once

#include "core/CSSS.h"

struct IppsIIRState_32f;

class CSOURCE : public CSSS {
    QK_DECLARE_SERIAL(CSOURCE)

  public:
    CSOURCE() = default;
    ~CSOURCE() override;

    void Serialize(qk::CArchive &ar) override;

    // Fills m_pfData with one planar block of iLength frames and sets m_iSource_Channels.
    // pData carries the samples of host-fed sources and is null otherwise. iBits and
    // iChannels are the engine's output format, iSampleRate its rate. Returns the frames in
    // m_pfData, 0 for a disabled file source, -1 on failure. The base does nothing.
    virtual int _process_1P(void *pData, int iLength, int iBits, int iChannels, int iSampleRate);
    // The same with one data pointer a channel.
    virtual int _process_2P(void **ppData, int iLength, int iBits, int iChannels, int iSampleRate);
    virtual void SetParametersWithDlg() {}
    virtual void OnLButtonDblClk() {}
    // Moves a file source by iFrames; 1 when done. (The spelling is the interface's.)
    virtual int StepFordward(int iFrames);
    virtual int StepBackwards(int iFrames);
    virtual int SetSourceVariable(const std::string &strKey, const std::string &strValue);
    virtual int GetSourceVariable(const std::string &strKey, std::string &strValue);

    // "Offset", "Magnitude" and "Enable" are set here (result 1); other keys go to
    // SetSourceVariable. GetVariable always forwards: those three keys can be set and not read.
    int SetVariable(const std::string &strKey, const std::string &strValue);
    int GetVariable(const std::string &strKey, std::string &strValue);

    // Integer zero-stuffing of the first channel: factor = trunc(iInLength / iOutLength as
    // given), iOutLength becomes iInLength * factor. A factor of 0 writes nothing.
    void Resample(float *pIn, int iInLength, float *pOut, int &iOutLength);

    // The two-band split of host-fed sources: low pass at fLow and high pass at fHigh into
    // m_pfBreakLow and m_pfBreakHigh. The filters are made at the first call and kept.
    void InitializeBreak(float fLow, float fHigh, int iSampleRate, int iChannels);
    void ProcessBreak(int iLength, int iSampleRate, int iChannels, float fLow, float fHigh);
    void TerminateBreak();

    int m_iResamplePhase = 0;
    int m_iSource_Channels = 0;  // channels in m_pfData; the sound object refuses 0
    int m_iSource_SampleRate = 0;
    int m_iSource_Bits = 0;
    int m_iSource_Length = 0;  // frames of the material
    int m_iOffset = 0;         // frames skipped at the start ("Offset")
    float m_fMagnitude = 10000.0f;
    float m_fGain_dB = 0.0f;
    int m_iLoop = 0;
    int m_iBreak = 0;  // exactly 1: host-fed sources split bands after each block
    CIppBuffer m_pfBreakLow;
    CIppBuffer m_pfBreakHigh;
    int m_iBreakReady = 0;
    IppsIIRState_32f *m_pIIRLow0 = nullptr;
    IppsIIRState_32f *m_pIIRHigh0 = nullptr;
    IppsIIRState_32f *m_pIIRLow1 = nullptr;
    IppsIIRState_32f *m_pIIRHigh1 = nullptr;
};
