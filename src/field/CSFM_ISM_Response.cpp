// The responses of the image model: the parameters common to both forms, the reflection
// filters of the images' paths, the echogram and the binaural response.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "binaural/CHELPER_HRTF.h"
#include "dsp/ipps.h"
#include "field/CSFM_ISM.h"
#include "platform/Report.h"
#include "world/CDSC_World.h"

namespace {
constexpr const char *kCaption = "Quendarik";
// Longest echogram made, samples: a delay beyond it (an image a kilometre and more away at
// the highest rates) is left out rather than allowed to ask for gigabytes.
constexpr double kMaxEchogram = double{1 << 24};

int64_t delaySamples(float fDelayMs, int iSampleRate) {
    const double d = static_cast<double>(fDelayMs) / 1000.0 * iSampleRate;
    if (!(d >= 0.0) || d >= kMaxEchogram) {
        return -1;
    }
    return static_cast<int64_t>(d);
}

// Direct linear convolution: pfOut[0 .. na + nb - 1) = a * b.
void convolve(const float *pfA, int na, const float *pfB, int nb, float *pfOut) {
    std::fill(pfOut, pfOut + na + nb - 1, 0.0f);
    for (int i = 0; i < na; ++i) {
        const float a = pfA[i];
        for (int j = 0; j < nb; ++j) {
            pfOut[i + j] += a * pfB[j];
        }
    }
}

// Whether a plane on the path to the image, the image's own included, has a filter.
bool pathFiltered(const std::vector<CImageSource> &images, const CDSC_World &world, int iImage) {
    for (int i = iImage; i >= 0; i = images[static_cast<size_t>(i)].iParent) {
        const int plane = images[static_cast<size_t>(i)].iPlane;
        if (plane >= 0 && static_cast<size_t>(plane) < world.m_Planes.size() &&
            world.m_Planes[static_cast<size_t>(plane)]->m_Material.m_pFilter.get() != nullptr) {
            return true;
        }
    }
    return false;
}
}  // namespace

// The cascade of an image is its parent's convolved with the filter of the image's own plane,
// the planes taken from the source's side on: each cascade is made once a call, however many
// images share the path's beginning.
int CSFM_ISM::Cascade(int iImage, int iFilterTaps) {
    const std::vector<CImageSource> &images = Images();
    const CImageSource &image = images[static_cast<size_t>(iImage)];
    if (image.iPlane < 0 || m_pWorld == nullptr ||
        static_cast<size_t>(image.iPlane) >= m_pWorld->m_Planes.size()) {
        return -1;
    }
    int &offset = m_cascadeOffset[static_cast<size_t>(iImage)];
    if (offset >= 0) {
        return offset;
    }
    const int parentOffset = image.iParent >= 0 ? Cascade(image.iParent, iFilterTaps) : -1;
    const int parentLength =
        parentOffset >= 0 ? m_cascadeLength[static_cast<size_t>(image.iParent)] : 0;
    const int k = image.iOrder;
    const int length = k * iFilterTaps - (k - 1);
    const CMATERIAL &material = m_pWorld->m_Planes[static_cast<size_t>(image.iPlane)]->m_Material;
    const int taps =
        material.m_pFilter.get() != nullptr ? std::min(material.m_iFilterLength, iFilterTaps) : 0;
    const size_t at = m_cascades.size();
    m_cascades.resize(at + static_cast<size_t>(length), 0.0f);
    float *pfOut = m_cascades.data() + at;
    // A plane without a filter (its material isn't in the table) is skipped: the first plane
    // of the path with a filter starts the cascade, wherever it lies.
    const float *pfParent = parentOffset >= 0 && pathFiltered(images, *m_pWorld, image.iParent)
                                ? m_cascades.data() + parentOffset
                                : nullptr;
    if (pfParent != nullptr && taps > 0) {
        convolve(pfParent, parentLength, material.m_pFilter.get(), taps, pfOut);
    } else if (pfParent != nullptr) {
        std::copy(pfParent, pfParent + parentLength, pfOut);  // a plane with no filter is passed
    } else if (taps > 0) {
        std::copy(material.m_pFilter.get(), material.m_pFilter.get() + taps, pfOut);
    }
    offset = static_cast<int>(at);
    m_cascadeLength[static_cast<size_t>(iImage)] = length;
    return offset;
}

