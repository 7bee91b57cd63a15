// Rewrites a .qkhrtf set into an equalised one beside it. ConvertDFE makes a diffuse-field
// equalised set (every response filtered with the inverse of the average magnitude over all
// directions; suffix "_DFE.qkhrtf"); ConvertMFR flattens the magnitude of every response
// below a corner frequency, keeping the phase (suffix "_MFR.qkhrtf"). Header, tables and grid
// stay as they were: only samples change. Runs on its caller's thread, off the block path.
#pragma once

#include <string>

#include "binaural/CHELPER_HRTF.h"
#include "core/CSERVICE_FILTER.h"
#include "dsp/CFILTER_DESIGN.h"
#include "platform/Object.h"

class CHRTF_Converter : public qk::CObject {
    QK_DECLARE_SERIAL(CHRTF_Converter)

  public:
    // The first conversion on the named set; the result is written to the name without its
    // last six characters plus "_DFE.qkhrtf" (so "set.qkhrtf" gives "set._DFE.qkhrtf": the
    // dot stays, as it always has), which m_sOutputName then holds. Returns 0 when the file
    // was written, -1 for an empty name, a set that can't be read or an unknown method.
    int ConvertDFE(const std::string &strFile);
    // The second conversion: every response gets magnitude 1 below fCornerHz, its phase kept.
    // Asks (caption "QUENDARIK-HRTF") whether another name is wanted; either answer writes to
    // the proposed "_MFR.qkhrtf" name. Returns as ConvertDFE.
    int ConvertMFR(const std::string &strFile, float fCornerHz);
    // Loads the set and gives its average response: the zero-phase response, centred at
    // T / 2, of the square root of the mean squared magnitude (m_bPowerAverage 1) or of the
    // mean magnitude (0) over all stored responses. T, the taps, should be a power of two.
    // pfAverage is freed and replaced (T floats, ippsMalloc_32f); iLength = T. Returns 0 or -1.
    int GetAverage(const std::string &strFile, float *&pfAverage, int &iLength);
    // GetAverage, then the inversion chosen by m_iInverseMethod, optionally made minimum
    // phase; the caller still sees T samples. Returns 0 or -1 (also for an unknown method).
    int GetInverse(const std::string &strFile, float *&pfInverse, int &iLength);
    // Convolves every response of the loaded set with the inverse (iLength samples), keeps
    // the taps from sample m_iOffset of the result on, and scales the whole set so that its
    // largest sample is 1. Returns 0, or -1 when the set holds no samples.
    int Equalise(const float *pfInverse, int iLength);

    CHELPER_HRTF m_HRTF;  // the set being converted
    CFILTER_DESIGN m_Design;
    std::string m_sOutputName;     // the last file written
    int m_iInverseMethod = 3;      // 1 InvertRegularised, 2 InvertLMS, 3 InvertMagnitude
    float m_fInverseLimit = 0.2f;  // magnitude limit of InvertMagnitude
    int m_bMinimumPhase = 0;       // 1: the inverse is made minimum phase
    int m_iDynamic = 24;           // dB, range of InvertRegularised
    int m_iOffset = 256;           // first sample of a filtered response to keep
    int m_bNormalise = 1;          // passed on to InvertRegularised
    int m_bPowerAverage = 1;       // 1: squared magnitudes are averaged
    CSERVICE_FILTER m_Filter;      // made and released around each step; no sample goes through

  private:
    // Loads strFile; false when it yields no usable samples.
    bool LoadSet(const std::string &strFile);
    // Number of stored responses, each m_iFileTaps long.
    int ResponseCount() const;
    // The output name: strFile without its last six characters, plus strSuffix.
    static std::string OutputName(const std::string &strFile, const char *pcSuffix);
    // The inversion itself, into pfInverse (T floats kept).
    bool Invert(float *pfInverse, int iTaps);
    void FlattenLowMagnitude(float fCornerHz);
};
