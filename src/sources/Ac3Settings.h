// The settings of the AC-3 source, kept as presets in the text file "ac3.ini" in the settings
// folder: four groups ("preset", "matrix", "delay", "equalizer"), each with named presets, of
// which "_default" is the one read. A section is "[group/preset]", a line "key = value"; ';'
// and '#' start comments. A missing file, section or key, and a value that isn't a number or
// is out of its range, leave the built-in default.
//
//   [preset/_default]
//   mode = 1        ; output layout, an index of kAc3OutputModes (1: "2/0 - stereo")
//   format = 0      ; 0 PCM 16bit, 2 PCM 24bit, 3 PCM 32bit, 4 PCM Float
//   master = 1.0    ; output level, a factor
//   lfelev = 1.0    ; level of the LFE channel, a factor
//   dynrng = 1      ; 1 applies the stream's dynamic range compression, 0 doesn't
//   normalize = 0   ; 1 lowers the level of a down-mix so that it can't clip
//   [matrix/_default]
//   L_SL = 0.0      ; gain from input speaker SL to output speaker L, over L C R SL SR LFE
//   [delay/_default]
//   C = 0.0         ; delay of a speaker, ms
//   [equalizer/_default]
//   eq9_0 = 0.0     ; nine bands, dB
#pragma once

#include <array>
#include <string>

// The output layouts, by index ("mode").
constexpr int kAc3OutputModeCount = 17;
extern const char *const kAc3OutputModes[kAc3OutputModeCount];
// The stream's channel modes as named for the user.
constexpr int kAc3StreamModeCount = 18;
extern const char *const kAc3StreamModes[kAc3StreamModeCount];

struct CAc3Settings {
    static constexpr int kSpeakers = 6;  // L, C, R, SL, SR, LFE
    static constexpr int kBands = 9;
    static const char *const kSpeakerNames[kSpeakers];

    int iMode = 1;
    int iFormat = 0;
    double dMaster = 1.0;
    double dLfeLevel = 1.0;
    bool bDynamicRange = true;
    bool bNormalize = false;
    // Kept for a mixer; the source itself applies the values above only.
    int iMatrixOn = 0;
    int iDelayOn = 0;
    int iEqualizerOn = 0;
    std::array<std::array<double, kSpeakers>, kSpeakers> matrix{};  // [out][in]
    std::array<double, kSpeakers> delayMs{};
    std::array<double, kBands> equalizerDb{};

    CAc3Settings();
    // Reads the "_default" presets of an ini text; keys it doesn't know are skipped.
    void Parse(const std::string &strText);
    // Reads the file; false (and the defaults kept) when it can't be read. At most
    // kMaxFileBytes are read.
    bool Load(const std::string &strPath);
    // ac3.ini in the settings folder.
    static std::string DefaultPath();
    static constexpr size_t kMaxFileBytes = 1 << 20;
};
