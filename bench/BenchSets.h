// HRTF sets the benchmarks share.
#pragma once

#include <cmath>
#include <memory>

#include "binaural/CHELPER_HRTF.h"

namespace qkbench {

// A set shaped like the MIT KEMAR import: 710 measurements of 512 taps, both ears, every
// direction naming one of them.
inline std::unique_ptr<CHELPER_HRTF> KemarSizedSet(int iRate) {
    auto set = std::make_unique<CHELPER_HRTF>();
    set->m_iMeasurements = 710;
    set->m_iFileTaps = set->m_iTaps = 512;
    set->m_iFileRate = set->m_iSampleRate = iRate;
    set->m_pfData.Allocate(710 * 2 * 512);
    for (int i = 0; i < set->DataLength(); ++i) {
        set->m_pfData[i] = std::sin(0.01f * i) * std::exp(-0.01f * (i % 512));
    }
    for (int i = 0; i < CHELPER_HRTF::kDirections; ++i) {
        set->m_aiLookup[static_cast<size_t>(i)] = (i * 7) % 710;
    }
    return set;
}

}  // namespace qkbench
