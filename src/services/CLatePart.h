// The late part of a room's response: a pair of reverbs, one for each ear, tuned from the
// room's reverberation time and the delays of its first six images, and mixed with the early
// (binaural) signal by the dry level. Virtual sources and the engine's global pair share these
// rules; where the reverberation time and the delays come from is theirs.
#pragma once

#include "dsp/IppBuffer.h"
#include "services/CQUENDARIC_Service_Reverb.h"

// What a room model tells the late part.
struct SLateField {
    float fRT60 = 0.0f;           // reverberation time, s
    float afEarlyDelays[6] = {};  // delays of the first six valid images, s
    float fOnset = 0.0f;          // length of the early part, samples
};

class CLatePart {
  public:
    // Each reverb is set by 13 entries, six combs then seven all-passes, of which the reverb
    // runs the six combs and the first two all-passes.
    static constexpr int kCombs = 6;
    static constexpr int kEntries = 13;
    static constexpr int kAllPassesRun = 2;
    // A comb's feedback gain is brought down to this by doubling its delay.
    static constexpr float kStableGain = 0.85f;
    // The doubling stops at this delay (s) whatever the gain: a long reverberation time makes
    // long combs, and a delay of 0 could never be doubled out of the loop.
    static constexpr float kLongestDelay = 10.0f;
    // The longest reverberation time (s) the pair is tuned for: a room that absorbs nothing
    // has an endless time, and is given this long decay rather than none.
    static constexpr float kLongestRT60 = 20.0f;
    // The right ear's delays are the left ear's plus this (s): it decorrelates the ears.
    static constexpr float kRightEarOffset = 0.001f;

    // Delays (s) and gains of one ear. pfDelays holds the 13 delays on entry (the combs' first)
    // and the stretched ones on return; pfGains receives the 13 gains. Comb gains are
    // 10^(-3 d / T), a 60 dB decay in T, then each comb above kStableGain has its delay doubled
    // until it isn't, and the comb gains are negated. The all-passes keep pfAllPassGains.
    // A time that isn't above 0 gives gains of 0.
    static void TuneEar(float fRT60, float *pfDelays, float *pfGains, const float *pfAllPassGains);
    // Tunes and initialises the pair for the field at iSampleRate; returns the reverberation
    // time in s the pair was tuned for. A time of 0 (no room) gives combs of gain 0, plain
    // delays; a time beyond kLongestRT60, endless included, is tuned as kLongestRT60. A time
    // that isn't a number, or a delay that isn't finite, counts as 0.
    static float Initialize(const SLateField &field, int iSampleRate,
                            CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right);
    // Binaural: each ear's early signal (pfEarly: n left, then n right) goes through its
    // reverb; pfOut = dry x early + (1 - dry) x reverb, per ear. pfEarly and pfOut may be the
    // same array. pfScratch grows to 2n floats when needed.
    static void Process(const float *pfEarly, float *pfOut, int n, float fDryLevel,
                        CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right,
                        CIppBuffer &pfScratch);
    // One channel through one reverb, mixed alike.
    static void ProcessChannel(const float *pfIn, float *pfOut, int n, float fDryLevel,
                               CQUENDARIC_Service_Reverb &reverb, CIppBuffer &pfScratch);
    static void Terminate(CQUENDARIC_Service_Reverb &left, CQUENDARIC_Service_Reverb &right);

    // The seven all-passes' delays (s) and gains.
    static const float kAllPassDelays[kEntries - kCombs];
    static const float kAllPassGains[kEntries - kCombs];
};
