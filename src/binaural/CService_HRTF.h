// Turns one mono block into a left and a right block by convolution with a binaural impulse
// response: one direction's HRIR pair from an HRTF set, or a whole response handed in by a
// room model. Method "OVERLAP" (the default) convolves with the whole-filter fast convolver,
// "FIR" with a direct FIR per ear, "PARTITIONED" with the uniformly partitioned convolver,
// which hears the whole response at any block length. A new response waits for the next
// block, which is rendered with the old and the new filter and cross-faded over exactly that
// one block (the partitioned convolver applies both to the same input history).
//
// The output is the CSSS block m_pfData: n left samples, then n right samples.
#pragma once

#include <istream>
#include <string>

#include "binaural/CFrequencyMix.h"
#include "binaural/CSERVICE_OVERLAP_HRTF.h"
#include "binaural/CSERVICE_PARTITIONED_HRTF.h"
#include "binaural/Convolution.h"
#include "core/CSERVICE.h"
#include "dsp/ipps.h"

class CHELPER_HRTF;

class CService_HRTF : public CSERVICE {
    QK_DECLARE_SERIAL(CService_HRTF)

  public:
    CService_HRTF();
    ~CService_HRTF() override;

    using CSSS::_process;

    // Gives the set m_pStream and the rate (Hz), loads m_sHRTFFile into it and brings its taps
    // up to date. 0, or -1 without a set.
    int InitializeHelperHRTF(int iSampleRate);
    // Copies a response pair of iLength taps to take into use at the next _init. Ignored
    // unless iLength is positive and both pointers are set. Returns 0.
    int InitializeExternal(const float *pfLeft, const float *pfRight, int iLength);
    // Prepares the filter for blocks of iBlockLength frames at iSampleRate Hz; without a
    // response yet, the set's response for m_iAzimuth, m_iElevation is fetched. 0 on success;
    // -1 without a set, for a direction the set doesn't measure (status
    // "CANNOT_READ_DATA_FROM_HELPER"), or when the filter can't be made. A disabled service
    // does nothing and returns 0.
    int _init(int iBlockLength, int iSampleRate) override;
    // Makes the FIR states of the "FIR" method from a response pair. Returns 0.
    int InitializeFIR(const float *pfLeft, const float *pfRight, int iLength);
    // Fetches the response for a direction (whole degrees) from the set; it takes effect at the
    // next block with a cross-fade. -1 without a set; 0 otherwise, also for a direction the
    // set doesn't measure, whose filter then stays as it was.
    int ReInitialize(int iAzimuth, int iElevation, int iSampleRate);
    // Copies a response pair handed in by a room model, to take effect at the next block with a
    // cross-fade. Ignored when iLength is under 1 or a pointer is null. Returns 0.
    int ReInitializeExternal(const float *pfLeft, const float *pfRight, int iLength);
    // Renders n samples of pfIn into m_pfData (2n floats). -1 without a set, else 0.
    int _process(float *pfIn, int n, int iUnused) override;
    // Adds the block of the last _process (2n floats of m_pfData) times fGain to pfDest: the
    // same sums, to the bit, as copying it out scaled and adding the copy.
    void AddInto(float *pfDest, int n, float fGain) const;
    // The n input samples of the last _process when the convolver keeps them until the next
    // one (the whole-filter method does), else null.
    const float *LastInput(int n) const {
        return m_method == qk::Convolution::Overlap ? m_Overlap.LastInput(n) : nullptr;
    }
    // The "PARTITIONED" method's block added, times fGain, into a listener's spectrum sums
    // instead of m_pfData. -1, with nothing added, for another method, without a set, or when
    // the mix can't take it; the caller then renders with _process.
    int ProcessIntoMix(float *pfIn, int n, CFrequencyMix &mix, float fGain);
    // Frees the responses, the FIR states and the output block, and ends the fast convolver,
    // whose overlap survives. Returns 0.
    int _quit() override;
    // Base data, version 1.0, azimuth, elevation and m_sHRTFFile.
    void Serialize(qk::CArchive &ar) override;

