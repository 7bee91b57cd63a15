// The cost of a moving source in a room: a full rebuild of its response (images, validation,
// synthesis through a 512-tap set with 32-tap reflection filters) in the 6 x 6 x 4 m preset
// room at several orders, a listener-only move, and the reflection list of the same images
// synthesised the set's own way (a response fetched and filtered per reflection), for
// comparison.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

#include "binaural/CHELPER_HRTF.h"
#include "dsp/ipps.h"
#include "field/CSFM_ISM.h"
#include "world/CDSC_World.h"
#include "world/CWorld_Utils.h"

namespace {
constexpr int kRate = 44100;

// Shaped like the default set: 710 measurements of 512 taps, both ears.
std::unique_ptr<CHELPER_HRTF> kemarSizedSet() {
    auto set = std::make_unique<CHELPER_HRTF>();
    set->m_iMeasurements = 710;
    set->m_iFileTaps = set->m_iTaps = 512;
    set->m_iFileRate = set->m_iSampleRate = kRate;
    set->m_pfData.Allocate(710 * 2 * 512);
    for (int i = 0; i < set->DataLength(); ++i) {
        set->m_pfData[i] = std::sin(0.01f * i) * std::exp(-0.01f * (i % 512));
    }
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = (i * 7) % 710;
    }
    return set;
}

struct Room {
    Room() {
        qk::table::code4initLow(&code);
        world.m_pCode4 = &code;
        CWorld_Utils::Generate_ShoeBox(&world, "6", "6", "4");
        model = std::make_unique<CSFM_ISM>(&world);
        model->m_pCode4 = &code;
        set = kemarSizedSet();
    }
    ~Room() {
        ippsFree(mono);
        ippsFree(left);
        ippsFree(right);
        qk::table::code4initUndo(&code);
    }
    int Rebuild(C3Point source, C3Point listener, int order) {
        float peakL = 0.0f, peakR = 0.0f;
        return model->GetBinauralImpulseResponse(set.get(), mono, monoLength, left, right, length,
                                                 source, C3Point(0, 10, 1.3, 0), listener,
                                                 C3Point(-0.6, 10, 1.9, 0), "", order, 25.0f, kRate,
                                                 peakL, peakR, 0, 0, 32, 1);
    }

    qk::table::Code4 code;
    CDSC_World world;
    std::unique_ptr<CSFM_ISM> model;
    std::unique_ptr<CHELPER_HRTF> set;
    float *mono = nullptr, *left = nullptr, *right = nullptr;
    int monoLength = 0, length = 0;
};

// The source moves a millimetre every call: everything is made again.
void BM_RoomRebuild(benchmark::State &state) {
    Room room;
    const int order = static_cast<int>(state.range(0));
    float x = 1.2f;
    for (auto _ : state) {
        x = x > 1.5f ? 1.2f : x + 0.001f;
        room.Rebuild(C3Point(x, 0.3, 1.3, 0), C3Point(-0.6, -0.2, 1.9, 0), order);
        benchmark::DoNotOptimize(room.left);
    }
    state.counters["images"] = static_cast<double>(room.model->m_iImagesTotal);
    state.counters["valid"] = static_cast<double>(room.model->m_iImagesValid);
    state.counters["taps"] = static_cast<double>(room.length);
}
BENCHMARK(BM_RoomRebuild)->Arg(1)->Arg(2)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond);

// The listener moves: validation and synthesis, the images stay.
void BM_RoomListenerMove(benchmark::State &state) {
    Room room;
    const int order = static_cast<int>(state.range(0));
    float x = -0.6f;
    for (auto _ : state) {
        x = x > -0.3f ? -0.6f : x + 0.001f;
        room.Rebuild(C3Point(1.2, 0.3, 1.3, 0), C3Point(x, -0.2, 1.9, 0), order);
        benchmark::DoNotOptimize(room.left);
    }
}
BENCHMARK(BM_RoomListenerMove)->Arg(3)->Unit(benchmark::kMillisecond);

// The synthesis alone, the model's way and the set's reflection-list way, for the same
// images: the ratio of the two is what reading the set in place buys.
void BM_RoomSynthesis(benchmark::State &state) {
    Room room;
    const int order = static_cast<int>(state.range(0));
    const bool reflectionList = state.range(1) == 1;
    room.Rebuild(C3Point(1.2, 0.3, 1.3, 0), C3Point(-0.6, -0.2, 1.9, 0), order);
    const CSFM_ISM &m = *room.model;
    const int n = static_cast<int>(m.m_pfDelays.size());
    for (auto _ : state) {
        if (reflectionList) {
            room.set->GetHRTF(room.left, room.right, room.length, m.m_pfAzimuths.data(),
                              m.m_pfElevations.data(), m.m_pfDelays.data(), m.m_pfGains.data(),
                              m.m_pfFilters.data(), m.m_piFilterLengths.data(), n, 0, kRate);
        } else {
            room.set->RenderReflections(room.left, room.right, room.length, m.m_pfAzimuths.data(),
                                        m.m_pfElevations.data(), m.m_pfDelays.data(),
                                        m.m_pfGains.data(), m.m_pfFilters.data(),
                                        m.m_piFilterLengths.data(), n, kRate);
        }
        benchmark::DoNotOptimize(room.left);
    }
}
BENCHMARK(BM_RoomSynthesis)
    ->Args({3, 0})
    ->Args({3, 1})
    ->Args({6, 0})
    ->Args({6, 1})
    ->Unit(benchmark::kMillisecond);
}  // namespace
