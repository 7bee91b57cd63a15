#include "binaural/HrtfTools.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <sstream>

namespace qk {

namespace {
constexpr int kMaxTaps = 1 << 16;
constexpr double kPi = 3.14159265358979323846;
}  // namespace

int ResizeResponses(CHELPER_HRTF &set, int iTaps, int iFadeTaps) {
    if (iTaps < 1 || iTaps > kMaxTaps) {
        return -1;
    }
    const int iOld = set.m_iFileTaps;
    const int iSlots = iOld > 0 ? set.DataLength() / iOld : 0;
    const int iKeep = std::min(iOld, iTaps);
    const int iFade = iTaps < iOld ? std::clamp(iFadeTaps, 0, iTaps) : 0;
    CIppBuffer resized;
    resized.AllocateZeroed(iSlots * iTaps);
    for (int s = 0; s < iSlots; ++s) {
        const float *src = set.m_pfData.get() + static_cast<size_t>(s) * iOld;
        float *dst = resized.get() + static_cast<size_t>(s) * iTaps;
        std::memcpy(dst, src, sizeof(float) * static_cast<size_t>(iKeep));
        // The last iFade samples fall from 1 towards 0 along half a cosine period.
        for (int k = 0; k < iFade; ++k) {
            const double w = 0.5 * (1.0 + std::cos(kPi * (k + 1) / (iFade + 1)));
            dst[iKeep - iFade + k] = static_cast<float>(dst[iKeep - iFade + k] * w);
        }
    }
    set.m_pfData = std::move(resized);
    set.m_iFileTaps = iTaps;
    set.m_iTaps = iTaps;
    return 0;
}

HrtfCoverage DescribeCoverage(const CHELPER_HRTF &set) {
    HrtfCoverage c;
    std::set<int32_t> used;
    c.iMinAzimuth = c.iMinElevation = 1000;
    c.iMaxAzimuth = c.iMaxElevation = -1000;
    for (int az = 0; az < CHELPER_HRTF::kAzimuths; ++az) {
        for (int el = -90; el <= 90; ++el) {
            const int32_t m = set.m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(az, el))];
            if (m < 0 || m >= set.m_iMeasurements) {
                continue;
            }
            used.insert(m);
            ++c.iDirections;
            c.iMinAzimuth = std::min(c.iMinAzimuth, az);
            c.iMaxAzimuth = std::max(c.iMaxAzimuth, az);
            c.iMinElevation = std::min(c.iMinElevation, el);
            c.iMaxElevation = std::max(c.iMaxElevation, el);
        }
    }
    c.iDistinctMeasurements = static_cast<int>(used.size());
    if (c.iDirections == 0) {
        c.iMinAzimuth = c.iMaxAzimuth = c.iMinElevation = c.iMaxElevation = 0;
    }
    return c;
}

std::string DescribeSet(const CHELPER_HRTF &set) {
    const HrtfCoverage c = DescribeCoverage(set);
    std::ostringstream out;
    out << "description:  " << set.m_szDescription << "\n"
        << "version:      " << set.m_fVersion << "\n"
        << "filter type:  " << set.m_szType << "\n"
        << "ears:         " << set.m_szEars << "\n"
        << "channels:     " << set.m_iChannels << "\n"
        << "sample rate:  " << set.m_iFileRate << " Hz\n"
        << "taps:         " << set.m_iFileTaps << "\n"
        << "sample type:  " << set.m_szDataType << "\n"
        << "measurements: " << set.m_iMeasurements << "\n"
        << "in use:       " << c.iDistinctMeasurements << " distinct measurements\n"
        << "directions:   " << c.iDirections << " of " << CHELPER_HRTF::kDirections;
    if (c.iDirections > 0) {
        out << ", azimuth " << c.iMinAzimuth << ".." << c.iMaxAzimuth << ", elevation "
            << c.iMinElevation << ".." << c.iMaxElevation;
    }
    out << "\n";
    return out.str();
}

}  // namespace qk
