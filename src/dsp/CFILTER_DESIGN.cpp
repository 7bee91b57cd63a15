#include "dsp/CFILTER_DESIGN.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "dsp/FilterDesignSupport.h"
#include "dsp/ipps.h"

using qk::design::CTransform;
using qk::design::OrderFor;
using qk::design::Replace;

namespace {

// The grid of FIR2: 512 points below 1024 taps, else the power of two at or above the taps,
// with the logarithm taken in single precision as the designer always has.
int fir2GridSize(int nn) {
    if (nn < 1024) {
        return 512;
    }
    const float log2nn = std::log10(static_cast<float>(nn)) / std::log10(2.0f);
    return 1 << static_cast<int>(std::ceil(log2nn));
}

// Fills the FIR2 grid H (npt + 1 values, npt being the enlarged count) by linear interpolation
// of the amplitudes over the intervals. False when a jump lies too near either end.
bool fir2Grid(const float *pfFreq, const float *pfAmp, int iPoints, int npt, float lap,
              std::vector<float> &H) {
    H[0] = pfAmp[0];
    float nb = 1.0f;
    for (int i = 0; i + 1 < iPoints; ++i) {
        float ne;
        if (pfFreq[i + 1] - pfFreq[i] == 0.0f) {
            nb = nb - lap / 2.0f;
            ne = nb + lap;
        } else {
            const float position = static_cast<float>(npt) * pfFreq[i + 1];
            // Beyond the grid (or not a number): the same failure as a jump at the end.
            if (!(position >= -1.0e9f && position <= static_cast<float>(npt) + 1.0f)) {
                return false;
            }
            ne = static_cast<float>(static_cast<int>(position));
        }
        if (nb < 0.0f || ne > static_cast<float>(npt)) {
            return false;
        }
        const int count = static_cast<int>(ne - nb + 1.0f);
        for (int k = 0; k < count; ++k) {
            const float inc = nb == ne ? 0.0f : static_cast<float>(k) / (ne - nb);
            const int index = static_cast<int>(nb) + k - 1;
            // A smeared jump can start between 0 and 1, one point before the grid: skipped.
            if (index >= 0 && index < static_cast<int>(H.size())) {
                H[static_cast<size_t>(index)] = inc * pfAmp[i + 1] + (1.0f - inc) * pfAmp[i];
            }
        }
        nb = ne + 1.0f;
    }
    return true;
}

}  // namespace

void CFILTER_DESIGN::FIR2(int iOrder, float *pfFreq, float *pfAmp, int iPoints, float *&pfOut) {
    Replace(pfOut, 0);
    if (pfFreq == nullptr || pfAmp == nullptr || iPoints < 1 || iOrder < 0 ||
        iOrder >= (1 << kIppMaxFFTOrder)) {
        return;
    }
    const int nn = iOrder + 1;
    int npt = fir2GridSize(nn);
    const int order = OrderFor(npt);
    // The inverse gives npt samples; more taps than that cannot be filled.
    if (order > kIppMaxFFTOrder || nn > npt) {
        return;
    }
    Replace(pfOut, nn);
    const float lap = static_cast<float>(npt / 25);
    std::vector<float> H(static_cast<size_t>(npt) + 1, 0.0f);
    npt = npt + 1;
    if (!fir2Grid(pfFreq, pfAmp, iPoints, npt, lap, H)) {
        Replace(pfOut, 0);
        return;
    }
    // Linear phase for a delay of (nn - 1) / 2 samples, on a grid that the transform below
    // reads only in its lower half (see the header).
    const float dt = static_cast<float>(nn - 1) * 0.5f;
    std::vector<float> spectrum(2 * static_cast<size_t>(npt));
    for (int k = 0; k < npt; ++k) {
        const float rad = -dt * 3.1415927f * static_cast<float>(k) / static_cast<float>(npt - 1);
        spectrum[2 * static_cast<size_t>(k)] = std::cos(rad) * H[static_cast<size_t>(k)];
        spectrum[2 * static_cast<size_t>(k) + 1] = std::sin(rad) * H[static_cast<size_t>(k)];
    }
    CTransform transform(order, ippAlgHintAccurate);
    std::vector<float> impulse(static_cast<size_t>(npt - 1));
    ippsFFTInv_CCSToR_32f(spectrum.data(), impulse.data(), transform.Spec(), nullptr);
    ippsWinHamming_32f_I(impulse.data(), nn);
    std::memcpy(pfOut, impulse.data(), sizeof(float) * static_cast<size_t>(nn));
}

