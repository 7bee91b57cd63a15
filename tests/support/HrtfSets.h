// Small HRTF sets made in memory.
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

// The same header, tables and (unless told otherwise) samples, to the bit.
void ExpectSameSet(const CHELPER_HRTF &a, const CHELPER_HRTF &b, bool bSamples = true);

// Points every direction of the lookup table at measurement m.
void FillLookup(CHELPER_HRTF &set, int m);

// Owns the arrays a lookup or a response call hands out, and passes them back in as the
// callers do.
struct Responses {
    ~Responses() {
        ippsFree(left);
        ippsFree(right);
        ippsFree(mono);
    }
    float *left = nullptr;
    float *right = nullptr;
    float *mono = nullptr;
    int length = 0;
    int monoLength = 0;
    float peakLeft = 0.0f;
    float peakRight = 0.0f;
};

// The bytes of a stored set.
std::vector<uint8_t> StoreToBytes(CHELPER_HRTF &set);

}  // namespace qktest
