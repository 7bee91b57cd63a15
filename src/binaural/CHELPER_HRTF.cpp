// The set's life cycle and the lookup of one direction, with resampling when the rate asked
// for differs from the file's.
#include "binaural/CHELPER_HRTF.h"

#include <samplerate.h>

#include <cmath>
#include <cstring>

#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CHELPER_HRTF)

namespace {
constexpr const char *kCaption = "FAILURE";

// A sample buffer handed out to a caller: ippsMalloc_32f memory, zeroed.
float *newZeroed(int iLength) {
    float *pf = ippsMalloc_32f(iLength);
    if (pf != nullptr) {
        std::memset(pf, 0, sizeof(float) * static_cast<size_t>(iLength));
    }
    return pf;
}

void freeAndNull(float *&pf) {
    ippsFree(pf);
    pf = nullptr;
}

// Truncates towards zero and wraps into 0..359: +-360 gives 0, a larger magnitude keeps the
// sign of its remainder, and a negative result has 360 added. The remainder is taken on the
// float first, which gives the same whole degree and keeps huge values inside an int.
int normaliseAzimuth(float fAzimuth) {
    if (!std::isfinite(fAzimuth)) {
        return 0;
    }
    int iAzimuth = static_cast<int>(std::fmod(fAzimuth, 360.0f));
    if (iAzimuth < 0) {
        iAzimuth += 360;
    }
    return iAzimuth;
}

// Truncates towards zero and clamps to -90..90.
int normaliseElevation(float fElevation) {
    if (!std::isfinite(fElevation)) {
        return 0;
    }
    const float fClamped = std::fmin(std::fmax(fElevation, -90.0f), 90.0f);
    return static_cast<int>(fClamped);
}

// The coarse conversion ratio up / down for a file rate r times the rate asked for: for
// r >= 1 the first fraction (up outer, down inner, 1..10 each) within 10% of 1 / r, so data
// a little faster than asked pass at ratio 1; below 1, 10 / trunc(10 r). Beyond the search
// (r > 11) the smallest fraction, 1 / 10, is used.
void coarseRatio(float r, int &iUp, int &iDown) {
    if (r >= 1.0f) {
        for (int up = 1; up <= 10; ++up) {
            for (int down = 1; down <= 10; ++down) {
                const float t = static_cast<float>(up) / static_cast<float>(down);
                if (std::fabs(r * t - 1.0f) < 0.1f) {
                    iUp = up;
                    iDown = down;
                    return;
                }
            }
        }
        iUp = 1;
        iDown = 10;
        return;
    }
    iUp = 10;
    iDown = static_cast<int>(10.0f * r);
    if (iDown < 1) {
        iDown = 1;  // a rate more than ten times the file's would divide by zero
    }
}
}  // namespace

CHELPER_HRTF::CHELPER_HRTF() : m_aiTableA(kDirections, -1), m_aiLookup(kDirections, -1) {}

CHELPER_HRTF::CHELPER_HRTF(const std::string &strFileName) : CHELPER_HRTF() {
    ReadWrite(0, strFileName);
}

CHELPER_HRTF::~CHELPER_HRTF() = default;

void CHELPER_HRTF::Serialize(qk::CArchive &ar) {
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iFileRate) << static_cast<int32_t>(m_iChannels)
           << static_cast<int32_t>(m_iMeasurements) << static_cast<int32_t>(m_iFileTaps);
    } else {
        float fVersion = 0.0f;
        ar >> fVersion;
    }
}

int CHELPER_HRTF::ReadWrite(int iWrite, const std::string &strFileName) {
    if (iWrite == 0) {
        if (m_pStream != nullptr) {
            return Load(strFileName);
        }
        return strFileName.empty() ? -1 : Load(strFileName);
    }
    if (strFileName.empty() || m_pStream != nullptr) {
        return -1;
    }
    return Store(strFileName);
}

void CHELPER_HRTF::DropSpectra() {
    std::lock_guard<std::mutex> guard(m_spectraMutex);
    m_pSpectra.reset();
    m_pfSpectraOf = nullptr;
    ++m_uSamplesGeneration;
}

void CHELPER_HRTF::Clear() {
    DropSpectra();
    m_pfData.Reset();
}