void CFILTER_DESIGN::InvertRegularised(float *pfIn, int iLength, int iDynamic, float *&pfOut,
                                       int &iOutLength, int iNormalise) {
    const int order = OrderFor(std::max(iLength, iOutLength));
    if (pfIn == nullptr || iLength < 1 || order > kIppMaxFFTOrder) {
        Replace(pfOut, 0);
        iOutLength = 0;
        return;
    }
    const int n = 1 << order;
    iOutLength = n;
    Replace(pfOut, n);
    CTransform transform(order, ippAlgHintFast);
    std::vector<Ipp32fc> spectrum = transform.Spectrum(pfIn, iLength);
    std::vector<float> level = qk::design::LevelsDb(spectrum);
    const int bins = n / 2 + 1;

    // Mean level between bins ceil(N / 256) and floor(N / 4), counted from 1. Very short
    // transforms, where that range is empty, take the first bin alone.
    const int lo = (n + 255) / 256;
    const int hi = std::max(n / 4, lo);
    double sum = 0.0;
    for (int i = lo - 1; i <= hi - 1; ++i) {
        sum += level[static_cast<size_t>(i)];
    }
    const float mean = static_cast<float>(sum / (hi - lo + 1));

    const float half = static_cast<float>(iDynamic / 2);
    std::vector<float> phase(static_cast<size_t>(bins));
    ippsPhase_32fc(spectrum.data(), phase.data(), bins);
    for (int i = 0; i < bins; ++i) {
        float l = std::clamp(level[static_cast<size_t>(i)] - mean, -half, half);
        if (iNormalise == 0) {
            l += mean;
        }
        // The inverse magnitude with the phase negated.
        const float magnitude = std::pow(10.0f, -l / 20.0f);
        spectrum[static_cast<size_t>(i)] = {std::cos(phase[static_cast<size_t>(i)]) * magnitude,
                                            -std::sin(phase[static_cast<size_t>(i)]) * magnitude};
    }
    ippsFFTInv_CCSToR_32f(&spectrum[0].re, pfOut, transform.Spec(), nullptr);

    float peak = 0.0f;
    int index = 0;
    ippsMaxIndx_32f(pfOut, n, &peak, &index);
    RotateInPlace(pfOut, n, n / 2 - index);
}

void CFILTER_DESIGN::InvertMagnitude(float *pfIn, int iLength, float *&pfOut, int &iOutLength,
                                     float fLimit) {
    const int order = std::max(OrderFor(iLength), 1);
    if (pfIn == nullptr || iLength < 1 || order > kIppMaxFFTOrder) {
        Replace(pfOut, 0);
        iOutLength = 0;
        return;
    }
    const int n = 1 << order;
    iOutLength = n;
    CTransform transform(order, ippAlgHintFast);
    const std::vector<Ipp32fc> spectrum = transform.Spectrum(pfIn, iLength);
    const int bins = n / 2 + 1;
    std::vector<float> freq(static_cast<size_t>(bins));
    std::vector<float> amp(static_cast<size_t>(bins));
    std::vector<float> magnitude(static_cast<size_t>(bins));
    ippsMagnitude_32fc(spectrum.data(), magnitude.data(), bins);
    for (int i = 0; i < bins; ++i) {
        float m = magnitude[static_cast<size_t>(i)];
        m = m < fLimit ? fLimit : m;
        m = m > 1.0f / fLimit ? 1.0f / fLimit : m;
        freq[static_cast<size_t>(i)] = static_cast<float>(i) / static_cast<float>(n / 2);
        amp[static_cast<size_t>(i)] = 1.0f / m;
    }
    float *taps = nullptr;
    FIR2(n - 1, freq.data(), amp.data(), bins, taps);
    Replace(pfOut, taps != nullptr ? n : 0);
    if (taps != nullptr) {
        std::memcpy(pfOut, taps, sizeof(float) * static_cast<size_t>(n));
        ippsFree(taps);
    } else {
        iOutLength = 0;
    }
}

