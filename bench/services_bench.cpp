// The loudspeaker canceller and the late part, each beside its reference measured in the same
// run: the canceller against the raw work its design allows per block (two forward and four
// inverse transforms of its N and four spectrum products), the late part of one source against
// one 512-tap HRTF convolution at block 8192.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

#include "binaural/CQUENDARIC_Service_CrossTalk.h"
#include "binaural/CSERVICE_OVERLAP_HRTF.h"
#include "services/CLatePart.h"

namespace {
constexpr int kRate = 44100;

// A set of two 128-tap measurements (the canceller's set is cut to 128 taps): one for the
// left half of the circle, one for the right.
std::unique_ptr<CHELPER_HRTF> speakerSet() {
    auto set = std::make_unique<CHELPER_HRTF>();
    set->m_iMeasurements = 2;
    set->m_iFileTaps = set->m_iTaps = 128;
    set->m_iFileRate = set->m_iSampleRate = kRate;
    set->m_pfData.Allocate(2 * 2 * 128);
    for (int i = 0; i < set->DataLength(); ++i) {
        set->m_pfData[i] = std::sin(0.3f * i) * std::exp(-0.05f * (i % 128));
    }
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = i < 180 * CHELPER_HRTF::kElevations ? 0 : 1;
    }
    return set;
}

std::vector<float> noiseBlock(int n) {
    std::vector<float> v(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        v[static_cast<size_t>(i)] = std::sin(0.731f * i) * 1000.0f;
    }
    return v;
}

void BM_CrossTalkBlock(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    auto set = speakerSet();
    CQUENDARIC_Service_CrossTalk ctc;
    ctc.Initialize(set.get(), 30, 0, 1, 330, 0, 1, n, 1024, kRate, 6.0f);
    std::vector<float> block = noiseBlock(2 * n);
    for (auto _ : state) {
        ctc.GetSamples(set.get(), 30, 0, 1, 330, 0, 1, n, 1024, block.data(), n, kRate, 6.0f);
        benchmark::DoNotOptimize(block.data());
    }
    state.counters["N"] = ctc.m_iFFTLength;
}
BENCHMARK(BM_CrossTalkBlock)->Arg(512)->Arg(8192)->Unit(benchmark::kMicrosecond);

// What a block of the canceller may cost: 2 forward, 4 inverse transforms of the N it uses at
// that block, and 4 spectrum products.
void BM_CrossTalkAllowance(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    auto set = speakerSet();
    CQUENDARIC_Service_CrossTalk ctc;
    ctc.Initialize(set.get(), 30, 0, 1, 330, 0, 1, n, 1024, kRate, 6.0f);
    const int N = ctc.m_iFFTLength;
    IppsFFTSpec_R_32f *spec = nullptr;
    ippsFFTInitAlloc_R_32f(&spec, ctc.m_iFFTOrder, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    CIppBuffer x(N), y(N), h(N), p(N);
    std::vector<float> source = noiseBlock(N);
    ippsCopy_32f(source.data(), h, N);
    for (auto _ : state) {
        for (int i = 0; i < 2; ++i) {
            ippsCopy_32f(source.data(), x, N);
            ippsFFTFwd_RToPack_32f(x, x, spec, nullptr);
        }
        for (int i = 0; i < 4; ++i) {
            ippsMulPack_32f(h, x, p, N);
            ippsFFTInv_PackToR_32f(p, y, spec, nullptr);
        }
        benchmark::DoNotOptimize(y.get());
    }
    ippsFFTFree_R_32f(spec);
}
BENCHMARK(BM_CrossTalkAllowance)->Arg(512)->Arg(8192)->Unit(benchmark::kMicrosecond);

// One source's late part at block 8192: both ears' reverbs and the dry and wet mix, tuned for
// a 1 s room.
void BM_LatePartBlock(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    SLateField field;
    field.fRT60 = 1.0f;
    const float delays[6] = {0.0058f, 0.0071f, 0.0093f, 0.0117f, 0.0132f, 0.0151f};
    std::copy(delays, delays + 6, field.afEarlyDelays);
    field.fOnset = 2000.0f;
    CQUENDARIC_Service_Reverb left, right;
    CLatePart::Initialize(field, kRate, left, right);
    std::vector<float> early = noiseBlock(2 * n);
    std::vector<float> out(early.size());
    CIppBuffer scratch;
    for (auto _ : state) {
        CLatePart::Process(early.data(), out.data(), n, 0.9f, left, right, scratch);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_LatePartBlock)->Arg(8192)->Unit(benchmark::kMicrosecond);

// The reference: one 512-tap HRTF convolution (both ears) of a block of 8192.
void BM_Hrtf512Convolution(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    std::vector<float> left = noiseBlock(512), right = noiseBlock(512);
    CSERVICE_OVERLAP_HRTF conv;
    conv._init(left.data(), right.data(), 512, n);
    std::vector<float> in = noiseBlock(n);
    std::vector<float> out(2 * static_cast<size_t>(n));
    for (auto _ : state) {
        conv._process(in.data(), n, out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Hrtf512Convolution)->Arg(8192)->Unit(benchmark::kMicrosecond);
}  // namespace
