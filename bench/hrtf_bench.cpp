// HRTF sets: one lookup, and the synthesis of a reflection list into a binaural response.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "BenchSets.h"
#include "binaural/CHELPER_HRTF.h"

namespace {

void BM_HrtfLookupAtFileRate(benchmark::State &state) {
    auto set = qkbench::KemarSizedSet(44100);
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
    float az = 0.0f;
    for (auto _ : state) {
        set->GetHRTF(left, right, length, az, 10.0f, 44100);
        benchmark::DoNotOptimize(left);
        az = std::fmod(az + 37.0f, 360.0f);
    }
    ippsFree(left);
    ippsFree(right);
}
BENCHMARK(BM_HrtfLookupAtFileRate);

// The same lookup for a set at 48,000 Hz asked for at 44,100 Hz: both ears pass libsamplerate.
void BM_HrtfLookupResampled(benchmark::State &state) {
    auto set = qkbench::KemarSizedSet(48000);
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
    for (auto _ : state) {
        set->GetHRTF(left, right, length, 30.0f, 10.0f, 44100);
        benchmark::DoNotOptimize(left);
    }
    ippsFree(left);
    ippsFree(right);
}
BENCHMARK(BM_HrtfLookupResampled)->Unit(benchmark::kMicrosecond);

// 100 reflections spread over 100 ms, each with its own 63-tap reflection filter, into one
// binaural response at the file's rate.
void BM_ReflectionSynthesis(benchmark::State &state) {
    auto set = qkbench::KemarSizedSet(44100);
    constexpr int kCount = 100;
    constexpr int kFilterTaps = 63;
    std::vector<float> az(kCount), el(kCount), delays(kCount), gains(kCount);
    std::vector<float> coefs(kCount * kFilterTaps);
    std::vector<int> lengths(kCount, kFilterTaps);
    for (int i = 0; i < kCount; ++i) {
        az[i] = static_cast<float>((i * 53) % 360);
        el[i] = static_cast<float>((i * 17) % 121 - 60);
        delays[i] = static_cast<float>(i);  // ms
        gains[i] = 1.0f / (1.0f + i);
    }
    for (size_t k = 0; k < coefs.size(); ++k) {
        coefs[k] = std::exp(-0.1f * static_cast<float>(k % kFilterTaps)) * 0.2f;
    }
    float *left = nullptr;
    float *right = nullptr;
    int length = 0;
    for (auto _ : state) {
        set->GetHRTF(left, right, length, az.data(), el.data(), delays.data(), gains.data(),
                     coefs.data(), lengths.data(), kCount, 0, 44100);
        benchmark::DoNotOptimize(left);
    }
    ippsFree(left);
    ippsFree(right);
}
BENCHMARK(BM_ReflectionSynthesis)->Unit(benchmark::kMillisecond);
}  // namespace