const float *CHELPER_HRTF::Response(int64_t iSlot) const {
    if (iSlot < 0 || m_iFileTaps < 1 || m_pfData == nullptr) {
        return nullptr;
    }
    const int64_t iFirst = iSlot * m_iFileTaps;
    if (iFirst + m_iFileTaps > DataLength()) {
        return nullptr;
    }
    return m_pfData.get() + iFirst;
}

int CHELPER_HRTF::LookupMeasurement(int iAzimuth, int iElevation) const {
    const int32_t m = m_aiLookup[static_cast<size_t>(TableIndex(iAzimuth, iElevation))];
    return (m >= 0 && m < m_iMeasurements) ? m : -1;
}

bool CHELPER_HRTF::ResponseSlots(float fAzimuth, float fElevation, int &iLeft, int &iRight) const {
    const int iAzimuth = normaliseAzimuth(fAzimuth);
    const int iElevation = normaliseElevation(fElevation);
    const int m = LookupMeasurement(iAzimuth, iElevation);
    if (std::strcmp(m_szEars, "BOTH") == 0) {
        iLeft = 2 * m;
        iRight = 2 * m + 1;
    } else {
        // One-ear sets: the other ear is the mirrored direction, as GetHRTF makes it.
        const int n = LookupMeasurement(359 - iAzimuth, iElevation);
        const bool left = std::strcmp(m_szEars, "LEFT") == 0;
        if (!left && std::strcmp(m_szEars, "RIGHT") != 0) {
            return false;
        }
        iLeft = left ? m : n;
        iRight = left ? n : m;
    }
    return m >= 0 && iLeft >= 0 && iRight >= 0 && Response(iLeft) != nullptr &&
           Response(iRight) != nullptr;
}

std::shared_ptr<const CHRTFFilterBank> CHELPER_HRTF::Spectra(int iPartition) const {
    std::lock_guard<std::mutex> guard(m_spectraMutex);
    if (m_pSpectra == nullptr || m_pfSpectraOf != m_pfData.get() ||
        m_pSpectra->PartitionLength() != iPartition) {
        const int slots = m_iFileTaps > 0 ? DataLength() / m_iFileTaps : 0;
        m_pSpectra = CHRTFFilterBank::Make(m_pfData.get(), slots, m_iFileTaps, iPartition);
        m_pfSpectraOf = m_pfData.get();
    }
    return m_pSpectra;
}

int CHELPER_HRTF::GetHRTF(float *&pfLeft, float *&pfRight, int &iLength, float fAzimuth,
                          float fElevation, int iSampleRate) {
    // Written only when it changes: the engine's workers ask at the same rate at once, and
    // the engine sets it before they start.
    if (m_iSampleRate != iSampleRate) {
        m_iSampleRate = iSampleRate;
    }
    freeAndNull(pfLeft);
    freeAndNull(pfRight);
    const int iAzimuth = normaliseAzimuth(fAzimuth);
    const int iElevation = normaliseElevation(fElevation);
    pfLeft = newZeroed(m_iFileTaps);
    pfRight = newZeroed(m_iFileTaps);
    iLength = pfLeft != nullptr ? m_iFileTaps : 0;
    if (iSampleRate <= 0) {
        return 0;  // no rate to resample to
    }
    if (std::strcmp(m_szEars, "BOTH") == 0) {
        return GetHRTF_BOTH(pfLeft, pfRight, iLength, iAzimuth, iElevation, iSampleRate);
    }
    if (std::strcmp(m_szEars, "LEFT") == 0) {
        return GetHRTF_LEFT(pfLeft, pfRight, iLength, iAzimuth, iElevation, iSampleRate);
    }
    if (std::strcmp(m_szEars, "RIGHT") == 0) {
        return GetHRTF_RIGHT(pfLeft, pfRight, iLength, iAzimuth, iElevation, iSampleRate);
    }
    return 1;
}

int CHELPER_HRTF::GetHRTF_BOTH(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                               int iElevation, int iSampleRate) {
    const int m = LookupMeasurement(iAzimuth, iElevation);
    const float *pfL = m >= 0 ? Response(2 * static_cast<int64_t>(m)) : nullptr;
    const float *pfR = m >= 0 ? Response(2 * static_cast<int64_t>(m) + 1) : nullptr;
    if (pfL == nullptr || pfR == nullptr) {
        // The words of this text, and of the two below, are the ones hosts have always seen
        // for a direction the set lacks; they stay as they are.
        qk::Report("// TODO search in run-time for closest - BOTH", kCaption,
                   qk::Severity::Warning);
        return 0;
    }
    FetchResponse(pfL, pfLeft, iLength);
    FetchResponse(pfR, pfRight, iLength);
    return 1;
}

