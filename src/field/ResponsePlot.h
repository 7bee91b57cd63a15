// The diagnostic graph of a rebuilt response, written as an SVG file: the left and the right
// binaural response, on one amplitude axis symmetric about 0 up to their largest magnitude,
// and the echogram in dB, from its loudest image (rounded up to 10 dB) down 60 dB. All three
// share one time axis in milliseconds, from 0 to the last sample of the longer of the
// response and the echogram. Every axis ends on a tick, ticks fall on round numbers (1, 2 or 5
// times a power of ten) and every axis is named with its unit.
#pragma once

#include <string>

struct SResponsePlot {
    const float *pfLeft = nullptr;
    const float *pfRight = nullptr;
    int iLength = 0;  // samples of left and right
    const float *pfEchogram = nullptr;
    int iEchogramLength = 0;
    int iSampleRate = 44100;
    float fRT60 = 0.0f;  // s, for the caption
    int iImagesTotal = 0;
    int iImagesUsed = 0;
};

// 0 when the file is written; -1 when it can't be (nothing is left half-written: the file
// goes through a temporary name).
int WriteResponsePlot(const std::string &strPath, const SResponsePlot &plot);
