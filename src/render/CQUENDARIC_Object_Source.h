// A virtual source: a sound emitter in the room. It knows where it stands relative to the
// listener (distance, azimuth and elevation, recomputed on every move) and holds the impulse
// responses from it to the listener's ears, with the HRTF convolver loaded with one of them.
//
// Angles are whole degrees, truncated towards zero: azimuth 0..359 anticlockwise seen from
// above (0 ahead, 90 left, 270 right), elevation -90..90 (positive upwards).
#pragma once

#include <string>

#include "binaural/CService_HRTF.h"
#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"
#include "render/CQUENDARIC_Object.h"
#include "render/CQUENDARIC_Object_Sink.h"

class CSOURCE;
class CVRSoundSource;

class CQUENDARIC_Object_Source : public CQUENDARIC_Object {
    QK_DECLARE_SERIAL(CQUENDARIC_Object_Source)

  public:
    CQUENDARIC_Object_Source() = default;
    ~CQUENDARIC_Object_Source() override;

    using CQUENDARIC_Object::Move;

    // The base, then version 1.0, the sound's id, both channel names, channel select, audio
    // link and the two flags.
    void Serialize(qk::CArchive &ar) override;
    // The channel name of the settings' channel mode (1: the first, else the second) and the
    // draw element, if any; the object's own description stays.
    void SetDescription(const std::string &strDescription) override;

    // Positions. Without a listener nothing changes. Each recomputes distance and angles
    // against the listener; none marks the object moved, since the block path compares the
    // angles with the ones the convolver was last given.
    void Move(C3Point position) override;
    // Sets the y coordinate alone, leaving the spherical fields of the position as they were.
    void Move(float fY) override;
    void LookAt(C3Point lookAt) override;
    // Stores both, without comparing with what was stored.
    void Move_LookAt(C3Point position, C3Point lookAt) override;
    // Applies the move a host left in m_PoseRequest, its world entry first (the object follows
    // that entry when it renders); false when there was none. Under the engine lock, or on a
    // worker of the block that renders this object.
    bool TakeMove();

    // Angles between a listener at S looking at L and a source at P (whose look-at Q doesn't
    // count): azimuth 0..359 and elevation in whole degrees, distance |P - S| in metres.
    static float GetAzimuth(C3Point S, C3Point L, C3Point P, C3Point Q);
    static float GetElevation(C3Point S, C3Point L, C3Point P, C3Point Q);
    static float GetDistance(C3Point a, C3Point b);
    // The compass number of b seen from a, and the elevation of b seen from a.
    static int _GetAzimuth(C3Point a, C3Point b);
    static int _GetElevation(C3Point a, C3Point b);

    void PlotMonoIR(int) {}
    void PlotBinauralIR(int) {}
    void ClearMonaural();
    void ClearBinaural();
    // Gives the convolver the settings' data set, its file name and the truncated angles.
    void InitializeHRTFVariables();
    // Asks the convolver for the response of the present direction (it cross-fades into it at
    // its next block); a copy of that response becomes the binaural response handed to hosts.
    // Nothing without a listener. The copy is made by SettleBIR, when something reads the
    // binaural response, rather than at each move.
    void ReInitializeHRTF(int iRate);
    // Makes the binaural response the copy of the direction's response that the last
    // ReInitializeHRTF asked for, if it isn't yet. Before m_pfBIRLeft, m_pfBIRRight and
    // m_iBIRLength are read, and before the convolver lets its responses go.
    void SettleBIR();
    // A block in phases, so that the engine's workers can share the work of its sources:
    // PrepareBlock renders the object's part of a block without touching the listener (on any
    // thread, one object per thread at a time); FinishBlock, on the engine thread in list
    // order, ends the block and adds a time-domain part to the listener. An object whose
    // RendersInPhases is false is rendered whole by _process in the finishing phase.
    virtual bool RendersInPhases() const { return false; }
    virtual int PrepareBlock(int n, int iRate) { return 0; }
    // PrepareBlock for a source whose spectra go into the sums given (its group's, added to
    // the listener's in group order).
    virtual int PrepareBlockInto(int n, int iRate, CFrequencyMix &sums) {
        return PrepareBlock(n, iRate);
    }
    virtual void FinishBlock(int n) {}

    // The room model's echogram and binaural response for this source against the listener,
    // and the response of a pre-computed set. Each first records the truncated angles as the
    // ones the convolver was given; nothing more without a listener.
    virtual void ReInitializeMonauralImpulseResponse();
    virtual void ReInitializeBinauralImpulseResponse();
    virtual int ReInitializeBIR_PCIRS();
    // The 1/r law beyond one metre on the 2n planar floats of pfBlock; unity within it.
    void AdjustLevelForDistance(float *pfBlock, int n);
    // The factor that law gives for m_fDistance: 10^(dB / 20) with dB = -20 log10(distance)
    // beyond one metre, else exactly 1.
    float LevelForDistance() const;
    // A complete rebuild for a caller outside the block path.
    void CalculateIRs(int iKeepReflections, int iRate);

    CVRSoundSource *m_pVRSource = nullptr;      // the world's entry; owned by the world
    CQUENDARIC_Object_Sink *m_pSink = nullptr;  // the listener; written by the engine
    CSOURCE *m_pSSS_Source = nullptr;           // the sound rendered; not owned
    int m_iSSS_SourceID = 0;                    // its id, kept for archives
    CService_HRTF m_HRTF;                       // the object's convolver
    int m_iConvolutionInUse = 0;  // the settings' convolution method at the last Initialize
    int m_i3DSourceWavID = -1;    // number in a pre-computed set
    float *m_pfMonoIR = nullptr;  // monaural response; owned, ippsMalloc_32f
    int m_iMonoIRLength = 0;
    float *m_pfBIRLeft = nullptr;  // binaural response; owned, ippsMalloc_32f
    float *m_pfBIRRight = nullptr;
    int m_iBIRLength = 0;
    bool m_bBIRPending = false;     // the binaural response is still to be copied (SettleBIR)
    std::string m_strChannelName1;  // descriptions by channel mode
    std::string m_strChannelName2;
    int m_iChannelSelect = 0;  // channel selector of channel mode 1
    int m_iAudioLink = 0;      // channel selector of channel mode 2
    int m_iSourceFlag1 = 1;
    int m_iSourceFlag2 = 1;
    int m_iPO = 0;            // the playback output setting, taken at Initialize
    CIppBuffer m_pfScratch1;  // block-long scratch, made by Initialize
    CIppBuffer m_pfScratch2;
    CIppBuffer m_pfScratch3;
    int m_iFilterOrder = 2;
    IppsIIRState_32f *m_pIIRLow = nullptr;  // owned; made by Initialize
    IppsIIRState_32f *m_pIIRHigh = nullptr;
    float m_fMonoPeak = 0.0f;
    float m_fBIRPeakL = 0.0f;
    float m_fBIRPeakR = 0.0f;
    int m_iBlock = 0;  // format in use: frames, Hz, bits
    int m_iRate = 0;
    int m_iBits = 0;

  protected:
    // The model in force: the settings' room model unless one was given.
    CSFM *RoomModel();
    // The HRTF set in force, or null.
    CHELPER_HRTF *HRTFSet() const;
    // Distance and angles against the listener, from the stored points.
    void Recalculate();
    // The two angles truncated, as the convolver is given them.
    int TruncatedAzimuth() const;
    int TruncatedElevation() const;
    void FreeFilters();
};
