#include "world/CMATERIAL.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "dsp/CFILTER_DESIGN.h"
#include "platform/Paths.h"
#include "platform/Report.h"
#include "world/MaterialTables.h"

using namespace qk::table;

namespace {
const char *const kBandFields[CMATERIAL::kBands] = {"F125",  "F250",  "F500",  "F1000",
                                                    "F2000", "F4000", "F8000", "F16000"};

struct Closer {
    void operator()(Data4 *d4) const { d4close(d4); }
};

std::string trimRight(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string searchKey(const std::string &name) {
    const size_t first = name.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::string();
    }
    return qk::ToUpper(name.substr(first, name.find_last_not_of(' ') - first + 1));
}

// A copy of the filter, or nothing.
void copyFilter(const CIppBuffer &from, int length, CIppBuffer &to) {
    if (from.get() == nullptr || length < 1) {
        to.Reset();
        return;
    }
    to.Allocate(length);
    if (to.get() != nullptr) {
        ippsCopy_32f(from.get(), to.get(), length);
    }
}
}  // namespace

CMATERIAL::CMATERIAL(const CMATERIAL &other) {
    *this = other;
}

CMATERIAL &CMATERIAL::operator=(const CMATERIAL &other) {
    if (this == &other) {
        return *this;
    }
    m_strName = other.m_strName;
    m_strDescription = other.m_strDescription;
    m_strCategory = other.m_strCategory;
    m_strImage = other.m_strImage;
    m_strColor = other.m_strColor;
    for (int i = 0; i < kBands; ++i) {
        m_fCoeff[i] = other.m_fCoeff[i];
    }
    m_fAverage = other.m_fAverage;
    copyFilter(other.m_pFilter, other.m_iFilterLength, m_pFilter);
    m_iFilterLength = m_pFilter.get() != nullptr ? other.m_iFilterLength : 0;
    m_fSampleRate = other.m_fSampleRate;
    m_iMinimumPhase = other.m_iMinimumPhase;
    return *this;
}

int CMATERIAL::GetCoefficients(Code4 *pDB, const std::string &strName) {
    const std::string key = searchKey(strName);
    if (key.empty() || pDB == nullptr) {
        return -1;
    }
    std::unique_ptr<Data4, Closer> table(d4open(pDB, MaterialTables::MaterialsPath()));
    if (!table) {
        char text[96];
        std::snprintf(text, sizeof(text), "Cannot open 'materials' database. Error: %d",
                      pDB->errorCode);
        qk::Report(text, "Materials", qk::Severity::Error);
        return -1;
    }
    Data4 *d4 = table.get();
    d4tagSelect(d4, d4tag(d4, "MATERIAL"));
    d4top(d4);
    if (d4seek(d4, key.c_str()) != r4success) {
        return -1;
    }
    for (int band = 0; band < kBands; ++band) {
        m_fCoeff[band] =
            static_cast<float>(std::atof(f4ptr(d4field(d4, kBandFields[band])).c_str()));
    }
    m_strImage = trimRight(f4ptr(d4field(d4, "IMAGE")));
    m_strColor = trimRight(f4ptr(d4field(d4, "COLOR")));
    return 0;
}

int CMATERIAL::BandsForRate(float fSampleRate) {
    if (fSampleRate == 6000.0f || fSampleRate == 8000.0f) {
        return 5;
    }
    if (fSampleRate == 11025.0f || fSampleRate == 16000.0f) {
        return 6;
    }
    if (fSampleRate == 22050.0f) {
        return 7;
    }
    return 8;
}

int CMATERIAL::MakeFilter(const std::string &strName, float fSampleRate, int iKind, Code4 *pDB,
                          int iLength) {
    if (m_pFilter.get() != nullptr && strName == m_strName && fSampleRate == m_fSampleRate &&
        iKind == m_iMinimumPhase && iLength == m_iFilterLength) {
        return 0;
    }
    // A rate that puts every band at infinity, or a length that can't be allocated, makes no
    // filter at all.
    if (!(fSampleRate > 0.0f) || !std::isfinite(fSampleRate) || iLength < 1 ||
        iLength > kMaxFilterLength) {
        return -1;
    }
    m_strName = strName;
    m_fSampleRate = fSampleRate;
    m_iMinimumPhase = iKind;
    // The length is kept with the taps only: a failed look-up leaves the old filter, and
    // m_iFilterLength must go on telling its size.
    if (GetCoefficients(pDB, strName) != 0) {
        return -1;
    }
    m_pFilter.Reset();
    m_iFilterLength = 0;

    const int n = BandsForRate(fSampleRate);
    float freq[kBands + 2] = {};
    float gain[kBands + 2] = {};
    for (int i = 1; i <= kBands; ++i) {
        freq[i] = 2.0f * 125.0f * std::pow(2.0f, static_cast<float>(i - 1)) / fSampleRate;
        gain[i] = m_fCoeff[i - 1] / 100.0f;
    }
    float sum = 0.0f;
    for (int i = 1; i <= n; ++i) {
        sum += gain[i];
    }
    m_fAverage = sum / static_cast<float>(n);
    for (int i = 1; i <= kBands; ++i) {
        gain[i] = 1.0f - gain[i];
    }
    freq[0] = 0.0f;
    gain[0] = gain[1];
    freq[n + 1] = 1.0f;
    gain[n + 1] = gain[n];

    CFILTER_DESIGN design;
    float *taps = nullptr;
    design.FIR2(iLength - 1, freq, gain, n + 2, taps);
    if (taps == nullptr) {
        return -1;
    }
    m_pFilter.Allocate(iLength);
    if (iKind == 0) {
        ippsCopy_32f(taps, m_pFilter.get(), iLength);
    } else {
        int length = iLength;
        float *cepstrum = nullptr;
        float *minimum = nullptr;
        design.MinimumPhase(taps, length, cepstrum, minimum);
        ippsCopy_32f(minimum, m_pFilter.get(), iLength);
        FreeIppArray(cepstrum);
        FreeIppArray(minimum);
    }
    FreeIppArray(taps);
    m_iFilterLength = iLength;

    // Unit sum: the filter carries the colour, m_fAverage the strength. A filter whose taps
    // cancel out is left as designed rather than blown up.
    float total = 0.0f;
    for (int i = 0; i < iLength; ++i) {
        total += m_pFilter.get()[i];
    }
    if (std::fabs(total) > 1.0e-20f && std::isfinite(total)) {
        ippsMulC_32f_I(1.0f / total, m_pFilter.get(), iLength);
    }
    return 0;
}

int CMATERIAL::GetAverage(Code4 *pDB, const std::string &strName, float &fAverage, int iLength) {
    MakeFilter(strName, 44100.0f, 0, pDB, iLength);
    fAverage = m_fAverage;
    return 0;
}