// The set measures the left ear only; the right ear is the left ear of the mirrored
// direction. The mirror is 359 - azimuth, not 360 - azimuth: azimuth 0 mirrors to 359. The
// one-degree offset is how the sets in use were made, and stays.
int CHELPER_HRTF::GetHRTF_LEFT(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                               int iElevation, int iSampleRate) {
    const int m = LookupMeasurement(iAzimuth, iElevation);
    const int n = LookupMeasurement(359 - iAzimuth, iElevation);
    const float *pfL = m >= 0 ? Response(m) : nullptr;
    const float *pfR = n >= 0 ? Response(n) : nullptr;
    if (pfL == nullptr || pfR == nullptr) {
        qk::Report("// TODO search in run-time for closest - LEFT", kCaption,
                   qk::Severity::Warning);
        return 0;
    }
    FetchResponse(pfL, pfLeft, iLength);
    FetchResponse(pfR, pfRight, iLength);
    return 1;
}

int CHELPER_HRTF::GetHRTF_RIGHT(float *&pfLeft, float *&pfRight, int &iLength, int iAzimuth,
                                int iElevation, int iSampleRate) {
    const int m = LookupMeasurement(iAzimuth, iElevation);
    const int n = LookupMeasurement(359 - iAzimuth, iElevation);
    const float *pfR = m >= 0 ? Response(m) : nullptr;
    const float *pfL = n >= 0 ? Response(n) : nullptr;
    if (pfL == nullptr || pfR == nullptr) {
        qk::Report("// TODO search in run-time for closest - RIGHT", kCaption,
                   qk::Severity::Warning);
        return 0;
    }
    FetchResponse(pfL, pfLeft, iLength);
    FetchResponse(pfR, pfRight, iLength);
    return 1;
}

void CHELPER_HRTF::FetchResponse(const float *pfSource, float *&pfOut, int &iLength) {
    if (m_iSampleRate == m_iFileRate) {
        if (pfOut != nullptr) {
            std::memcpy(pfOut, pfSource, sizeof(float) * static_cast<size_t>(m_iFileTaps));
        }
        iLength = m_iFileTaps;
        return;
    }
    Resample(pfSource, pfOut, iLength);
}

// One response through libsamplerate at a coarse ratio. Nothing is cached: a set used at a
// rate other than its own pays for this at every lookup.
void CHELPER_HRTF::Resample(const float *pfSource, float *&pfOut, int &iLength) {
    const float r = static_cast<float>(m_iFileRate) / static_cast<float>(m_iSampleRate);
    int iUp = 1;
    int iDown = 1;
    coarseRatio(r, iUp, iDown);

    const long lCapacity = 20L * m_iFileTaps;
    std::vector<float> afOut(static_cast<size_t>(lCapacity));
    SRC_DATA data{};
    data.data_in = pfSource;
    data.input_frames = m_iFileTaps;
    data.data_out = afOut.data();
    data.output_frames = lCapacity;
    data.src_ratio = static_cast<double>(iUp) / static_cast<double>(iDown);
    const int iError = src_simple(&data, SRC_SINC_FASTEST, 1);
    if (iError != 0) {
        qk::Report(std::string("\nError : ") + src_strerror(iError) + "\n", kCaption,
                   qk::Severity::Error);
    }
    const long lFrames = data.output_frames_gen > 0 ? data.output_frames_gen : 0;
    freeAndNull(pfOut);
    pfOut = ippsMalloc_32f(static_cast<int>(lFrames));
    if (pfOut != nullptr) {
        std::memcpy(pfOut, afOut.data(), sizeof(float) * static_cast<size_t>(lFrames));
    }
    iLength = static_cast<int>(lFrames);
}

void CHELPER_HRTF::UpdateTaps() {
    if (m_iSampleRate == m_iFileRate) {
        m_iTaps = m_iFileTaps;
        return;
    }
    float *pfLeft = nullptr;
    float *pfRight = nullptr;
    GetHRTF(pfLeft, pfRight, m_iTaps, 0.0f, 0.0f, m_iSampleRate);
    ippsFree(pfLeft);
    ippsFree(pfRight);
}
