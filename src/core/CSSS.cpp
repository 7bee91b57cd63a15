#include "core/CSSS.h"

#include <cmath>
#include <cstring>
#include <vector>

QK_IMPLEMENT_SERIAL(CSSS)

std::atomic<int> CSSS::m_iObjectCounter{0};

CSSS::CSSS() : m_iID(++m_iObjectCounter) {}

CSSS::~CSSS() = default;

void CSSS::Serialize(qk::CArchive &ar) {
    if (ar.IsStoring()) {
        ar << 1.0f << static_cast<int32_t>(m_iID) << static_cast<int32_t>(m_iEnable) << m_strName
           << m_strFile;
    } else {
        float version = 0.0f;
        int32_t id = 0;
        int32_t enable = 0;
        ar >> version >> id >> enable >> m_strName >> m_strFile;
        m_iID = id;
        m_iEnable = enable;
    }
}

int CSSS::_init(int, int) {
    return 0;
}
int CSSS::_process(float *, int, int) {
    return 0;
}
int CSSS::_process(int, int, int &) {
    return 0;
}
int CSSS::_quit() {
    return 0;
}
int CSSS::CheckFileName(const std::string &) {
    return 1;
}

int CSSS::_adjustDataBuffer(int iLength) {
    if (iLength < 1) {
        return 0;
    }
    if (m_pfData == nullptr) {
        m_pfData.AllocateZeroed(iLength);
        m_iDataLength = iLength;
    } else if (m_iDataLength < iLength) {
        std::vector<float> old(m_pfData.get(), m_pfData.get() + m_iDataLength);
        m_pfData.AllocateZeroed(iLength);
        std::memcpy(m_pfData.get(), old.data(), sizeof(float) * old.size());
        m_iDataLength = iLength;
    }
    return 0;
}

void CSSS::MakeStr(const std::string &str) {
    auto copy = std::make_unique<char[]>(str.size() + 1);
    std::memcpy(copy.get(), str.c_str(), str.size() + 1);
    m_pcFileName = std::move(copy);
}

namespace {
// K = tan(pi fc / fs) with pi taken as the float 3.1415927, in double.
double butterworthK(float fCorner, int iSampleRate) {
    const double pi = static_cast<double>(3.1415927f);
    return std::tan(pi * static_cast<double>(fCorner) / static_cast<double>(iSampleRate));
}

void butterworth(float *&pfCoefs, float fCorner, int iSampleRate, bool bLowPass) {
    ippsFree(pfCoefs);
    pfCoefs = ippsMalloc_32f(6);
    const double k = iSampleRate != 0 ? butterworthK(fCorner, iSampleRate) : 0.0;
    const double k2 = k * k;
    const double root2 = std::sqrt(2.0);
    if (bLowPass) {
        pfCoefs[0] = static_cast<float>(k2);
        pfCoefs[1] = static_cast<float>(2.0 * k2);
        pfCoefs[2] = static_cast<float>(k2);
    } else {
        pfCoefs[0] = 1.0f;
        pfCoefs[1] = -2.0f;
        pfCoefs[2] = 1.0f;
    }
    pfCoefs[3] = static_cast<float>(1.0 + root2 * k + k2);
    pfCoefs[4] = static_cast<float>(2.0 * (k2 - 1.0));
    pfCoefs[5] = static_cast<float>(1.0 - root2 * k + k2);
}
}  // namespace

void CSSS::GetLPCoefs(float *&pfCoefs, float fCorner, int iSampleRate) {
    butterworth(pfCoefs, fCorner, iSampleRate, true);
}

void CSSS::GetHPCoefs(float *&pfCoefs, float fCorner, int iSampleRate) {
    butterworth(pfCoefs, fCorner, iSampleRate, false);
}
