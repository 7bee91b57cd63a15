// The partitioned convolver at low latency with a long room response: block 256 and a
// 1.5-second response (66,150 taps) per source, beside a plain uniformly partitioned
// convolution written here with FFTW alone (one forward transform a block, the multiply-adds
// over the partitions, one inverse per ear). Also the convolver adding into a listener's
// spectrum sums, where the inverse transforms are shared by all sources.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <complex>
#include <vector>

#include "binaural/CFrequencyMix.h"
#include "binaural/CSERVICE_PARTITIONED_HRTF.h"
#include "platform/Vectorize.h"

namespace {
constexpr int kBlock = 256;
constexpr int kTaps = 66150;

std::vector<float> decaying(int n, float phase) {
    std::vector<float> h(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        h[static_cast<size_t>(i)] = std::sin(phase + 0.37f * i) * std::exp(-6.9f * i / n);
    }
    return h;
}

// acc += x * h, complex, written out (std::complex's product checks for infinities at -O2)
// and vectorized as the library's own loops are.
QK_VECTORIZE_WIDE void macPlain(const float *__restrict x, const float *__restrict h,
                                float *__restrict acc, int floats) {
    for (int f = 0; f < floats; f += 2) {
        acc[f] += x[f] * h[f] - x[f + 1] * h[f + 1];
        acc[f + 1] += x[f] * h[f + 1] + x[f + 1] * h[f];
    }
}

void BM_Partitioned(benchmark::State &state) {
    const std::vector<float> l = decaying(kTaps, 0.1f), r = decaying(kTaps, 0.7f);
    CSERVICE_PARTITIONED_HRTF conv;
    conv.SetResponse(l.data(), r.data(), kTaps, kBlock);
    std::vector<float> in = decaying(kBlock, 0.3f), out(2 * kBlock);
    for (auto _ : state) {
        conv._process(in.data(), kBlock, out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Partitioned);

// Into the listener's sums: the per-source part of a block when the inverse transforms are
// the listener's (begun and finished outside the timed loop's per-source work, once a block).
void BM_PartitionedIntoMix(benchmark::State &state) {
    const std::vector<float> l = decaying(kTaps, 0.1f), r = decaying(kTaps, 0.7f);
    CSERVICE_PARTITIONED_HRTF conv;
    conv.SetResponse(l.data(), r.data(), kTaps, kBlock);
    CFrequencyMix mix;
    mix.Begin(kBlock);
    std::vector<float> in = decaying(kBlock, 0.3f);
    for (auto _ : state) {
        conv._processInto(in.data(), kBlock, mix, 1.0f);
    }
    mix.Abandon();
}
BENCHMARK(BM_PartitionedIntoMix);

// The reference: the same algorithm with FFTW and nothing else.
void BM_PlainFftwPartitioned(benchmark::State &state) {
    const int P = kBlock, N = 2 * P, bins = N / 2 + 1;
    const int K = (kTaps + P - 1) / P;
    using C = std::complex<float>;
    std::vector<C> hl(static_cast<size_t>(K * bins)), hr(hl.size()), fdl(hl.size());
    float *time = fftwf_alloc_real(static_cast<size_t>(N));
    fftwf_complex *spec = fftwf_alloc_complex(static_cast<size_t>(bins));
    fftwf_plan fwd = fftwf_plan_dft_r2c_1d(N, time, spec, FFTW_ESTIMATE);
    fftwf_plan inv = fftwf_plan_dft_c2r_1d(N, spec, time, FFTW_ESTIMATE);
    const std::vector<float> l = decaying(kTaps, 0.1f), r = decaying(kTaps, 0.7f);
    for (int k = 0; k < K; ++k) {
        for (int ear = 0; ear < 2; ++ear) {
            std::fill(time, time + N, 0.0f);
            for (int i = 0; i < P && k * P + i < kTaps; ++i) {
                time[i] = (ear == 0 ? l : r)[static_cast<size_t>(k * P + i)];
            }
            fftwf_execute(fwd);
            C *h = (ear == 0 ? hl : hr).data() + k * bins;
            for (int b = 0; b < bins; ++b) {
                h[b] = C(spec[b][0], spec[b][1]);
            }
        }
    }
    std::vector<float> window(static_cast<size_t>(N), 0.0f), in = decaying(P, 0.3f),
                                                             out(2 * static_cast<size_t>(P));
    std::vector<C> sum(static_cast<size_t>(bins));
    int newest = 0;
    for (auto _ : state) {
        std::copy(window.begin() + P, window.end(), window.begin());
        std::copy(in.begin(), in.end(), window.begin() + P);
        std::copy(window.begin(), window.end(), time);
        fftwf_execute(fwd);
        newest = newest == 0 ? K - 1 : newest - 1;
        C *x0 = fdl.data() + newest * bins;
        for (int b = 0; b < bins; ++b) {
            x0[b] = C(spec[b][0], spec[b][1]);
        }
        for (int ear = 0; ear < 2; ++ear) {
            const C *h = (ear == 0 ? hl : hr).data();
            std::fill(sum.begin(), sum.end(), C());
            float *acc = reinterpret_cast<float *>(sum.data());
            for (int k = 0; k < K; ++k) {
                macPlain(reinterpret_cast<const float *>(fdl.data() + ((newest + k) % K) * bins),
                         reinterpret_cast<const float *>(h + k * bins), acc, 2 * bins);
            }
            for (int b = 0; b < bins; ++b) {
                spec[b][0] = sum[static_cast<size_t>(b)].real() / N;
                spec[b][1] = sum[static_cast<size_t>(b)].imag() / N;
            }
            fftwf_execute(inv);
            std::copy(time + P, time + N, out.begin() + ear * P);
        }
        benchmark::DoNotOptimize(out.data());
    }
    fftwf_destroy_plan(fwd);
    fftwf_destroy_plan(inv);
    fftwf_free(time);
    fftwf_free(spec);
}
BENCHMARK(BM_PlainFftwPartitioned);
}  // namespace
