// The base of everything that has a place in the virtual room and a block of audio: virtual
// sources and listeners. Ids come from a counter of this family alone, so a rendering object
// and a sound source may carry the same number.
#pragma once

#include <memory>
#include <string>

#include "dsp/IppBuffer.h"
#include "platform/Object.h"
#include "render/CDrawElement.h"
#include "render/CPoseSlot.h"
#include "world/C3Point.h"

class CQUENDARIC_PARAMETERS;
class CRenderResources;
class CSFM;

class CQUENDARIC_Object : public qk::CObject {
    QK_DECLARE_SERIAL(CQUENDARIC_Object)

  public:
    CQUENDARIC_Object();
    ~CQUENDARIC_Object() override;
    CQUENDARIC_Object(const CQUENDARIC_Object &) = delete;
    CQUENDARIC_Object &operator=(const CQUENDARIC_Object &) = delete;

    // Version 1.0, description, enable, id, position x y z, azimuth, elevation, distance,
    // level and flag. Loading rebuilds the position's spherical fields; the look-at isn't kept
    // and the id counter isn't touched, so a loaded id can meet a new one.
    void Serialize(qk::CArchive &ar) override;

    // Life cycle of a rendering object: format in frames, Hz and bits; one block of n frames
    // at a rate in Hz (0, or -1 when it could not run); the end. The base does nothing.
    virtual void Initialize(int iBlock, int iRate, int iBits) {}
    virtual int _process(int n, int iRate) { return 0; }
    virtual void Terminate() {}
    // Places the object (metres) and marks it moved.
    virtual void Move(C3Point position);
    virtual void Move(float fValue) {}
    // Moves the draw element, if any, on the screen and marks the object moved.
    virtual void Move(CSize size);
    // Points the object at a point (not a direction) and marks it moved.
    virtual void LookAt(C3Point lookAt);
    // Stores both and marks the object moved, unless both are within 0.001 m on every
    // coordinate of what is stored, in which case nothing changes.
    virtual void Move_LookAt(C3Point position, C3Point lookAt);
    virtual void SetAmplifyInDB(float fDb) {}
    virtual void CalculateSphericalPosition(C3Point point) {}
    virtual void UpdateIRs(int iValue) {}
    // The description of the object and of its draw element, when it has one.
    virtual void SetDescription(const std::string &strDescription);

    // Makes m_pfData hold at least iLength floats: the first call zeroes it all; a growth
    // keeps the old contents at the start and zeroes the rest; it never shrinks. Returns 0.
    int _adjustDataBuffer(int iLength);

    static int m_iObjectCounter;  // pre-incremented by every constructor; ids start at 1

    int m_iDataLength = 0;                           // floats held in m_pfData
    CQUENDARIC_PARAMETERS *m_pParameters = nullptr;  // settings; not owned
    // The HRTF set, room model and pre-computed set in force; the engine context's, not owned.
    CRenderResources *m_pResources = nullptr;
    int m_iBufferLength = 32768;  // frames a block may have at most
    int m_iRecalculate = 0;       // set by the engine for one block: rebuild the whole response
    int m_iRemoveMark = 0;        // marks the object being removed
    std::string m_strDescription;
    int m_iEnable = 1;  // takes part in rendering
    int m_iMoved = 1;   // position or look-at changed since the last block
    // The sound field model in use. Models belong to the settings (or, private ones, to the
    // world's model list); an object never deletes its model.
    CSFM *m_pSFM = nullptr;
    std::unique_ptr<CDrawElement> m_pDraw;  // optional
    int m_iID;
    CIppBuffer m_pfData;          // the audio block: n left floats, then n right
    C3Point m_position;           // metres
    C3Point m_lookAt;             // a point looked at
    float m_fAzimuth = 0.0f;      // degrees, whole in practice
    float m_fElevation = 0.0f;    // degrees
    float m_fDistance = 0.0f;     // metres
    float m_fObjectLevel = 0.0f;  // kept in archives only
    int m_iReserved = 0;
    int m_iInitialized = 0;  // Initialize has run
    int m_iObjectFlag = 1;   // kept in archives only
    // A move published by a host thread, taken by the engine at the start of the next block.
    CPoseSlot m_PoseRequest;
    int m_iObjectMode = 0;
    float m_fLowCorner = 500.0f;  // Hz
    float m_fLowLevel = 0.0f;
    float m_fHighCorner = 4000.0f;  // Hz
    float m_fLowCornerInitial = 500.0f;
    float m_fHighCornerInitial = 4000.0f;
};
