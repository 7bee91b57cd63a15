// Editing and describing whole HRTF sets: what the command-line program needs beyond loading
// and storing.
#pragma once

#include <string>

#include "binaural/CHELPER_HRTF.h"

namespace qk {

// Gives every response of the set iTaps samples: a longer response is cut and its last
// iFadeTaps samples fade out along a raised cosine; a shorter one is padded with zeros. The
// taps in force follow. Returns 0, or -1 (set unchanged) for iTaps outside 1..65536.
int ResizeResponses(CHELPER_HRTF &set, int iTaps, int iFadeTaps);

// What the lookup table covers.
struct HrtfCoverage {
    int iDistinctMeasurements = 0;             // different measurements the table names
    int iDirections = 0;                       // directions that have a measurement
    int iMinAzimuth = 0, iMaxAzimuth = 0;      // over those directions, degrees
    int iMinElevation = 0, iMaxElevation = 0;  // degrees
};
HrtfCoverage DescribeCoverage(const CHELPER_HRTF &set);

// The header and the coverage as lines of text.
std::string DescribeSet(const CHELPER_HRTF &set);

}  // namespace qk