    // Silences the running convolution of both methods.
    void ClearHistory();
    // The taps of the response the last ReInitialize asked for: the convolver's own arrays,
    // or the stored responses of pSet (the set in force) when the partitioned method took the
    // direction's spectra from the set's table. False when there are none, or when the set
    // or its samples have changed since.
    bool RequestedResponse(const CHELPER_HRTF *pSet, const float *&pfLeft, const float *&pfRight,
                           int &iLength) const;

    // The cross-fade ramp: value i of n is a + (b - a) / (n - 1) * i, in double. A ramp of one
    // value is a.
    static void Ramp(float *pf, int n, double a, double b);

    int m_iAzimuth = 0;                 // degrees of the direction last asked for
    int m_iElevation = 0;               // degrees
    std::string m_sHRTFFile;            // set loaded by InitializeHelperHRTF
    std::istream *m_pStream = nullptr;  // not owned: read instead of the named file
    // The method's word: "OVERLAP", "FIR" or "PARTITIONED". _init reads it into m_method;
    // SetMethod sets both.
    std::string m_sMethod = "OVERLAP";
    CHELPER_HRTF *m_pHelper = nullptr;        // the set; not owned
    int m_iLength = 0;                        // taps in m_pfLeft, m_pfRight; 0: none yet
    float *m_pfLeft = nullptr;                // owned, ippsMalloc_32f
    float *m_pfRight = nullptr;               // owned, ippsMalloc_32f
    int m_iNewLength = 0;                     // taps of a response waiting to take effect
    CSERVICE_OVERLAP_HRTF m_Overlap;          // the fast convolver
    CSERVICE_PARTITIONED_HRTF m_Partitioned;  // the partitioned convolver
    IppsFIRState_32f *m_pFIRLeft = nullptr;   // owned; "FIR" method
    IppsFIRState_32f *m_pFIRRight = nullptr;  // owned
    int m_iLengthInUse = 0;                   // taps at the last _init
    int m_bReInitialize = 0;                  // a new response waits for the next block
    // The waiting response is the set's slots m_iNewLeftSlot, m_iNewRightSlot, whose spectra
    // the set's table holds (partitioned method only).
    bool m_bNewFromTable = false;
    // The set's table of spectra last taken, and which set and samples it belongs to.
    std::shared_ptr<const CHRTFFilterBank> m_pTable;
    const CHELPER_HRTF *m_pTableSet = nullptr;
    unsigned m_uTableGeneration = 0;
    const std::shared_ptr<const CHRTFFilterBank> &Table(int iPartition);
    int m_iNewLeftSlot = 0;
    int m_iNewRightSlot = 0;
    // The last ReInitialize found the direction in the set's table: its response is the set's
    // slots m_iNewLeftSlot, m_iNewRightSlot, taken or already in use.
    bool m_bAskedFromTable = false;
    const CHELPER_HRTF *m_pAskedSet = nullptr;  // compared only, never read through
    unsigned m_uAskedGeneration = 0;
    std::string m_strStatus;  // "OK" or what failed; for diagnosis only
    int m_iState = 1;         // cleared when _init finds no response

    // The method, chosen once per change of the setting; the word follows.
    void SetMethod(qk::Convolution method);
    qk::Convolution Method() const { return m_method; }

    static constexpr const char *kPartitioned = "PARTITIONED";
    static constexpr const char *kOverlap = "OVERLAP";

  private:
    qk::Convolution m_method = qk::Convolution::Overlap;  // as m_sMethod says

    // Renders a block with the filter in use; 0, or -1 when there is none.
    int RenderCurrent(float *pfIn, int n, float *pfOut);
    // Takes m_pfLeft, m_pfRight of m_iLength taps into use for blocks of n frames.
    int TakeIntoUse(int n);
    void FreeFIR();
    void CopyResponse(const float *pfLeft, const float *pfRight, int iLength);
    // Gives a waiting response to the partitioned convolver, which fades to it in the block.
    void TakeWaitingResponse(int n);
    // Renders the waiting response's block: old filter faded out, new faded in.
    void CrossFade(float *pfIn, int n);

    // The cross-fade's blocks and ramp, kept from one fade to the next.
    CIppBuffer m_pfFadeOld;
    CIppBuffer m_pfFadeNew;
    CIppBuffer m_pfFadeRamp;
};
