#include "support/SignalReference.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace qktest {

std::vector<std::complex<double>> DirectDft(const std::vector<float> &x) {
    const size_t n = x.size();
    std::vector<std::complex<double>> out(n);
    for (size_t k = 0; k < n; ++k) {
        std::complex<double> sum = 0.0;
        for (size_t t = 0; t < n; ++t) {
            // Reduce k t modulo N first: the angle stays small and exact for large N.
            const double angle =
                -2.0 * M_PI * static_cast<double>((k * t) % n) / static_cast<double>(n);
            sum += static_cast<double>(x[t]) * std::polar(1.0, angle);
        }
        out[k] = sum;
    }
    return out;
}

std::vector<double> CircularConvolution(const std::vector<float> &a, const std::vector<float> &b) {
    const size_t n = a.size();
    std::vector<double> out(n, 0.0);
    for (size_t i = 0; i < n; ++i) {
        for (size_t k = 0; k < n; ++k) {
            out[i] += static_cast<double>(a[k]) * b[(i + n - k) % n];
        }
    }
    return out;
}

double ConvolveAt(const std::vector<float> &x, const std::vector<float> &h, int t, int from,
                  int maxLag) {
    double sum = 0.0;
    const int last = std::min(maxLag, static_cast<int>(h.size()) - 1);
    for (int lag = 0; lag <= last && t - lag >= from; ++lag) {
        sum += static_cast<double>(h[static_cast<size_t>(lag)]) * x[static_cast<size_t>(t - lag)];
    }
    return sum;
}

std::vector<double> LinearConvolution(const float *a, int na, const float *b, int nb) {
    std::vector<double> out(static_cast<size_t>(na + nb - 1), 0.0);
    for (int i = 0; i < na; ++i) {
        for (int j = 0; j < nb; ++j) {
            out[static_cast<size_t>(i + j)] += static_cast<double>(a[i]) * b[j];
        }
    }
    return out;
}

double TonePower(const std::vector<float> &x, double hz, double rate) {
    const double w = 2.0 * M_PI * hz / rate;
    double s1 = 0.0, s2 = 0.0;
    for (float v : x) {
        const double s0 = v + 2.0 * std::cos(w) * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return s1 * s1 + s2 * s2 - 2.0 * std::cos(w) * s1 * s2;
}

std::vector<float> Noise(int length, unsigned seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> out(static_cast<size_t>(length));
    for (float &v : out) {
        v = uniform(generator);
    }
    return out;
}

}  // namespace qktest
