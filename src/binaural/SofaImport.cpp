#include "binaural/SofaImport.h"

#include <mysofa.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include "binaural/HrtfTools.h"
#include "platform/Paths.h"

namespace qk {

namespace {
constexpr double kDegree = 3.14159265358979323846 / 180.0;
constexpr int kMinRate = 1000;
constexpr int kMaxRate = 768000;
constexpr unsigned kMaxTaps = 1u << 16;

struct SofaDeleter {
    void operator()(MYSOFA_HRTF *p) const { mysofa_free(p); }
};
using SofaPtr = std::unique_ptr<MYSOFA_HRTF, SofaDeleter>;

std::string mysofaText(int iError) {
    switch (iError) {
        case MYSOFA_INVALID_FORMAT:
            return "it is not an HDF5/netCDF SOFA file";
        case MYSOFA_UNSUPPORTED_FORMAT:
            return "it uses an HDF5 feature libmysofa can't read";
        case MYSOFA_NO_MEMORY:
            return "out of memory";
        case MYSOFA_READ_ERROR:
            return "it can't be read";
        case MYSOFA_INVALID_ATTRIBUTES:
            return "it is not a SimpleFreeFieldHRIR set of impulse responses";
        case MYSOFA_INVALID_DIMENSIONS:
        case MYSOFA_INVALID_DIMENSION_LIST:
            return "its dimensions don't fit the SimpleFreeFieldHRIR convention";
        case MYSOFA_INVALID_COORDINATE_TYPE:
            return "it has a coordinate type other than cartesian or spherical";
        case MYSOFA_ONLY_EMITTER_WITH_ECI_SUPPORTED:
            return "its emitter positions vary";
        case MYSOFA_ONLY_DELAYS_WITH_IR_OR_MR_SUPPORTED:
            return "its delays have an unsupported shape";
        case MYSOFA_ONLY_THE_SAME_SAMPLING_RATE_SUPPORTED:
            return "its measurements have different sample rates";
        case MYSOFA_RECEIVERS_WITH_RCI_SUPPORTED:
        case MYSOFA_RECEIVERS_WITH_CARTESIAN_SUPPORTED:
        case MYSOFA_INVALID_RECEIVER_POSITIONS:
            return "it doesn't have two receivers, one on each side of the head";
        case MYSOFA_ONLY_SOURCES_WITH_MC_SUPPORTED:
            return "its source positions have an unsupported shape";
        default:
            // Below its own codes libmysofa passes on the system's error number.
            return iError > 0 && iError < MYSOFA_INVALID_FORMAT
                       ? std::string(std::strerror(iError))
                       : "libmysofa error " + std::to_string(iError);
    }
}

const char *attribute(MYSOFA_ATTRIBUTE *attr, const char *name) {
    for (; attr != nullptr; attr = attr->next) {
        if (attr->name != nullptr && std::strcmp(attr->name, name) == 0) {
            return attr->value != nullptr ? attr->value : "";
        }
    }
    return "";
}

// The listener must look ahead along +x, as the convention's default: the directions of the
// set are taken relative to that view.
bool looksAhead(const MYSOFA_HRTF &h) {
    const MYSOFA_ARRAY &view = h.ListenerView;
    if (view.values == nullptr || view.elements < 3) {
        return true;
    }
    const float *v = view.values;
    if (std::strcmp(attribute(view.attributes, "Type"), "spherical") == 0) {
        return std::fabs(v[0]) < 0.5f && std::fabs(v[1]) < 0.5f;
    }
    return v[0] > 0.0f && std::fabs(v[1]) < 1e-3f * v[0] && std::fabs(v[2]) < 1e-3f * v[0];
}

// Checks what the set needs beyond what libmysofa checks; returns an empty text when usable.
std::string checkUsable(const MYSOFA_HRTF &h) {
    if (h.R != 2) {
        return "it has " + std::to_string(h.R) + " receivers, not two ears";
    }
    if (h.M < 1 || h.N < 1) {
        return "it holds no impulse responses";
    }
    if (h.N > kMaxTaps) {
        return "its responses are longer than " + std::to_string(kMaxTaps) + " samples";
    }
    if (h.DataIR.values == nullptr || h.DataIR.elements != h.M * h.R * h.N) {
        return "its impulse responses don't match its dimensions";
    }
    if (h.SourcePosition.values == nullptr || h.SourcePosition.elements != h.M * 3) {
        return "its source positions don't match its measurements";
    }
    if (h.DataSamplingRate.values == nullptr || h.DataSamplingRate.elements < 1) {
        return "it has no sample rate";
    }
    const float fRate = h.DataSamplingRate.values[0];
    if (!(fRate >= kMinRate && fRate <= kMaxRate) || fRate != std::floor(fRate)) {
        return "its sample rate is not a whole number of Hz between 1000 and 768000";
    }
    if (h.ReceiverPosition.values == nullptr || h.ReceiverPosition.elements < 6) {
        return "it doesn't say where its receivers are";
    }
    if (!looksAhead(h)) {
        return "its listener doesn't look along +x";
    }
    return std::string();
}

// The delays of Data.Delay, in samples: one pair for all measurements (I, R) or one for each
// (M, R). Empty when there are none.
std::string delayShape(const MYSOFA_HRTF &h, bool &bEach) {
    bEach = false;
    if (h.DataDelay.values == nullptr || h.DataDelay.elements == 0) {
        return std::string();
    }
    if (h.DataDelay.elements == h.M * h.R && h.M > 1) {
        bEach = true;
    } else if (h.DataDelay.elements != h.R) {
        return "its delays don't match its measurements";
    }
    for (unsigned i = 0; i < h.DataDelay.elements; ++i) {
        const float d = h.DataDelay.values[i];
        if (!(d >= 0.0f && d <= static_cast<float>(kMaxTaps))) {
            return "its delays are not between 0 and " + std::to_string(kMaxTaps) + " samples";
        }
    }
    return std::string();
}

// Four taps of a cubic Lagrange interpolator whose delay is 1 + fFraction samples: whole
// delays pass unchanged, and the response's centre moves by exactly the delay.
void lagrangeTaps(double fFraction, double afTaps[4]) {
    const double D = 1.0 + fFraction;
    for (int k = 0; k < 4; ++k) {
        double h = 1.0;
        for (int j = 0; j < 4; ++j) {
            if (j != k) {
                h *= (D - j) / static_cast<double>(k - j);
            }
        }
        afTaps[k] = h;
    }
}

// Moves each response later by its broadband delay, as players of such files do: whole
// samples by a shift, the fraction through lagrangeTaps (and every response one sample more,
// so that the interpolator's first tap has room). The responses grow by the longest delay;
// the delays are then 0.
std::string applyDelays(MYSOFA_HRTF &h) {
    bool bEach = false;
    std::string problem = delayShape(h, bEach);
    if (!problem.empty() || h.DataDelay.values == nullptr || h.DataDelay.elements == 0) {
        return problem;
    }
    auto delayOf = [&](unsigned m, unsigned r) {
        return static_cast<double>(h.DataDelay.values[bEach ? m * h.R + r : r]);
    };
    bool bFraction = false;
    double fLongest = 0.0;
    for (unsigned i = 0; i < h.DataDelay.elements; ++i) {
        const double d = h.DataDelay.values[i];
        bFraction = bFraction || d != std::floor(d);
        fLongest = std::max(fLongest, d);
    }
    const unsigned offset = bFraction ? 1u : 0u;
    const auto n =
        static_cast<size_t>(h.N + offset + static_cast<unsigned>(fLongest) + (bFraction ? 2u : 0u));
    if (fLongest == 0.0) {
        return std::string();
    }
    if (n > kMaxTaps) {
        return "its responses with their delays are longer than " + std::to_string(kMaxTaps) +
               " samples";
    }
    auto *pfMoved =
        static_cast<float *>(std::calloc(static_cast<size_t>(h.M) * h.R * n, sizeof(float)));
    if (pfMoved == nullptr) {
        return "out of memory";
    }
    for (unsigned m = 0; m < h.M; ++m) {
        for (unsigned r = 0; r < h.R; ++r) {
            const double d = delayOf(m, r);
            const auto whole = static_cast<size_t>(d);
            double taps[4] = {0.0, 1.0, 0.0, 0.0};
            if (d != std::floor(d)) {
                lagrangeTaps(d - std::floor(d), taps);
            }
            const float *src = h.DataIR.values + (static_cast<size_t>(m) * h.R + r) * h.N;
            float *dst = pfMoved + (static_cast<size_t>(m) * h.R + r) * n;
            // Tap k puts sample i at offset + whole + i + k - 1; the first tap is 0 unless
            // there is a fraction, and then the offset is 1.
            for (size_t i = 0; i < h.N; ++i) {
                for (size_t k = 0; k < 4; ++k) {
                    const size_t at = offset + whole + i + k;
                    if (taps[k] != 0.0 && at >= 1) {
                        dst[at - 1] += static_cast<float>(taps[k] * src[i]);
                    }
                }
            }
        }
    }
    std::free(h.DataIR.values);
    h.DataIR.values = pfMoved;
    h.DataIR.elements = static_cast<unsigned>(static_cast<size_t>(h.M) * h.R * n);
    h.N = static_cast<unsigned>(n);
    std::fill(h.DataDelay.values, h.DataDelay.values + h.DataDelay.elements, 0.0f);
    return std::string();
}

// Whether the file starts as HDF5 files do (netCDF-4 files are HDF5 files): the signature
// sits at byte 0, 512, 1024 or 2048.
bool looksLikeHdf5(const std::string &strPath) {
    static const char kSignature[8] = {'\x89', 'H', 'D', 'F', '\r', '\n', '\x1a', '\n'};
    std::ifstream in(strPath, std::ios::binary);
    for (std::streamoff at : {0, 512, 1024, 2048}) {
        char head[8] = {};
        in.clear();
        in.seekg(at);
        if (!in.read(head, sizeof head)) {
            return false;
        }
        if (std::memcmp(head, kSignature, sizeof head) == 0) {
            return true;
        }
    }
    return false;
}

// GeneralFIR sets of two receivers hold head-related responses as SimpleFreeFieldHRIR sets do;
// they are taken as such, whatever room they name.
void adoptGeneralFir(MYSOFA_HRTF &h) {
    if (h.R != 2 || std::strcmp(attribute(h.attributes, "SOFAConventions"), "GeneralFIR") != 0) {
        return;
    }
    for (MYSOFA_ATTRIBUTE *attr = h.attributes; attr != nullptr; attr = attr->next) {
        const char *value = nullptr;
        if (attr->name != nullptr && std::strcmp(attr->name, "SOFAConventions") == 0) {
            value = "SimpleFreeFieldHRIR";
        } else if (attr->name != nullptr && std::strcmp(attr->name, "RoomType") == 0) {
            value = "free field";
        }
        char *copy = value != nullptr ? strdup(value) : nullptr;
        if (copy != nullptr) {
            std::free(attr->value);  // libmysofa's strings are freed with free
            attr->value = copy;
        }
    }
}

void describe(const std::string &strPath, MYSOFA_HRTF &h, CHELPER_HRTF &set) {
    std::string text = "Imported from " + FileNamePart(strPath);
    const std::string name = attribute(h.attributes, "ListenerShortName");
    const std::string database = attribute(h.attributes, "DatabaseName");
    if (!database.empty() || !name.empty()) {
        text += " (" + database + (database.empty() || name.empty() ? "" : ", ") + name + ")";
    }
    std::memset(set.m_szDescription, 0, sizeof(set.m_szDescription));
    std::strncpy(set.m_szDescription, text.c_str(), sizeof(set.m_szDescription) - 1);
}

// Copies the responses, left ear first, into the set's layout.
void copyResponses(const MYSOFA_HRTF &h, int iLeft, CHELPER_HRTF &set) {
    const int n = static_cast<int>(h.N);
    set.m_pfData.Allocate(static_cast<int>(h.M) * 2 * n);
    for (unsigned m = 0; m < h.M; ++m) {
        for (int ear = 0; ear < 2; ++ear) {
            const unsigned r = ear == 0 ? static_cast<unsigned>(iLeft) : 1u - iLeft;
            const float *src = h.DataIR.values + (static_cast<size_t>(m) * h.R + r) * h.N;
            std::memcpy(set.m_pfData.get() + (2 * static_cast<size_t>(m) + ear) * h.N, src,
                        sizeof(float) * h.N);
        }
    }
}
}  // namespace

void FillNearestDirections(CHELPER_HRTF &set, const float *pfAzimuths, const float *pfElevations,
                           int iCount) {
    std::vector<double> x(static_cast<size_t>(std::max(iCount, 0)));
    std::vector<double> y(x.size()), z(x.size());
    for (size_t m = 0; m < x.size(); ++m) {
        const double az = pfAzimuths[m] * kDegree;
        const double el = pfElevations[m] * kDegree;
        x[m] = std::cos(el) * std::cos(az);
        y[m] = std::cos(el) * std::sin(az);
        z[m] = std::sin(el);
    }
    set.m_aiLookup.assign(CHELPER_HRTF::kDirections, -1);
    for (int az = 0; az < CHELPER_HRTF::kAzimuths; ++az) {
        for (int el = -90; el <= 90; ++el) {
            const double dx = std::cos(el * kDegree) * std::cos(az * kDegree);
            const double dy = std::cos(el * kDegree) * std::sin(az * kDegree);
            const double dz = std::sin(el * kDegree);
            int best = -1;
            double bestDot = -2.0;
            for (size_t m = 0; m < x.size(); ++m) {
                const double dot = dx * x[m] + dy * y[m] + dz * z[m];
                if (dot > bestDot) {
                    bestDot = dot;
                    best = static_cast<int>(m);
                }
            }
            set.m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(az, el))] = best;
        }
    }
    set.m_aiTableA = set.m_aiLookup;
}

