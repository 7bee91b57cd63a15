// The image-source model, the room model of the system. It mirrors the source in every plane
// of the world up to an order, keeps the images whose reflection path can be traced back
// from the listener, and turns them into an echogram or a binaural impulse response: each
// image is an impulse at its time of flight, scaled by the distance law (which stops at one
// metre), filtered by the cascade of the reflection filters of the materials on its path and,
// in the binaural form, convolved with the HRTF of the direction it arrives from.
//
// Images are cached between calls. A change mask says what must be done again: a moving
// source costs generation and validation, a moving listener validation alone, a turning
// head neither. The images sit in one array in generation order (the direct sound first,
// then order 1, 2, ..., the planes' list order the inner loop), each knowing the image it
// was mirrored from, so a path is read by walking back towards the source.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "dsp/IppBuffer.h"
#include "field/CSFM.h"

class CVRPlane;

// One image. Its path of planes is read through iParent: the plane of the image itself is
// the last one the sound meets before the listener, its parent's the one before, and so on
// back to the source (the image of order 0, which has no plane).
struct CImageSource {
    float x = 0.0f;  // position, metres
    float y = 0.0f;
    float z = 0.0f;
    int iParent = -1;  // index of the image this one mirrors; -1 for the source itself
    int iPlane = -1;   // index in the world's plane list of the mirroring plane; -1 none
    int iOrder = 0;    // planes on the path
    int m_bExpanded = 0;
};

// An image that passed validation, with the point of reflection nearest the source end of
// the traced path (the listener itself for the direct sound).
struct CValidImage {
    int iImage = 0;  // index into the image list validated
    float fHitX = 0.0f;
    float fHitY = 0.0f;
    float fHitZ = 0.0f;
};

class CSFM_ISM : public CSFM {
    QK_DECLARE_SERIAL(CSFM_ISM)

  public:
    // Generation stops at this many images, with one report: a high order on a room of many
    // planes would otherwise take all the memory there is. The images made stay usable.
    static constexpr size_t kMaxImages = 200000;

    // Change mask bits of CheckForRecalculationType.
    static constexpr int kSourceMoved = 0x01;
    static constexpr int kListenerMoved = 0x02;
    static constexpr int kOrderChanged = 0x04;
    static constexpr int kTemperatureChanged = 0x08;
    static constexpr int kRateChanged = 0x10;
    static constexpr int kNothingChanged = 0x20;
    static constexpr int kSourceTurned = 0x40;
    static constexpr int kListenerTurned = 0x80;

    CSFM_ISM() = default;
    explicit CSFM_ISM(CDSC_World *pWorld) : CSFM(pWorld) {}

    // The echogram: impulses of the valid images' distance gains at their truncated delays,
    // trunc(largest delay in samples + (order + 1) * 32) long. Returns 0 at once, with
    // nothing written, when nothing changed and no recalculation is forced. -1 without a
    // material session, without a valid image or with no length; pfIR is then untouched.
    int GetMonauralImpulseResponse(float *&pfIR, int &iLength, C3Point sourcePos,
                                   C3Point sourceLookAt, C3Point listenerPos,
                                   C3Point listenerLookAt, int iOrder, float fTemperature,
                                   int iSampleRate, float &fPeak, int iUnused, int iRecalculate,
                                   int iFilterTaps) override;
    // The echogram (pfMono) and, with a set, the binaural response of the valid images;
    // the first six delays go to m_afEarlyDelays. Without a set only the echogram is made.
    // Failures as the monaural call; the three arrays are then untouched.
    int GetBinauralImpulseResponse(CHELPER_HRTF *pHRTF, float *&pfMono, int &iMonoLength,
                                   float *&pfLeft, float *&pfRight, int &iLength, C3Point sourcePos,
                                   C3Point sourceLookAt, C3Point listenerPos,
                                   C3Point listenerLookAt, std::string strHRTFFile, int iOrder,
                                   float fTemperature, int iSampleRate, float &fPeakLeft,
                                   float &fPeakRight, int iUnused, int iRecalculate,
                                   int iFilterTaps, int iSourceIndex) override;

