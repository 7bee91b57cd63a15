// The off-line filter designers: a frequency-sampling FIR designer, several ways of inverting
// an impulse response, a minimum-phase transformation and the small operations they need.
// None of this runs in the block path: every call allocates and frees its own scratch.
//
// Responses are float arrays with a length in samples. An output of the form float *& belongs
// to the caller: the designer frees (ippsFree) what it points to, if anything, and leaves there
// a new array from ippsMalloc_32f. All transforms are the real transforms of the signal layer
// with the inverse divided by N.
#pragma once

class CFILTER_DESIGN {
  public:
    // Written into the module for the one way FIR2 fails; the caller sees the null pfOut.
    static constexpr const char *kFIR2Failure =
        "FIR2: Too abrupt an amplitude change near end of frequency interval";

    // Linear-phase FIR of iOrder + 1 taps by frequency sampling with a Hamming window.
    // pfFreq: iPoints ascending frequencies, 1.0 at half the sample rate, from 0 to 1;
    // pfAmp: the magnitude at each. A zero-width interval marks a jump, which is smeared over
    // a few grid points. pfOut is null after a failure: a jump too near either end of the
    // grid, an order above what the transforms reach, or 513 to 1023 taps, which the grid of
    // 512 points cannot give. The grid's phase slope belongs to a transform of twice the length
    // that is used; the filters this gives are the ones the system's materials and equalisers
    // were tuned with, so it stays.
    void FIR2(int iOrder, float *pfFreq, float *pfAmp, int iPoints, float *&pfOut);

    // Inverse filter whose magnitude stays within iDynamic dB (taken as +-(iDynamic / 2), integer
    // division) of the mean level between about 1/128 and 1/2 of the Nyquist frequency. With
    // iNormalise 1 the mean level is removed, so the result is centred on 0 dB. The length is
    // the power of two that holds both iLength and the iOutLength given; iOutLength returns it.
    // The result's peak is rotated to the middle.
    void InvertRegularised(float *pfIn, int iLength, int iDynamic, float *&pfOut, int &iOutLength,
                           int iNormalise);

    // Linear-phase FIR whose magnitude is the inverse of the response's, each bin's magnitude
    // first limited to fLimit .. 1 / fLimit (0.1 bounds the correction to +-20 dB). iOutLength
    // returns the length, the power of two at or above iLength (at least 2).
    void InvertMagnitude(float *pfIn, int iLength, float *&pfOut, int &iOutLength, float fLimit);

    // Adaptive inverse: *piTaps LMS taps trained iPasses times on iNoiseLength samples of
    // uniform noise filtered by the response, against the noise delayed by iLength samples and
    // silent before sample iDelay. *ppfOut is freed if set and replaced by the taps. The noise
    // continues the process's random sequence.
    void InvertLMS(float *pfIn, int iLength, float **ppfOut, int *piTaps, int iNoiseLength,
                   int iDelay, float fMu, int iPasses);

    // Least-squares inverse of iLength taps: the first row of the inverse of the Toeplitz
    // matrix of the response's autocorrelation, into pfOut (iLength floats).
    void InvertToeplitz(float *pfIn, int iLength, float *pfOut);

    // Homomorphic minimum phase. iLength becomes the power of two at or above it (N);
    // pfCepstrum gets the real cepstrum and pfOut the minimum-phase response, both in new
    // arrays of N + 2 floats of which N are used.
    void MinimumPhase(float *pfIn, int &iLength, float *&pfCepstrum, float *&pfOut);

    // In place: bins below fCorner Hz get magnitude fValue, their phase kept. iLength is
    // treated as a power of two (the transform is the next one at or above it).
    void SetLowMagnitude(float *pfData, int iLength, int iSampleRate, float fCorner, float fValue);

    // Circular shift right by iShift into pfOut. A shift under 1 gets iLength added, so 0 is a
    // full turn (the identity); shifts beyond a turn wrap round. RotateInPlace does the same
    // through a copy.
    void Rotate(float *pfIn, int iLength, int iShift, float *pfOut);
    void RotateInPlace(float *pfData, int iLength, int iShift);

    // Symmetric Toeplitz matrix, row by row: element (i, j) = pfRow[|i - j|]. iElements returns
    // iSize * iSize. A size whose square doesn't fit an int gives a null matrix and 0.
    void MakeToeplitz(float *pfRow, int iSize, float *&pfMatrix, int &iElements);

    // Inverse of an iSize x iSize matrix by Gauss-Jordan elimination without pivoting. A zero
    // on the diagonal is not guarded and gives infinities, as it always has.
    void InvertMatrix(float *&pfMatrix, int iSize);
};
