// Independent references for checking the signal layer: a direct DFT and direct convolutions,
// in double precision and without any transform of the library under test.
#pragma once

#include <complex>
#include <vector>

namespace qktest {

// X[k] = sum over n of x[n] e^(-2 pi i k n / N), for k = 0 .. N - 1.
std::vector<std::complex<double>> DirectDft(const std::vector<float> &x);

// y[n] = sum over k of a[k] b[(n - k) mod N], both of length N.
std::vector<double> CircularConvolution(const std::vector<float> &a, const std::vector<float> &b);

// Sample t of x convolved with h, over the lags 0 .. maxLag and the input from sample `from`
// on only.
double ConvolveAt(const std::vector<float> &x, const std::vector<float> &h, int t, int from = 0,
                  int maxLag = 1 << 30);

// The whole linear convolution of a and b, na + nb - 1 samples.
std::vector<double> LinearConvolution(const float *a, int na, const float *b, int nb);

// The power of one frequency in a run of samples (Goertzel).
double TonePower(const std::vector<float> &x, double hz, double rate);

// Reproducible uniform noise in -1 .. 1.
std::vector<float> Noise(int length, unsigned seed);

}  // namespace qktest
