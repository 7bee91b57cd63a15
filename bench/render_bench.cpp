// One virtual source's block in the steady state (no rebuild: one mono copy, one fast
// convolution, the level by distance and the mix into the listener) beside the transform
// work that any unpartitioned fast convolution of the same length must do. Both run at block
// 8192 and at block 512, with a 512-tap response: N = 16384 and N = 1024.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "dsp/IppBuffer.h"
#include "render/CQUENDARIC_Object_Sink.h"
#include "render/CQUENDARIC_Object_Source_Sound.h"
#include "settings/CEngineContext.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "sources/CSOURCE.h"

namespace {
constexpr int kTaps = 512;
constexpr int kRate = 44100;

// The settings object stores its file when it goes; that file goes to a scratch folder.
void scratchSettingsFolder() {
    static const bool done = [] {
        char folder[] = "/tmp/qk_render_bench_XXXXXX";
        if (mkdtemp(folder) != nullptr) {
            setenv("QK_SETTINGS_DIR", folder, 1);
        }
        return true;
    }();
    (void)done;
}

// A set of the KEMAR import's shape: 512-tap responses at 44,100 Hz, every direction named.
std::unique_ptr<CHELPER_HRTF> kemarSizedSet() {
    auto set = std::make_unique<CHELPER_HRTF>();
    set->m_iMeasurements = 16;
    set->m_iFileTaps = set->m_iTaps = kTaps;
    set->m_iFileRate = set->m_iSampleRate = kRate;
    set->m_pfData.Allocate(16 * 2 * kTaps);
    for (int i = 0; i < set->DataLength(); ++i) {
        set->m_pfData[i] = std::sin(0.01f * i) * std::exp(-0.01f * (i % kTaps));
    }
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = i % 16;
    }
    return set;
}

class StereoSound : public CSOURCE {
  public:
    explicit StereoSound(int n) {
        m_iSource_Channels = 2;
        _adjustDataBuffer(2 * n);
        for (int i = 0; i < 2 * n; ++i) {
            m_pfData[i] = 1000.0f * std::sin(0.05f * i);
        }
    }
};

void BM_SoundObjectBlock(benchmark::State &state) {
    scratchSettingsFolder();
    const int n = static_cast<int>(state.range(0));
    CQUENDARIC_PARAMETERS params;
    CEngineContext context(params);
    context.m_pHRTF = kemarSizedSet();
    CQUENDARIC_Object_Sink listener;
    StereoSound sound(n);
    CQUENDARIC_Object_Source_Sound object(&params, &context, C3Point(2.0, 1.0, 0.5, 0), "bench");
    object.m_pSSS_Source = &sound;
    object.m_iAudioLink = 0;
    listener._adjustDataBuffer(2 * n);
    // The first blocks initialise, rebuild and cross-fade; then the steady state.
    for (int b = 0; b < 3; ++b) {
        object.m_pSink = &listener;
        object._process(n, kRate);
        listener.m_iMoved = 0;
        params.m_iWorldChanged = 0;
    }
    for (auto _ : state) {
        object.m_pSink = &listener;
        object.m_iRecalculate = 0;
        object._process(n, kRate);
        benchmark::DoNotOptimize(listener.m_pfData.get());
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_SoundObjectBlock)->Arg(8192)->Arg(512)->Unit(benchmark::kMicrosecond);

// The same N through the signal layer: one forward transform of the padded block and one
// inverse per ear (with /products, also the two spectrum products).
void rawConvolution(benchmark::State &state, bool bProducts) {
    const int n = static_cast<int>(state.range(0));
    const int order = static_cast<int>(std::ceil(std::log2(static_cast<double>(kTaps - 1 + n))));
    const int N = 1 << order;
    IppsFFTSpec_R_32f *transform = nullptr;
    ippsFFTInitAlloc_R_32f(&transform, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    CIppBuffer input(N), spectrum(N), left(N), right(N), product(N), time(N);
    for (int i = 0; i < N; ++i) {
        input[i] = i < n ? std::sin(0.05f * i) : 0.0f;
        left[i] = std::cos(0.01f * i);
        right[i] = std::sin(0.02f * i);
    }
    for (auto _ : state) {
        ippsFFTFwd_RToPack_32f(input, spectrum, transform, nullptr);
        for (const float *ear : {left.get(), right.get()}) {
            if (bProducts) {
                ippsMulPack_32f(spectrum, ear, product, N);
                ippsFFTInv_PackToR_32f(product, time, transform, nullptr);
            } else {
                ippsFFTInv_PackToR_32f(ear, time, transform, nullptr);
            }
        }
        benchmark::DoNotOptimize(time.get());
    }
    state.SetItemsProcessed(state.iterations() * n);
    ippsFFTFree_R_32f(transform);
}

void BM_RawTransforms(benchmark::State &state) {
    rawConvolution(state, false);
}
BENCHMARK(BM_RawTransforms)->Arg(8192)->Arg(512)->Unit(benchmark::kMicrosecond);

void BM_RawTransformsAndProducts(benchmark::State &state) {
    rawConvolution(state, true);
}
BENCHMARK(BM_RawTransformsAndProducts)->Arg(8192)->Arg(512)->Unit(benchmark::kMicrosecond);
}  // namespace