void CSFM_ISM::GetReflectionFilter(int iImage, std::vector<float> &filter, int iSampleRate,
                                   int iFilterTaps) {
    filter.clear();
    const std::vector<CImageSource> &images = Images();
    if (iImage < 0 || static_cast<size_t>(iImage) >= images.size() || iFilterTaps < 1 ||
        m_pWorld == nullptr) {
        return;
    }
    // The materials design their filters when asked first, or anew when rate or length
    // changed; a material that isn't in the table keeps what it had.
    for (int q : PathOf(iImage)) {
        CVRPlane *pPlane = m_pWorld->m_Planes[static_cast<size_t>(q)];
        pPlane->m_Material.MakeFilter(pPlane->m_strMaterial, static_cast<float>(iSampleRate), 0,
                                      m_pCode4, iFilterTaps);
    }
    m_cascadeOffset.assign(images.size(), -1);
    m_cascadeLength.assign(images.size(), 0);
    m_cascades.clear();
    const int offset = Cascade(iImage, iFilterTaps);
    if (offset >= 0) {
        const int length = m_cascadeLength[static_cast<size_t>(iImage)];
        filter.assign(m_cascades.begin() + offset, m_cascades.begin() + offset + length);
    }
}

int CSFM_ISM::GetCommonIRParameters(int &iLength, int iSampleRate, float fTemperature,
                                    int iBinaural, int iFilterTaps) {
    m_pfDelays.clear();
    m_pfGains.clear();
    m_pfAzimuths.clear();
    m_pfElevations.clear();
    m_pfFilters.clear();
    m_piFilterLengths.clear();
    iLength = 0;
    if (m_pCode4 == nullptr) {
        return -1;
    }
    const size_t n = m_ValidImages.size();
    if (n < 1) {
        return -1;
    }
    const std::vector<CImageSource> &images = Images();
    m_pfDelays.resize(n);
    m_pfGains.resize(n);
    m_piFilterLengths.resize(n);
    if (iBinaural != 0) {
        m_pfAzimuths.resize(n);
        m_pfElevations.resize(n);
    }
    // Each plane's material designs its filter for this rate and length once a call.
    if (m_pWorld != nullptr && iFilterTaps > 0 && m_iOrder > 0) {
        for (CVRPlane *pPlane : m_pWorld->m_Planes) {
            pPlane->m_Material.MakeFilter(pPlane->m_strMaterial, static_cast<float>(iSampleRate), 0,
                                          m_pCode4, iFilterTaps);
        }
    }
    m_cascadeOffset.assign(images.size(), -1);
    m_cascadeLength.assign(images.size(), 0);
    m_cascades.clear();

    const float c = 331.4f * std::sqrt(1.0f + fTemperature / 273.0f);
    for (size_t i = 0; i < n; ++i) {
        const CValidImage &valid = m_ValidImages[i];
        const CImageSource &image = images[static_cast<size_t>(valid.iImage)];
        C3Point position;
        position.x = image.x;
        position.y = image.y;
        position.z = image.z;
        const float d = GetDistance(m_Listener, position);
        m_pfDelays[i] = d * 1000.0f / c;
        m_pfGains[i] = d < 1.0f ? 1.0f : 1.0f / d;  // the distance law stops at one metre
        const int offset = iFilterTaps > 0 ? Cascade(valid.iImage, iFilterTaps) : -1;
        const int length = offset >= 0 ? m_cascadeLength[static_cast<size_t>(valid.iImage)] : 0;
        m_piFilterLengths[i] = length > 1 ? length : 0;
        if (length > 1) {
            m_pfFilters.insert(m_pfFilters.end(), m_cascades.begin() + offset,
                               m_cascades.begin() + offset + length);
        }
        if (iBinaural != 0) {
            if (m_iMode == 0) {
                m_pfAzimuths[i] = GetAzimuth(m_Listener, m_ListenerLookAt, position, m_Listener);
                m_pfElevations[i] =
                    GetElevation(m_Listener, m_ListenerLookAt, position, m_Listener);
            } else {
                // Shared mode: the real listener is in the source's place, and the sound
                // arrives from the point of reflection nearest to it.
                C3Point hit;
                hit.x = valid.fHitX;
                hit.y = valid.fHitY;
                hit.z = valid.fHitZ;
                m_pfAzimuths[i] = GetAzimuth(m_Source, m_SourceLookAt, hit, m_Source);
                m_pfElevations[i] = GetElevation(m_Source, m_SourceLookAt, hit, m_Source);
            }
        }
    }
    const float fMax = *std::max_element(m_pfDelays.begin(), m_pfDelays.end());
    const double length =
        static_cast<double>(fMax) / 1000.0 * iSampleRate + (m_iOrder + 1.0) * 32.0;
    if (!(length >= 1.0) || length >= kMaxEchogram) {
        return -1;
    }
    iLength = static_cast<int>(length);
    return 0;
}

void CSFM_ISM::FollowChanges(int iMask, int iRecalculate, bool bTimed) {
    const bool bGenerate = iRecalculate != 0 || (iMask & (kSourceMoved | kOrderChanged)) != 0;
    if (bGenerate) {
        const auto start = std::chrono::steady_clock::now();
        CalculateImages();
        if (bTimed && m_bReport == 1) {
            const long ms = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                  std::chrono::steady_clock::now() - start)
                                                  .count());
            char text[64];
            std::snprintf(text, sizeof text, "Source: %2d, Time (ms): %ld", m_iSourceIndex, ms);
            qk::Report(text, kCaption, qk::Severity::Info);
        }
        ValidateImages();
    } else if ((iMask & kListenerMoved) != 0) {
        ValidateImages();
    }
}

