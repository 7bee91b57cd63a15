// Coefficients after the well-known audio-equaliser cookbook forms (low and high pass,
// peaking, shelves), plus a second family (types 3 to 6) whose feedback coefficients are
// stored with their sign reversed and whose a0 is not normalised; both are kept as the
// system has always had them.
#include "core/CSERVICE_FILTER.h"

#include <cmath>
#include <cstring>

namespace {
constexpr double kPi = 3.14159265358979323846;
}

CSERVICE_FILTER::~CSERVICE_FILTER() {
    _quit();
}

int CSERVICE_FILTER::_init(int iType, float fGainDb, float fSlope, float fQ, float fFrequency,
                           float fSampleRate) {
    m_fType = static_cast<float>(iType);
    m_fGain = fGainDb;
    m_fSlope = fSlope;
    m_fQ = fQ;
    m_fFrequency = fFrequency;
    m_fSampleRate = fSampleRate;
    _quit();
    if (!Design(iType, fGainDb, fSlope, fQ, fFrequency, fSampleRate)) {
        m_fType = 0.0f;  // unknown shapes make no section
        return 0;
    }
    // An a0 of 0 (the second low pass, and every plain gain) is taken as 1 when the section is
    // made, so that a plain gain is a plain gain rather than a division by zero.
    const Ipp32f afTaps[6] = {m_fB0, m_fB1, m_fB2, m_fA0 != 0.0f ? m_fA0 : 1.0f, m_fA1, m_fA2};
    for (const Ipp32f f : afTaps) {
        if (!std::isfinite(f)) {
            return 0;  // q 0 or a rate of 0: no section rather than a stream of NaNs
        }
    }
    ippsIIRInitAlloc_32f(&m_pIIRState, afTaps, m_iOrder, nullptr);
    return 0;
}

bool CSERVICE_FILTER::Design(int iType, float fGainDb, float fSlope, float fQ, float fFrequency,
                             float fSampleRate) {
    const double g = fGainDb;
    const double A = std::sqrt(std::pow(10.0, g / 20.0));
    const double w = 2.0 * kPi * fFrequency / fSampleRate;
    const double s = std::sin(w);
    const double c = std::cos(w);
    // alpha and beta rest on the q and frequency as passed, before the clamps below.
    const double alpha = s / (2.0 * fQ);
    const double beta = std::sqrt(A) / fQ;
    const bool bHigh = fFrequency > fSampleRate / 2.0f - 100.0f;
    if (bHigh) {
        fFrequency = fSampleRate / 2.0f - 100.0f;
    }
    if (fFrequency < 0.1f) {
        fFrequency = 0.1f;
    }
    if (fQ < 0.0f) {
        fQ = 0.0f;
    }
    const double g2 = fSlope == 0.0f ? g : std::pow(g, 1.0 / (fSlope + 1.0));
    auto set = [this](double b0, double b1, double b2, double a0, double a1, double a2) {
        m_fB0 = static_cast<float>(b0);
        m_fB1 = static_cast<float>(b1);
        m_fB2 = static_cast<float>(b2);
        m_fA0 = static_cast<float>(a0);
        m_fA1 = static_cast<float>(a1);
        m_fA2 = static_cast<float>(a2);
    };
    switch (iType) {
        case 1:
            set((1 - c) / 2, 1 - c, (1 - c) / 2, 1 + alpha, -2 * c, 1 - alpha);
            return true;
        case 2:
            set((1 + c) / 2, -(1 + c), (1 + c) / 2, 1 + alpha, -2 * c, 1 - alpha);
            return true;
        case 3:
        case 4:
        case 5:
        case 6:
            DesignSecondForm(iType, fGainDb, fSlope, fQ, fFrequency, fSampleRate, bHigh);
            return true;
        case 7:
            set(1 + alpha * A, -2 * c, 1 - alpha * A, 1 + alpha / A, -2 * c, 1 - alpha / A);
            return true;
        case 8:
            if (bHigh) {
                set(g2, 0, 0, 0, 0, 0);  // the gain in dB as it is, kept as the system had it
            } else {
                set(A * ((A + 1) - (A - 1) * c + beta * s), 2 * A * ((A - 1) - (A + 1) * c),
                    A * ((A + 1) - (A - 1) * c - beta * s), (A + 1) + (A - 1) * c + beta * s,
                    -2 * ((A - 1) + (A + 1) * c), (A + 1) + (A - 1) * c - beta * s);
            }
            return true;
        case 9:
            if (bHigh) {
                set(1, 0, 0, 0, 0, 0);
            } else {
                set(A * ((A + 1) + (A - 1) * c + beta * s), -2 * A * ((A - 1) + (A + 1) * c),
                    A * ((A + 1) + (A - 1) * c - beta * s), (A + 1) - (A - 1) * c + beta * s,
                    2 * ((A - 1) - (A + 1) * c), (A + 1) - (A - 1) * c - beta * s);
            }
            return true;
        default:
            return false;
    }
}

