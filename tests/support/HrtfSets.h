// Small HRTF sets made in memory, and a catcher for the texts the library reports.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "binaural/CHELPER_HRTF.h"

namespace qktest {

// A set of the given layout whose every sample tells where it sits: the value at tap k of
// response slot s (slot s starts at float s * taps) is Code(s, k), a multiple of 1 / 32768 so
// that it survives the 16-bit form exactly. The lookup table names no measurement.
std::unique_ptr<CHELPER_HRTF> MakeSet(int iMeasurements, int iTaps, const char *pcEars, int iRate,
                                      const char *pcDataType = "32f");
float Code(int iSlot, int iTap);

// Points every direction of the lookup table at measurement m.
void FillLookup(CHELPER_HRTF &set, int m);

// A scratch file name of this process (so that builds testing at once don't meet).
std::string TempPath(const std::string &name);

// The bytes of a stored set.
std::vector<uint8_t> StoreToBytes(CHELPER_HRTF &set);

// Collects every text reported while it lives; without it, texts go to standard error.
class ReportCatcher {
  public:
    ReportCatcher();
    ~ReportCatcher();
    ReportCatcher(const ReportCatcher &) = delete;
    ReportCatcher &operator=(const ReportCatcher &) = delete;

    std::vector<std::string> texts;
    std::vector<std::string> captions;
};

}  // namespace qktest
