// A material: absorption in percent in eight octave bands (125 Hz to 16 kHz) fetched by
// name from the materials table, and the FIR filter that a reflection on it applies.
#pragma once

#include <string>

#include "dsp/IppBuffer.h"
#include "world/Code4.h"

class CMATERIAL {
  public:
    static constexpr int kBands = 8;
    // Longer filters than this are refused as absurd (the engine asks for 32 taps).
    static constexpr int kMaxFilterLength = 1 << 16;

    CMATERIAL() = default;
    CMATERIAL(const CMATERIAL &other);
    CMATERIAL &operator=(const CMATERIAL &other);
    virtual ~CMATERIAL() = default;

    // Fetches the row named strName (case and blanks around it don't matter) from the
    // materials table: the coefficients, IMAGE and COLOR. 0 when found. Not found, an empty
    // name or no session: -1 and nothing changes. A table that can't be opened is reported
    // ("Cannot open 'materials' database. Error: %d"), -1, nothing changes.
    int GetCoefficients(qk::table::Code4 *pDB, const std::string &strName);

    // Designs the reflection filter of iLength taps at fSampleRate Hz: the material's
    // reflection (1 - absorption) in the bands below the Nyquist frequency, by frequency
    // sampling, scaled to a sum of 1; iKind 0 keeps the linear-phase taps, any other value
    // makes them minimum phase. m_fAverage becomes the mean absorption (a fraction) of those
    // bands. Nothing is done when a filter exists and the four values equal those of the last
    // design. 0; -1 when the material isn't found (the old filter and average stay), for a
    // sample rate or length that can't be had, or when the design fails (no filter then).
    int MakeFilter(const std::string &strName, float fSampleRate, int iKind, qk::table::Code4 *pDB,
                   int iLength);

    // MakeFilter(name, 44100, 0, db, length), then the mean absorption; 0.
    int GetAverage(qk::table::Code4 *pDB, const std::string &strName, float &fAverage, int iLength);

    // Bands that lie below the Nyquist frequency at a sample rate (8 for rates not listed).
    static int BandsForRate(float fSampleRate);

    std::string m_strName;  // name of the last design
    std::string m_strDescription;
    std::string m_strCategory;
    std::string m_strImage;
    std::string m_strColor;
    float m_fCoeff[kBands] = {0, 0, 0, 0, 0, 0, 0, 0};  // percent
    float m_fAverage = 0.0f;                            // mean absorption, 0..1
    CIppBuffer m_pFilter;                               // the taps; empty until made
    int m_iFilterLength = 0;                            // taps in m_pFilter
    float m_fSampleRate = 0.0f;
    int m_iMinimumPhase = 0;  // kind of the last design
};
