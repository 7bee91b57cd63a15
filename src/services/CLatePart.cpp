#include "services/CLatePart.h"

#include <algorithm>
#include <cmath>

const float CLatePart::kAllPassDelays[kEntries - kCombs] = {0.0067f, 0.0063f, 0.0058f, 0.0055f,
                                                            0.0141f, 0.0133f, 0.0151f};
const float CLatePart::kAllPassGains[kEntries - kCombs] = {0.65f, 0.65f, 0.65f, 0.65f,
                                                           0.8f,  0.57f, 0.65f};

namespace {
// 10^(-3 d / T): the gain that decays by 60 dB in T when applied once every d seconds.
float decayGain(float fDelay, float fRT60) {
    if (!(fRT60 > 0.0f)) {
        return 0.0f;
    }
    return static_cast<float>(std::pow(10.0, -3.0 * static_cast<double>(fDelay) / fRT60));
}

float finiteOrZero(float f) {
    return std::isfinite(f) ? f : 0.0f;
}

// A time not above 0 (or not a number) is 0; a long or endless one is held to the longest.
float boundedTime(float fRT60) {
    if (!(fRT60 > 0.0f)) {
        return 0.0f;
    }
    return std::fmin(fRT60, CLatePart::kLongestRT60);
}
}  // namespace

void CLatePart::TuneEar(float fRT60, float *pfDelays, float *pfGains, const float *pfAllPassGains) {
    for (int i = 0; i < kEntries; ++i) {
        pfGains[i] = i < kCombs ? decayGain(pfDelays[i], fRT60) : pfAllPassGains[i - kCombs];
    }
    for (int i = 0; i < kEntries; ++i) {
        // A delay of 0 stays 0 however often it is doubled: the loop ends there, and at
        // kLongestDelay, rather than never.
        while (pfGains[i] > kStableGain && pfDelays[i] > 0.0f && pfDelays[i] < kLongestDelay) {
            pfDelays[i] = 2.0f * pfDelays[i];
            pfGains[i] = decayGain(pfDelays[i], fRT60);
        }
    }
    for (int i = 0; i < kCombs; ++i) {
        pfGains[i] = -pfGains[i];  // the combs run with negative feedback
    }
}

float CLatePart::Initialize(const SLateField &field, int iSampleRate,
                            CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right) {
    const float fRT60 = boundedTime(field.fRT60);
    float afDelays[kEntries];
    float afGains[kEntries];
    for (int i = 0; i < kCombs; ++i) {
        afDelays[i] = std::fmax(finiteOrZero(field.afEarlyDelays[i]), 0.0f);
    }
    for (int i = kCombs; i < kEntries; ++i) {
        afDelays[i] = kAllPassDelays[i - kCombs];
    }
    TuneEar(fRT60, afDelays, afGains, kAllPassGains);
    const float fOnset = finiteOrZero(field.fOnset);
    left.SetParameters(afDelays, afGains, kCombs, kAllPassesRun, nullptr);
    left.Initialize(fOnset, iSampleRate);

    // The right ear: every delay as the left's came out of the rule, plus 1 ms; the all-passes
    // keep the left's gains.
    for (float &d : afDelays) {
        d += kRightEarOffset;
    }
    float afAllPassGains[kEntries - kCombs];
    for (int i = kCombs; i < kEntries; ++i) {
        afAllPassGains[i - kCombs] = afGains[i];
    }
    TuneEar(fRT60, afDelays, afGains, afAllPassGains);
    right.SetParameters(afDelays, afGains, kCombs, kAllPassesRun, nullptr);
    right.Initialize(fOnset, iSampleRate);
    return fRT60;
}

namespace {
// pfOut = dry x pfIn + (1 - dry) x pfWet over n samples; pfIn and pfOut may be one array.
void mix(const float *pfIn, const float *pfWet, float *pfOut, int n, float fDryLevel) {
    const float fWetLevel = 1.0f - fDryLevel;
    for (int i = 0; i < n; ++i) {
        pfOut[i] = pfIn[i] * fDryLevel + pfWet[i] * fWetLevel;
    }
}

// Room for iLength zeros: a reverb without combs or all-passes leaves its output alone, and
// then adds nothing.
float *zeroedScratch(CIppBuffer &pfScratch, int iLength) {
    if (pfScratch.size() < iLength) {
        pfScratch.Allocate(iLength);
    }
    std::fill(pfScratch.get(), pfScratch.get() + iLength, 0.0f);
    return pfScratch.get();
}
}  // namespace

void CLatePart::ProcessChannel(const float *pfIn, float *pfOut, int n, float fDryLevel,
                               CQUENDARIC_Service_Reverb &reverb, CIppBuffer &pfScratch) {
    if (pfIn == nullptr || pfOut == nullptr || n < 1) {
        return;
    }
    float *wet = zeroedScratch(pfScratch, n);
    reverb.Process(pfIn, wet, n);
    mix(pfIn, wet, pfOut, n, fDryLevel);
}

void CLatePart::Process(const float *pfEarly, float *pfOut, int n, float fDryLevel,
                        CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right,
                        CIppBuffer &pfScratch) {
    if (pfEarly == nullptr || pfOut == nullptr || n < 1) {
        return;
    }
    float *wet = zeroedScratch(pfScratch, 2 * n);
    CQUENDARIC_Service_Reverb::ProcessPair(left, pfEarly, wet, right, pfEarly + n, wet + n, n);
    mix(pfEarly, wet, pfOut, 2 * n, fDryLevel);
}

void CLatePart::Terminate(CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right) {
    left.Cleanup();
    right.Cleanup();
}
