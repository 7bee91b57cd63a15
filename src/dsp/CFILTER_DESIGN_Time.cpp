// The time-domain designers: the adaptive and least-squares inverses, the Toeplitz pair and
// the circular shifts.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dsp/CFILTER_DESIGN.h"
#include "dsp/FilterDesignSupport.h"
#include "dsp/ipps.h"

using qk::design::Replace;

namespace {
// Uniform noise in -1 .. 1 from the process's random sequence, fifteen bits at a time as the
// runtime the designer was written for gave them.
float uniformNoise() {
    return 2.0f * static_cast<float>(std::rand() & 0x7FFF) / 32767.0f - 1.0f;
}
}  // namespace

void CFILTER_DESIGN::InvertLMS(float *pfIn, int iLength, float **ppfOut, int *piTaps,
                               int iNoiseLength, int iDelay, float fMu, int iPasses) {
    if (pfIn == nullptr || ppfOut == nullptr || piTaps == nullptr || iLength < 1 ||
        iNoiseLength < 1 || *piTaps < 1) {
        return;
    }
    std::vector<float> noise(static_cast<size_t>(iNoiseLength));
    for (float &x : noise) {
        x = uniformNoise();
    }
    // The target is the noise delayed by the response's length, silent before iDelay. Where
    // iDelay is shorter than the response the target would reach before the noise starts;
    // those samples are silent too.
    std::vector<float> desired(static_cast<size_t>(iNoiseLength), 0.0f);
    for (int i = std::max(iDelay, iLength); i < iNoiseLength; ++i) {
        desired[static_cast<size_t>(i)] = noise[static_cast<size_t>(i - iLength)];
    }
    std::vector<float> filtered(static_cast<size_t>(iNoiseLength) + static_cast<size_t>(iLength) -
                                1);
    ippsConv_32f(noise.data(), iNoiseLength, pfIn, iLength, filtered.data());

    IppsFIRLMSState_32f *state = nullptr;
    ippsFIRLMSInitAlloc_32f(&state, nullptr, *piTaps, nullptr, 0);
    std::vector<float> scratch(static_cast<size_t>(iNoiseLength));
    for (int pass = 0; pass < iPasses; ++pass) {
        ippsFIRLMS_32f(filtered.data(), desired.data(), scratch.data(), iNoiseLength, fMu, state);
    }
    Replace(*ppfOut, *piTaps);
    ippsFIRLMSGetTaps_32f(state, *ppfOut);
    ippsFIRLMSFree_32f(state);
}

void CFILTER_DESIGN::InvertToeplitz(float *pfIn, int iLength, float *pfOut) {
    if (pfIn == nullptr || pfOut == nullptr || iLength < 1) {
        return;
    }
    std::vector<float> lags(static_cast<size_t>(iLength));
    ippsAutoCorr_32f(pfIn, iLength, lags.data(), iLength);
    float *matrix = nullptr;
    int elements = 0;
    MakeToeplitz(lags.data(), iLength, matrix, elements);
    if (matrix != nullptr) {
        InvertMatrix(matrix, iLength);
        std::memcpy(pfOut, matrix, sizeof(float) * static_cast<size_t>(iLength));
    }
    ippsFree(matrix);
}

void CFILTER_DESIGN::MakeToeplitz(float *pfRow, int iSize, float *&pfMatrix, int &iElements) {
    const bool fits = iSize >= 1 && static_cast<long long>(iSize) * iSize <= INT_MAX;
    iElements = fits ? iSize * iSize : 0;
    Replace(pfMatrix, pfRow != nullptr ? iElements : 0);
    if (pfMatrix == nullptr) {
        iElements = 0;
        return;
    }
    for (int i = 0; i < iSize; ++i) {
        for (int j = 0; j < iSize; ++j) {
            pfMatrix[static_cast<size_t>(i) * iSize + j] = pfRow[std::abs(i - j)];
        }
    }
}

void CFILTER_DESIGN::InvertMatrix(float *&pfMatrix, int iSize) {
    if (pfMatrix == nullptr || iSize < 1 || static_cast<long long>(iSize) * iSize > INT_MAX) {
        return;
    }
    // Worked in double: the same steps, with less rounding on matrices of a few hundred rows.
    const size_t n = static_cast<size_t>(iSize);
    std::vector<double> a(pfMatrix, pfMatrix + n * n);
    std::vector<double> inverse(n * n, 0.0);
    for (size_t i = 0; i < n; ++i) {
        inverse[i * n + i] = 1.0;
    }
    for (size_t i = 0; i < n; ++i) {
        const double pivot = a[i * n + i];
        for (size_t j = 0; j < n; ++j) {
            a[i * n + j] /= pivot;
            inverse[i * n + j] /= pivot;
        }
        for (size_t r = 0; r < n; ++r) {
            const double factor = a[r * n + i];
            if (r == i) {
                continue;
            }
            for (size_t j = 0; j < n; ++j) {
                a[r * n + j] -= factor * a[i * n + j];
                inverse[r * n + j] -= factor * inverse[i * n + j];
            }
        }
    }
    for (size_t k = 0; k < n * n; ++k) {
        pfMatrix[k] = static_cast<float>(inverse[k]);
    }
}

void CFILTER_DESIGN::Rotate(float *pfIn, int iLength, int iShift, float *pfOut) {
    if (pfIn == nullptr || pfOut == nullptr || iLength < 1) {
        return;
    }
    if (iShift < 1) {
        iShift += iLength;
    }
    // Any shift left outside 1 .. iLength is the same turn taken modulo the length.
    iShift = ((iShift - 1) % iLength + iLength) % iLength + 1;
    std::memset(pfOut, 0, sizeof(float) * static_cast<size_t>(iLength));
    for (int k = 0; k < iShift; ++k) {
        pfOut[k] = pfIn[iLength - iShift + k];
    }
    for (int k = iShift; k < iLength; ++k) {
        pfOut[k] = pfIn[k - iShift];
    }
}

void CFILTER_DESIGN::RotateInPlace(float *pfData, int iLength, int iShift) {
    if (pfData == nullptr || iLength < 1) {
        return;
    }
    std::vector<float> copy(pfData, pfData + iLength);
    Rotate(copy.data(), iLength, iShift, pfData);
}
