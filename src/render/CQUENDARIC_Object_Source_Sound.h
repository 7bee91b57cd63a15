// The virtual source that renders: once a block it takes a mono signal out of its sound
// source, rebuilds its response when the direction, the listener, the world or the data set
// changed, convolves, and adds the result to the listener's block.
//
// The engine calls it on its own thread inside its lock, once per block and enabled object,
// after writing m_pSink (the rendering listener) and m_iRecalculate:
//     object->m_pSink = listener; object->m_iRecalculate = recalculate;
//     object->_process(n, rate);
// The listener's block must hold 2n cleared floats before the first object of the block.
#pragma once

#include <string>

#include "field/SoundFieldModel.h"
#include "render/CQUENDARIC_Object_Source.h"
#include "services/CLatePart.h"

class CQUENDARIC_Object_Source_Sound : public CQUENDARIC_Object_Source {
    QK_DECLARE_SERIAL(CQUENDARIC_Object_Source_Sound)

  public:
    // For archives: no settings, no draw element.
    CQUENDARIC_Object_Source_Sound();
    // A source at a place (metres) with a name. Angles stay 0 until a listener is known.
    // Without resources it has no HRTF set and no room model until it is given them.
    CQUENDARIC_Object_Source_Sound(CQUENDARIC_PARAMETERS *pParameters, C3Point position,
                                   const std::string &strName);
    // The same with the engine context's set and models, as the engine makes its sources.
    CQUENDARIC_Object_Source_Sound(CQUENDARIC_PARAMETERS *pParameters, CRenderResources *pResources,
                                   C3Point position, const std::string &strName);
    ~CQUENDARIC_Object_Source_Sound() override;

    // The base, then version 1.0.
    void Serialize(qk::CArchive &ar) override;

    // Prepares the block format: frames, Hz, bits. The convolver takes the response of the
    // present direction; scratch and mono blocks of iBlock floats are made.
    void Initialize(int iBlock, int iRate, int iBits) override;
    // Renders one block of n frames (1..m_iBufferLength) at iRate Hz into m_pfData and adds
    // it to the listener's block. -1, silently, without a listener, a sound, its samples or
    // settings, or for a block length or rate it can't render; 0 otherwise.
    int _process(int n, int iRate) override;
    // _process in phases, for the engine's workers (see the base).
    bool RendersInPhases() const override { return true; }
    int PrepareBlock(int n, int iRate) override;
    int PrepareBlockInto(int n, int iRate, CFrequencyMix &sums) override;
    void FinishBlock(int n) override;
    // Ends the format; nothing when not initialised.
    void Terminate() override;
    virtual int ResetInternalBuffers() { return 0; }

    // The late part of models 2 and 3 (without "ONEREVERB"): a reverb for each ear, tuned
    // from the room's reverberation time and the delays of this source's first six images.
    // Initialize_LatePart returns the time, s; GetSamples_LatePart renders the early
    // binaural block and mixes each ear's reverb into it by the dry level (with right null:
    // one channel through the left reverb, mixed alike).
    float Initialize_LatePart(int iBlock, int iRate, CQUENDARIC_Service_Reverb *pLeft,
                              CQUENDARIC_Service_Reverb *pRight);
    void GetSamples_LatePart(float *pfIn, float *pfOut, int n, CQUENDARIC_Service_Reverb *pLeft,
                             CQUENDARIC_Service_Reverb *pRight, int iRate);
    void Terminate_LatePart(CQUENDARIC_Service_Reverb *pLeft, CQUENDARIC_Service_Reverb *pRight);

    CIppBuffer m_pfMono;                  // the block's mono signal
    CQUENDARIC_Service_Reverb m_ReverbL;  // the late part
    CQUENDARIC_Service_Reverb m_ReverbR;
    CIppBuffer m_pfLateScratch;      // the reverbs' output, 2n floats
    int m_iMotionCounter = 0;        // blocks since the head-motion wobble started
    float m_fMotionBase = 0.0f;      // azimuth the wobble swings around
    float m_fMotionAzimuth = -1.0f;  // last wobbled azimuth
    int m_iGraphCount = 0;           // graphs drawn, numbering the files
    bool m_bGraphFailed = false;     // a graph file couldn't be written; told once
    // This block went into the listener's spectrum sums, not into m_pfData.
    bool m_bMixedInSpectrum = false;
    bool m_bPrepared = false;               // the block was rendered and waits to be finished
    CFrequencyMix *m_pMixTarget = nullptr;  // sums the block goes into instead of the listener's
    // The block's mono signal: m_pfMono, or a sound's channel taken as it is.
    float *m_pfBlockMono = nullptr;
    // Copies that aren't made unless a later block reads them. While m_iBlockHeld is a block
    // length, m_pfData is the convolver's block (of that many frames) times m_fBlockGain;
    // while m_iMonoHeld is, m_pfMono is the convolver's copy of its last input.
    int m_iBlockHeld = 0;
    float m_fBlockGain = 1.0f;
    int m_iMonoHeld = 0;

  private:
    // Everything of a block but what touches the listener; 0, or -1 as _process.
    int Prepare(int n, int iRate);
    // The channel selector of the settings' channel mode, or -1.
    int ChannelSelector() const;
    // Points m_pfBlockMono at the block's mono signal.
    void FetchMono(int n, int iSelector);
    // True when a channel taken whole may be rendered without a copy to m_pfMono.
    bool BorrowsMono() const;
    // m_pfData and m_pfMono made from the convolver's copies, where they are held there.
    void SettleBlock();
    void SettleMono();
    // Both, unless the block about to be rendered takes the same path in the same format.
    void SettleHeld(int n, int iRate);
    void RouteStraight(int n, int iSelector);
    // Follows moves of the listener and of the world's entry; true when a rebuild is due.
    bool FollowMoves(int iRate);
    void RebuildResponse(int iRate);
    void DrawGraph(int iRate);
    void RenderWithLatePart(int n, int iRate, qk::field::LatePart late);
    void EarlyPartOnly();
    // Renders the block into m_pfData at the level fGain, or into the listener's spectrum
    // sums when it has them and the convolver can.
    void Render(int n, int iRate, int iSelector, float fGain);
    // The direct path's level by distance, refreshing m_fDistance; 1 for the other models.
    float DirectPathLevel();
    // The head-motion wobble of the direct path.
    void HeadMotion(int n, int iRate);
    // Convolves pfIn at the level fGain; the block stays in the convolver (m_iBlockHeld) until
    // FinishBlock adds it or SettleBlock copies it. A convolver that can't render leaves
    // silence in m_pfData.
    void Convolve(float *pfIn, int n, int iRate, float fGain);
    // The planar channel k of n frames of a sound's block, or null when the block is short.
    static float *Channel(const CIppBuffer &block, int k, int n);
};
