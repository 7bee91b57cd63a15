// The base of every sound field model: given a source and a listener in a world, a model
// yields an impulse response. The base holds the world and the material session, and the
// geometry all models share: distance, azimuth and elevation in the conventions of the HRTF
// tables, and the Sabine estimate of the reverberation time that tunes the late part.
//
// Models keep the identity of the engine's threads (they derive from the thread class) but
// never run as threads: every operation runs on its caller's thread.
#pragma once

#include <string>

#include "platform/Object.h"
#include "platform/Thread.h"
#include "world/C3Point.h"
#include "world/Code4.h"

class CDSC_World;
class CHELPER_HRTF;
class CVRPlane;

class CSFM : public qk::CObject, public qk::CWinThread {
    QK_DECLARE_SERIAL(CSFM)

  public:
    CSFM() = default;
    explicit CSFM(CDSC_World *pWorld) : m_pWorld(pWorld) {}
    ~CSFM() override = default;

    bool InitInstance() override { return true; }
    int ExitInstance() override { return CWinThread::ExitInstance(); }

    // Does nothing: a model's state belongs to its source.
    virtual CSFM &operator=(const CSFM &) { return *this; }
    // Sabine: 0.163 V / A in seconds, A the sum over the planes of area times the mean
    // absorption of the plane's material (as designed for 32-tap filters). 0 without a world,
    // a material session, or a volume.
    virtual float GetRT60();
    // An echogram of the room: impulses of the images' distance gains at their delays. The
    // arrays a model hands back are its caller's; it frees what the pointers held. The base
    // has no model and returns -1.
    virtual int GetMonauralImpulseResponse(float *&pfIR, int &iLength, C3Point sourcePos,
                                           C3Point sourceLookAt, C3Point listenerPos,
                                           C3Point listenerLookAt, int iOrder, float fTemperature,
                                           int iSampleRate, float &fPeak, int iUnused,
                                           int iRecalculate, int iFilterTaps);
    // The binaural response of the room for one source, through the HRTF set; the base -1.
    virtual int GetBinauralImpulseResponse(CHELPER_HRTF *pHRTF, float *&pfMono, int &iMonoLength,
                                           float *&pfLeft, float *&pfRight, int &iLength,
                                           C3Point sourcePos, C3Point sourceLookAt,
                                           C3Point listenerPos, C3Point listenerLookAt,
                                           std::string strHRTFFile, int iOrder, float fTemperature,
                                           int iSampleRate, float &fPeakLeft, float &fPeakRight,
                                           int iUnused, int iRecalculate, int iFilterTaps,
                                           int iSourceIndex);

    // |b - a| in metres.
    static float GetDistance(C3Point a, C3Point b);
    // The direction of target seen from `from`, relative to the direction of lookAt: azimuth
    // 0..359 anticlockwise seen from above, elevation -90..90 (a difference beyond the pole
    // is folded back by its remainder, so 180 stays 180). The fourth point isn't used.
    static float GetAzimuth(C3Point from, C3Point lookAt, C3Point target, C3Point);
    static float GetElevation(C3Point from, C3Point lookAt, C3Point target, C3Point);
    // The compass number of b seen from a: 0 along +y, 90 along -x, 180 along -y, 270 along
    // +x. A direction of no length counts as 0.
    static int _GetAzimuth(C3Point a, C3Point b);
    // The elevation of b seen from a, positive above.
    static int _GetElevation(C3Point a, C3Point b);

    // A text dump of a response: one "%.3f" value a line, lines ended by CR LF. A value of
    // exactly 0 is written (and replaced in the caller's array) as 0.001. 0; 1 when the file
    // can't be written.
    int SaveToFile(const std::string &strFileName, float *pfValues, int iCount);

    // Version 1.0.
    void Serialize(qk::CArchive &ar) override;

  protected:
    // The mean absorption (0..1) of a plane's material over the bands below 22,050 Hz.
    float AverageAbsorption(CVRPlane &plane) const;

  public:
    CDSC_World *m_pWorld = nullptr;        // not owned; null until a world is set
    qk::table::Code4 *m_pCode4 = nullptr;  // material session; not owned
    float m_afEarlyDelays[6] = {};         // delays (s) of the first six valid images
    int m_iSourceIndex = 0;                // the virtual source last served
    int m_bSourceInside = 0;               // 1: the source is inside every plane
    int m_bListenerInside = 0;             // 1: the listener is inside every plane
};
