// The diagnostic graph of a rebuilt response, written as an SVG file: the left and the right
// binaural response (-0.3 to 0.3) and the echogram in dB (-80 to 0, values below 0.0001
// taken as 0.0001), each against time in milliseconds from 0 to its last sample.
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