// Types 3 to 6 on the clamped frequency, with q2 = q^(1 / (slope + 1)) for q > 1.
void CSERVICE_FILTER::DesignSecondForm(int iType, float fGainDb, float fSlope, float fQ,
                                       float fFrequency, float fSampleRate, bool bHigh) {
    if (bHigh) {
        m_fB0 = (iType == 3 || iType == 6) ? 1.0f : 0.0f;
        m_fB1 = m_fB2 = m_fA0 = m_fA1 = m_fA2 = 0.0f;
        return;
    }
    const double q2 = (fSlope != 0.0f && fQ > 1.0f) ? std::pow(fQ, 1.0 / (fSlope + 1.0)) : fQ;
    const double w2 = 2.0 * kPi * fFrequency / fSampleRate;
    const double s2 = std::sin(w2);
    const double c2 = std::cos(w2);
    const double a2 = s2 / (2.0 * q2);
    const double N = 1.0 + a2;
    double b0 = 0.0;
    double b1 = 0.0;
    double b2 = 0.0;
    if (iType == 3) {
        b0 = (1 - c2) / 2 / N;
        b1 = (1 - c2) / N;
        b2 = b0;
        m_fA0 = 0.0f;
    } else if (iType == 4) {
        b0 = (1 + c2) / 2 / N;
        b1 = -(1 + c2) / N;
        b2 = b0;
    } else if (iType == 5) {
        b0 = std::sqrt(q2 + 1) * a2 / N;
        b2 = -b0;
    } else {
        b0 = 1 / N;
        b1 = -2 * c2 / N;
        b2 = 1 / N;
    }
    m_fB0 = static_cast<float>(b0);
    m_fB1 = static_cast<float>(b1);
    m_fB2 = static_cast<float>(b2);
    // a0 stays as it stood (0 for type 3); the feedback is stored with reversed sign.
    m_fA1 = static_cast<float>(2 * c2 / N);
    m_fA2 = static_cast<float>(-(1 - a2) / N);
}

int CSERVICE_FILTER::_process(float *pfBlock, int n, float fGainDb, float fFrequency,
                              float fSampleRate) {
    if (fGainDb != m_fGain || fFrequency != m_fFrequency ||
        (fSampleRate != m_fSampleRate && fSampleRate != 0.0f)) {
        if (fSampleRate != 0.0f) {
            m_fSampleRate = fSampleRate;
        }
        _quit();
        _init(static_cast<int>(m_fType), fGainDb, m_fSlope, m_fQ, fFrequency, m_fSampleRate);
    }
    if (pfBlock == nullptr || n < 1 || m_pIIRState == nullptr) {
        return 0;
    }
    _adjustDataBuffer(n);
    ippsIIR_32f(pfBlock, m_pfData, n, m_pIIRState);
    std::memcpy(pfBlock, m_pfData.get(), sizeof(float) * static_cast<size_t>(n));
    return 0;
}

int CSERVICE_FILTER::_quit() {
    if (m_pIIRState != nullptr) {
        ippsIIRFree_32f(m_pIIRState);
        m_pIIRState = nullptr;
    }
    return 0;
}