void CFILTER_DESIGN::MinimumPhase(float *pfIn, int &iLength, float *&pfCepstrum, float *&pfOut) {
    const int order = OrderFor(iLength);
    if (pfIn == nullptr || iLength < 1 || order > kIppMaxFFTOrder) {
        return;
    }
    const int n = 1 << order;
    CTransform transform(order, ippAlgHintFast);
    std::vector<Ipp32fc> spectrum = transform.Spectrum(pfIn, iLength);
    iLength = n;
    Replace(pfCepstrum, n + 2);
    Replace(pfOut, n + 2);
    std::memset(pfCepstrum, 0, sizeof(float) * static_cast<size_t>(n + 2));
    std::memset(pfOut, 0, sizeof(float) * static_cast<size_t>(n + 2));

    // The real cepstrum: inverse transform of the log magnitude with zero phase.
    const int bins = n / 2 + 1;
    std::vector<float> logMagnitude(static_cast<size_t>(bins));
    ippsMagnitude_32fc(spectrum.data(), logMagnitude.data(), bins);
    qk::design::FloorMagnitudes(logMagnitude);
    ippsLn_32f_I(logMagnitude.data(), bins);
    ippsRealToCplx_32f(logMagnitude.data(), nullptr, spectrum.data(), bins);
    ippsFFTInv_CCSToR_32f(&spectrum[0].re, pfCepstrum, transform.Spec(), nullptr);

    // Fold onto the causal half: weights 1, 2, ..., 2, 1, then 0.
    std::vector<float> folded(pfCepstrum, pfCepstrum + n);
    for (int i = 1; i < n; ++i) {
        folded[static_cast<size_t>(i)] *= i < n / 2 ? 2.0f : (i == n / 2 ? 1.0f : 0.0f);
    }
    ippsFFTFwd_RToCCS_32f(folded.data(), &spectrum[0].re, transform.Spec(), nullptr);
    for (Ipp32fc &bin : spectrum) {
        const float gain = std::exp(bin.re);
        bin = {gain * std::cos(bin.im), gain * std::sin(bin.im)};
    }
    ippsFFTInv_CCSToR_32f(&spectrum[0].re, pfOut, transform.Spec(), nullptr);
}

void CFILTER_DESIGN::SetLowMagnitude(float *pfData, int iLength, int iSampleRate, float fCorner,
                                     float fValue) {
    const int order = OrderFor(iLength);
    if (pfData == nullptr || iLength < 1 || order > kIppMaxFFTOrder) {
        return;
    }
    CTransform transform(order, ippAlgHintAccurate);
    std::vector<Ipp32fc> spectrum = transform.Spectrum(pfData, iLength);
    const int bins = iLength / 2 + 1;
    const float nyquist = static_cast<float>(iSampleRate / 2);
    const float corner = std::ceil(static_cast<float>(bins) * fCorner / nyquist);
    // A rate under 2 Hz or a corner that isn't a number must not index outside the bins.
    const int kc =
        corner >= 0.0f ? static_cast<int>(std::min(corner, static_cast<float>(bins))) : 0;
    std::vector<float> phase(static_cast<size_t>(bins));
    ippsPhase_32fc(spectrum.data(), phase.data(), bins);
    for (int i = 0; i < kc; ++i) {
        const float p = phase[static_cast<size_t>(i)];
        spectrum[static_cast<size_t>(i)] = {std::cos(p) * fValue, std::sin(p) * fValue};
    }
    std::vector<float> result(static_cast<size_t>(1) << order);
    ippsFFTInv_CCSToR_32f(&spectrum[0].re, result.data(), transform.Spec(), nullptr);
    std::memcpy(pfData, result.data(), sizeof(float) * static_cast<size_t>(iLength));
}
