// Makes an HRTF set from an AES69 (SOFA) file of free-field head-related impulse responses,
// read through libmysofa. The set holds the file's measurements in file order, both ears
// ("BOTH"), and a lookup table that names, for every whole-degree direction, the measured
// direction nearest to it on the sphere.
//
// The direction convention is the same on both sides: azimuth 0 ahead, rising anticlockwise
// seen from above (90 on the left), elevation positive upwards. The left ear is the receiver
// on the +y side.
#pragma once

#include <string>

#include "binaural/CHELPER_HRTF.h"

namespace qk {

struct SofaImportOptions {
    int iTaps = 0;                    // 0: as measured; else cut (with a short fade) or padded
    int iSampleRate = 0;              // 0: as measured; else resampled to this rate in Hz
    std::string strDataType = "32f";  // sample type of the file to be written: "32f" or "16s"
};

// Fills set from the SOFA file. Returns 0, or -1 with a sentence in strError saying why the
// file can't be used; the set is then unchanged.
int ImportSofa(const std::string &strPath, const SofaImportOptions &options, CHELPER_HRTF &set,
               std::string &strError);

// Fills the lookup table (and table A, which is given the same contents) with the nearest of
// the measured directions (degrees; iCount of them) for every whole-degree direction. Ties go
// to the earlier measurement.
void FillNearestDirections(CHELPER_HRTF &set, const float *pfAzimuths, const float *pfElevations,
                           int iCount);

}  // namespace qk
