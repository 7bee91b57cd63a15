#include "support/SignalReference.h"

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