float *CSFM_ISM::MakeEchogram(int iLength, int iSampleRate) const {
    float *pfIR = ippsMalloc_32f(iLength);
    if (pfIR == nullptr) {
        return nullptr;
    }
    std::memset(pfIR, 0, sizeof(float) * static_cast<size_t>(iLength));
    for (size_t i = 0; i < m_pfDelays.size(); ++i) {
        const int64_t at = delaySamples(m_pfDelays[i], iSampleRate);
        if (at >= 0 && at < iLength) {
            pfIR[at] += m_pfGains[i];  // two images on one sample add up
        }
    }
    return pfIR;
}

int CSFM_ISM::RenewEchogram(float *&pfIR, int &iLength, int iSampleRate, float fTemperature,
                            int iBinaural, int iFilterTaps) {
    int length = 0;
    if (iSampleRate < 1 ||
        GetCommonIRParameters(length, iSampleRate, fTemperature, iBinaural, iFilterTaps) != 0 ||
        length < 1) {
        return -1;
    }
    float *pfNew = MakeEchogram(length, iSampleRate);
    if (pfNew == nullptr) {
        return -1;
    }
    ippsFree(pfIR);
    pfIR = pfNew;
    iLength = length;
    return 0;
}

int CSFM_ISM::GetMonauralImpulseResponse(float *&pfIR, int &iLength, C3Point sourcePos,
                                         C3Point sourceLookAt, C3Point listenerPos,
                                         C3Point listenerLookAt, int iOrder, float fTemperature,
                                         int iSampleRate, float &, int, int iRecalculate,
                                         int iFilterTaps) {
    const int iMask =
        CheckForRecalculationType(sourcePos, sourceLookAt, listenerPos, listenerLookAt, iOrder,
                                  fTemperature, static_cast<float>(iSampleRate), 0);
    if (iMask == 0 && iRecalculate == 0) {
        return 0;
    }
    FollowChanges(iMask, iRecalculate, false);
    return RenewEchogram(pfIR, iLength, iSampleRate, fTemperature, 0, iFilterTaps);
}

int CSFM_ISM::GetBinauralImpulseResponse(CHELPER_HRTF *pHRTF, float *&pfMono, int &iMonoLength,
                                         float *&pfLeft, float *&pfRight, int &iLength,
                                         C3Point sourcePos, C3Point sourceLookAt,
                                         C3Point listenerPos, C3Point listenerLookAt, std::string,
                                         int iOrder, float fTemperature, int iSampleRate,
                                         float &fPeakLeft, float &fPeakRight, int, int iRecalculate,
                                         int iFilterTaps, int iSourceIndex) {
    CVRPlane *pPlane = nullptr;
    m_bSourceInside = _checkIfInside(sourcePos, pPlane) == 0 ? 1 : 0;
    m_bListenerInside = _checkIfInside(listenerPos, pPlane) == 0 ? 1 : 0;
    m_iSourceIndex = iSourceIndex;
    const int iMask =
        CheckForRecalculationType(sourcePos, sourceLookAt, listenerPos, listenerLookAt, iOrder,
                                  fTemperature, static_cast<float>(iSampleRate), 0);
    FollowChanges(iMask, iRecalculate, true);
    if (RenewEchogram(pfMono, iMonoLength, iSampleRate, fTemperature, 1, iFilterTaps) != 0) {
        return -1;
    }
    const size_t n = m_pfDelays.size();
    for (size_t i = 0; i < 6; ++i) {
        m_afEarlyDelays[i] = i < n ? m_pfDelays[i] / 1000.0f : 0.0f;
    }
    if (pHRTF != nullptr) {
        pHRTF->RenderReflections(pfLeft, pfRight, iLength, m_pfAzimuths.data(),
                                 m_pfElevations.data(), m_pfDelays.data(), m_pfGains.data(),
                                 m_pfFilters.empty() ? nullptr : m_pfFilters.data(),
                                 m_piFilterLengths.data(), static_cast<int>(n), iSampleRate);
    }
    fPeakLeft = 0.0f;
    fPeakRight = 0.0f;
    if (pfLeft != nullptr && pfRight != nullptr && iLength > 0) {
        ippsMax_32f(pfLeft, iLength, &fPeakLeft);
        ippsMax_32f(pfRight, iLength, &fPeakRight);
    }
    m_iImagesTotal = static_cast<int>(Images().size());
    m_iImagesValid = static_cast<int>(m_ValidImages.size());
    return 0;
}