    // Compares each argument with the one stored, stores it and sets its bit. With a world
    // the inside flags are brought up to date and a mask of 0 becomes kNothingChanged.
    int CheckForRecalculationType(C3Point sourcePos, C3Point sourceLookAt, C3Point listenerPos,
                                  C3Point listenerLookAt, int iOrder, float fTemperature,
                                  float fSampleRate, int iUnused);
    // The images of the stored source up to m_iOrder: 0, 102 without a world. In shared mode
    // a model whose list is another's does nothing.
    int CalculateImages();
    // Traces every image back from the stored listener: 0.
    int ValidateImages();
    // 0 when p is on the inner side of every plane (pPlane the last one tried, null with
    // none); -1 with pPlane the first plane p is beyond.
    int _checkIfInside(C3Point p, CVRPlane *&pPlane) const;

    // The cascade of the reflection filters on the path of image iImage of the list
    // validated: k planes of iFilterTaps taps give k * taps - (k - 1) taps. Empty for the
    // direct sound, or when no plane on the path has a filter.
    void GetReflectionFilter(int iImage, std::vector<float> &filter, int iSampleRate,
                             int iFilterTaps);

    // The images validation reads: this model's own, or another's in shared mode.
    const std::vector<CImageSource> &Images() const;
    // The planes of image iImage of Images(), from the source's side to the listener's.
    std::vector<int> PathOf(int iImage) const;

    std::vector<CImageSource> m_Images;      // all images of the present source position
    std::vector<CValidImage> m_ValidImages;  // those that passed validation, in list order
    int m_iOrder = 1;
    // The list validation reads: m_Images, or in shared mode another model's m_Images.
    const std::vector<CImageSource> *m_pImages = nullptr;
    float m_fTemperature = 0.0f;
    float m_fSampleRate = 0.0f;
    int m_iMode = 0;    // 1: shared mode, source and listener exchanged by the caller
    int m_bReport = 0;  // 1: report the time each generation takes
    C3Point m_Source;   // the points of the last call
    C3Point m_SourceLookAt;
    C3Point m_Listener;
    C3Point m_ListenerLookAt;
    // Per valid image, in the order of m_ValidImages: time of flight (ms), distance gain,
    // direction (whole degrees, binaural calls only), reflection filter length (0 for none)
    // and the filters end to end.
    std::vector<float> m_pfDelays;
    std::vector<float> m_pfGains;
    std::vector<float> m_pfAzimuths;
    std::vector<float> m_pfElevations;
    std::vector<float> m_pfFilters;
    std::vector<int> m_piFilterLengths;
    int m_iImagesTotal = 0;  // counts of the last binaural call
    int m_iImagesValid = 0;

  protected:
    // Delays, gains, filters and (binaural) directions of the valid images, and the
    // response length: 0; -1 without a material session or a valid image.
    int GetCommonIRParameters(int &iLength, int iSampleRate, float fTemperature, int iBinaural,
                              int iFilterTaps);
    // Acts on a change mask as both response calls do.
    void FollowChanges(int iMask, int iRecalculate, bool bTimed);
    // The echogram of the valid images into a new array of iLength floats.
    float *MakeEchogram(int iLength, int iSampleRate) const;
    // GetCommonIRParameters, then the echogram in place of pfIR (freed) and its length in
    // iLength: 0, or -1 with both as they were.
    int RenewEchogram(float *&pfIR, int &iLength, int iSampleRate, float fTemperature,
                      int iBinaural, int iFilterTaps);

  private:
    struct PlaneData {
        float A, B, C, D, fNorm2;
        float fMinX, fMinY, fMinZ, fMaxX, fMaxY, fMaxZ;
    };
    void CachePlanes();
    // Writes the cascade of image iImage into m_cascades (memo by image) and returns its
    // offset there, or -1 for none.
    int Cascade(int iImage, int iFilterTaps);

    std::vector<PlaneData> m_planes;   // of the world's planes at the last call
    std::vector<int> m_cascadeOffset;  // per image: offset in m_cascades, -1 not yet
    std::vector<int> m_cascadeLength;  // per image: taps, 0 none
    std::vector<float> m_cascades;     // all cascades made in the call
    size_t m_reportedCap = 0;          // the last image count reported as capped
};