int ImportSofa(const std::string &strPath, const SofaImportOptions &options, CHELPER_HRTF &set,
               std::string &strError) {
    if (options.strDataType != "32f" && options.strDataType != "16s") {
        strError = "the sample type must be 32f or 16s";
        return -1;
    }
    int iError = 0;
    SofaPtr h(mysofa_load(strPath.c_str(), &iError));
    if (h == nullptr || iError != MYSOFA_OK) {
        const bool bHdf5 = (iError == MYSOFA_INVALID_FORMAT || iError == MYSOFA_READ_ERROR ||
                            iError == MYSOFA_UNSUPPORTED_FORMAT) &&
                           looksLikeHdf5(strPath);
        std::string reason = mysofaText(iError);
        if (bHdf5) {
            reason = iError == MYSOFA_UNSUPPORTED_FORMAT
                         ? "it is an HDF5 file, but can't be read as SOFA: " + reason
                         : "it is an HDF5 file, but can't be read as SOFA";
        }
        strError = strPath + ": " + reason;
        return -1;
    }
    adoptGeneralFir(*h);
    iError = mysofa_check(h.get());
    std::string problem = iError != MYSOFA_OK ? mysofaText(iError) : checkUsable(*h);
    if (problem.empty()) {
        problem = applyDelays(*h);
    }
    if (problem.empty() && options.iSampleRate != 0 &&
        options.iSampleRate != static_cast<int>(h->DataSamplingRate.values[0])) {
        if (options.iSampleRate < kMinRate || options.iSampleRate > kMaxRate) {
            problem = "the rate asked for is outside 1000..768000 Hz";
        } else if ((iError = mysofa_resample(h.get(), static_cast<float>(options.iSampleRate))) !=
                   MYSOFA_OK) {
            problem = "resampling failed: " + mysofaText(iError);
        } else {
            problem = checkUsable(*h);
        }
    }
    if (!problem.empty()) {
        strError = strPath + ": " + problem;
        return -1;
    }
    mysofa_tospherical(h.get());

    CHELPER_HRTF made;
    const float *rp = h->ReceiverPosition.values;
    copyResponses(*h, rp[1] >= rp[4] ? 0 : 1, made);
    std::strcpy(made.m_szEars, "BOTH");
    std::strcpy(made.m_szType, "FIR");
    std::strncpy(made.m_szDataType, options.strDataType.c_str(), CHELPER_HRTF::kDataTypeSize - 1);
    made.m_iChannels = 2;
    made.m_iMeasurements = static_cast<int>(h->M);
    made.m_iFileTaps = made.m_iTaps = static_cast<int>(h->N);
    made.m_iFileRate = made.m_iSampleRate = static_cast<int>(h->DataSamplingRate.values[0]);
    describe(strPath, *h, made);
    std::vector<float> az(h->M), el(h->M);
    for (unsigned m = 0; m < h->M; ++m) {
        az[m] = h->SourcePosition.values[3 * m];
        el[m] = h->SourcePosition.values[3 * m + 1];
    }
    FillNearestDirections(made, az.data(), el.data(), static_cast<int>(h->M));
    if (options.iTaps != 0 && options.iTaps != made.m_iFileTaps &&
        ResizeResponses(made, options.iTaps, options.iTaps / 8) != 0) {
        strError = "the taps must lie between 1 and 65536";
        return -1;
    }

    // The finished set takes the place of what the caller's set held.
    set.Clear();
    set.m_fVersion = 1.0f;
    std::memcpy(set.m_szDescription, made.m_szDescription, sizeof(made.m_szDescription));
    std::memcpy(set.m_szType, made.m_szType, sizeof(made.m_szType));
    std::memcpy(set.m_szEars, made.m_szEars, sizeof(made.m_szEars));
    std::memcpy(set.m_szDataType, made.m_szDataType, sizeof(made.m_szDataType));
    set.m_iChannels = made.m_iChannels;
    set.m_iMeasurements = made.m_iMeasurements;
    set.m_iFileTaps = set.m_iTaps = made.m_iFileTaps;
    set.m_iFileRate = set.m_iSampleRate = made.m_iFileRate;
    set.m_aiLookup = std::move(made.m_aiLookup);
    set.m_aiTableA = std::move(made.m_aiTableA);
    set.m_pfData = std::move(made.m_pfData);
    return 0;
}

}  // namespace qk
