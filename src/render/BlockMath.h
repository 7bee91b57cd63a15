// The few vector loops of the sound object's block, written so that the compiler vectorizes
// them (see platform/Vectorize.h). Lengths in floats; the arrays must not overlap.
#pragma once

namespace qk {

// pf[0 .. n) *= fGain.
void ScaleBlock(float *pf, int n, float fGain);
// pfDst[0 .. n) = pfSrc[0 .. n) * fGain.
void CopyScaled(const float *pfSrc, float *pfDst, int n, float fGain);
// pfDst[0 .. n) += pfSrc[0 .. n).
void AddBlock(const float *pfSrc, float *pfDst, int n);

}  // namespace qk
