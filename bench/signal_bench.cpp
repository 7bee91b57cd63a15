// One source's convolution block through the signal layer - a forward transform to Pack, two
// Pack products (left and right responses) and two inverse transforms - against the same
// work written directly on FFTW with the same planner flags. The layer should cost at most
// a tenth more than the direct code.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cstring>
#include <vector>

#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"
#include "dsp/ipps_simd.h"

namespace {

void fillNoise(float *p, int n, unsigned seed) {
    unsigned state = seed;
    for (int i = 0; i < n; ++i) {
        state = state * 1664525u + 1013904223u;
        p[i] = static_cast<float>(state >> 8) / 16777216.0f - 0.5f;
    }
}

void BM_LayerBlock(benchmark::State &state) {
    const int order = static_cast<int>(state.range(0));
    const int n = 1 << order;
    IppsFFTSpec_R_32f *spec = nullptr;
    ippsFFTInitAlloc_R_32f(&spec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    CIppBuffer x(n), spectrum(n), left(n), right(n), yl(n), yr(n), outL(n), outR(n);
    fillNoise(x, n, 1);
    fillNoise(outL, n, 2);
    fillNoise(outR, n, 3);
    ippsFFTFwd_RToPack_32f(outL, left, spec, nullptr);
    ippsFFTFwd_RToPack_32f(outR, right, spec, nullptr);
    for (auto _ : state) {
        ippsFFTFwd_RToPack_32f(x, spectrum, spec, nullptr);
        ippsMulPack_32f(spectrum, left, yl, n);
        ippsMulPack_32f(spectrum, right, yr, n);
        ippsFFTInv_PackToR_32f(yl, outL, spec, nullptr);
        ippsFFTInv_PackToR_32f(yr, outR, spec, nullptr);
        benchmark::DoNotOptimize(outL.get());
        benchmark::DoNotOptimize(outR.get());
        benchmark::ClobberMemory();
    }
    ippsFFTFree_R_32f(spec);
}

// out = a * b * scale, over the N/2 + 1 complex values of a real transform: the product with
// the inverse's 1/N folded in, vectorised the way the layer's own kernels are (eight floats,
// an AVX2 build beside the baseline), so that the comparison measures what the layer adds
// around the transforms.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__SANITIZE_ADDRESS__)
__attribute__((target_clones("avx2", "default")))
#endif
void multiply(const fftwf_complex *a, const fftwf_complex *b, fftwf_complex *out, int bins,
              float scale) {
    typedef float Float8 __attribute__((vector_size(32)));
    const Float8 s = {scale, scale, scale, scale, scale, scale, scale, scale};
    const Float8 sign = {-scale, scale, -scale, scale, -scale, scale, -scale, scale};
    int k = 0;
    for (; k + 4 <= bins; k += 4) {
        Float8 x;
        Float8 y;
        std::memcpy(&x, a[k], sizeof(x));
        std::memcpy(&y, b[k], sizeof(y));
        const Float8 yRe = __builtin_shufflevector(y, y, 0, 0, 2, 2, 4, 4, 6, 6);
        const Float8 yIm = __builtin_shufflevector(y, y, 1, 1, 3, 3, 5, 5, 7, 7);
        const Float8 xSwapped = __builtin_shufflevector(x, x, 1, 0, 3, 2, 5, 4, 7, 6);
        const Float8 product = x * yRe * s + xSwapped * yIm * sign;
        std::memcpy(out[k], &product, sizeof(product));
    }
    for (; k < bins; ++k) {
        out[k][0] = (a[k][0] * b[k][0] - a[k][1] * b[k][1]) * scale;
        out[k][1] = (a[k][0] * b[k][1] + a[k][1] * b[k][0]) * scale;
    }
}

void BM_RawFFTWBlock(benchmark::State &state) {
    const int order = static_cast<int>(state.range(0));
    const int n = 1 << order;
    const int bins = n / 2 + 1;
    float *x = fftwf_alloc_real(n);
    float *outL = fftwf_alloc_real(n);
    float *outR = fftwf_alloc_real(n);
    fftwf_complex *spectrum = fftwf_alloc_complex(bins);
    fftwf_complex *left = fftwf_alloc_complex(bins);
    fftwf_complex *right = fftwf_alloc_complex(bins);
    fftwf_complex *yl = fftwf_alloc_complex(bins);
    fftwf_complex *yr = fftwf_alloc_complex(bins);
    fftwf_plan forward = fftwf_plan_dft_r2c_1d(n, x, spectrum, FFTW_ESTIMATE);
    fftwf_plan inverseL = fftwf_plan_dft_c2r_1d(n, yl, outL, FFTW_ESTIMATE);
    fftwf_plan inverseR = fftwf_plan_dft_c2r_1d(n, yr, outR, FFTW_ESTIMATE);
    fillNoise(outL, n, 2);
    fftwf_execute_dft_r2c(forward, outL, left);
    fillNoise(outR, n, 3);
    fftwf_execute_dft_r2c(forward, outR, right);
    fillNoise(x, n, 1);
    const float scale = 1.0f / static_cast<float>(n);
    for (auto _ : state) {
        fftwf_execute(forward);
        multiply(spectrum, left, yl, bins, scale);
        multiply(spectrum, right, yr, bins, scale);
        fftwf_execute(inverseL);
        fftwf_execute(inverseR);
        benchmark::DoNotOptimize(outL);
        benchmark::DoNotOptimize(outR);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(forward);
    fftwf_destroy_plan(inverseL);
    fftwf_destroy_plan(inverseR);
    for (void *p : {static_cast<void *>(x), static_cast<void *>(outL), static_cast<void *>(outR),
                    static_cast<void *>(spectrum), static_cast<void *>(left),
                    static_cast<void *>(right), static_cast<void *>(yl), static_cast<void *>(yr)}) {
        fftwf_free(p);
    }
}

}  // namespace

BENCHMARK(BM_LayerBlock)->Arg(10)->Arg(14)->Arg(15);
BENCHMARK(BM_RawFFTWBlock)->Arg(10)->Arg(14)->Arg(15);
