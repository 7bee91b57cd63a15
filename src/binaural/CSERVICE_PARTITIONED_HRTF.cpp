#include "binaural/CSERVICE_PARTITIONED_HRTF.h"

#include <algorithm>
#include <cstring>

#include "binaural/CFrequencyMix.h"
#include "platform/Vectorize.h"

namespace {
// sum += g * x * h over `floats` floats of interleaved complex values, for both ears at once.
QK_VECTORIZE_WIDE void multiplyAdd(const float *__restrict x, const float *__restrict hl,
                                   const float *__restrict hr, float *__restrict sl,
                                   float *__restrict sr, int floats, float g) {
    for (int k = 0; k < floats; k += 2) {
        const float xr = x[k];
        const float xi = x[k + 1];
        sl[k] += g * (xr * hl[k] - xi * hl[k + 1]);
        sl[k + 1] += g * (xr * hl[k + 1] + xi * hl[k]);
        sr[k] += g * (xr * hr[k] - xi * hr[k + 1]);
        sr[k + 1] += g * (xr * hr[k + 1] + xi * hr[k]);
    }
}

// The same through the old and the new filter of a cross-fade: the old products to the steady
// sums, the new less the old to the change sums.
QK_VECTORIZE_WIDE void multiplyAddFading(const float *__restrict x, const float *__restrict ol,
                                         const float *__restrict orr, const float *__restrict nl,
                                         const float *__restrict nr, float *__restrict sl,
                                         float *__restrict sr, float *__restrict cl,
                                         float *__restrict cr, int floats, float g) {
    for (int k = 0; k < floats; k += 2) {
        const float xr = x[k];
        const float xi = x[k + 1];
        const float olr = xr * ol[k] - xi * ol[k + 1];
        const float oli = xr * ol[k + 1] + xi * ol[k];
        const float orr_ = xr * orr[k] - xi * orr[k + 1];
        const float ori = xr * orr[k + 1] + xi * orr[k];
        sl[k] += g * olr;
        sl[k + 1] += g * oli;
        sr[k] += g * orr_;
        sr[k + 1] += g * ori;
        cl[k] += g * ((xr * nl[k] - xi * nl[k + 1]) - olr);
        cl[k + 1] += g * ((xr * nl[k + 1] + xi * nl[k]) - oli);
        cr[k] += g * ((xr * nr[k] - xi * nr[k + 1]) - orr_);
        cr[k + 1] += g * ((xr * nr[k + 1] + xi * nr[k]) - ori);
    }
}

// The cross-fade over one block, for the P samples from sample `at` of a block of n:
// out = old * (1 - r) + out * r, r rising from 0 to 1 over the block as the original service's
// ramp does (value i of n is i / (n - 1)).
QK_VECTORIZE_WIDE void crossFade(const float *__restrict old, float *__restrict out, int at,
                                 int count, int n) {
    if (n < 2) {
        return;  // no ramp: the new filter alone
    }
    const double step = 1.0 / (n - 1);
    for (int i = 0; i < count; ++i) {
        const float r = static_cast<float>(step * (at + i));
        out[i] = old[i] * (1.0f - r) + out[i] * r;
    }
}
}  // namespace

CSERVICE_PARTITIONED_HRTF::~CSERVICE_PARTITIONED_HRTF() {
    ippsFFTFree_R_32f(m_pFFTSpec);
}

int CSERVICE_PARTITIONED_HRTF::_quit() {
    ippsFFTFree_R_32f(m_pFFTSpec);
    m_pFFTSpec = nullptr;
    m_iBlock = m_iPartition = m_iFFTLength = m_iFloats = 0;
    m_iSlots = m_iNewest = 0;
    m_pfWindow.Reset();
    m_pfDelayLine.Reset();
    for (Filter &f : m_filters) {
        f = Filter{};
    }
    m_iCurrent = 0;
    m_bWaiting = false;
    m_pfSumLeft.Reset();
    m_pfSumRight.Reset();
    m_pfFadeOut.Reset();
    m_pfPadded.Reset();
    return 0;
}

bool CSERVICE_PARTITIONED_HRTF::Setup(int iBlockLength) {
    const int partition = PartitionFor(iBlockLength);
    const int order = OrderFor(partition);
    if (order < 0) {
        return false;
    }
    IppsFFTSpec_R_32f *pSpec = nullptr;
    if (ippsFFTInitAlloc_R_32f(&pSpec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast) !=
        ippStsNoErr) {
        return false;
    }
    _quit();
    m_pFFTSpec = pSpec;
    m_iBlock = iBlockLength;
    m_iPartition = partition;
    m_iFFTLength = 1 << order;
    m_iFloats = m_iFFTLength + 2;
    m_pfWindow.AllocateZeroed(m_iFFTLength);
    m_pfSumLeft.AllocateZeroed(m_iFloats);
    m_pfSumRight.AllocateZeroed(m_iFloats);
    m_pfFadeOut.AllocateZeroed(2 * partition);
    m_pfPadded.AllocateZeroed(m_iFFTLength);
    return true;
}

bool CSERVICE_PARTITIONED_HRTF::MakeFilter(Filter &filter, const float *pfLeft,
                                           const float *pfRight, int iLength) {
    const int partitions = (iLength + m_iPartition - 1) / m_iPartition;
    if (static_cast<long long>(partitions) * m_iFloats > (1LL << 30)) {
        return false;
    }
    filter.iPartitions = partitions;
    // Kept from one response to the next when large enough: a move that changes the response
    // allocates nothing once the longest response has been seen.
    if (filter.ownLeft.size() < partitions * m_iFloats) {
        filter.ownLeft.Allocate(partitions * m_iFloats);
        filter.ownRight.Allocate(partitions * m_iFloats);
    }
    filter.left = filter.ownLeft;
    filter.right = filter.ownRight;
    filter.table.reset();
    float *padded = m_pfPadded;
    for (int p = 0; p < partitions; ++p) {
        const int at = p * m_iPartition;
        const int taps = std::min(m_iPartition, iLength - at);
        for (int ear = 0; ear < 2; ++ear) {
            ippsZero_32f(padded, m_iFFTLength);
            ippsCopy_32f((ear == 0 ? pfLeft : pfRight) + at, padded, taps);
            float *spectrum = (ear == 0 ? filter.ownLeft : filter.ownRight) + p * m_iFloats;
            ippsFFTFwd_RToCCS_32f(padded, spectrum, m_pFFTSpec, nullptr);
        }
    }
    return true;
}

void CSERVICE_PARTITIONED_HRTF::GrowDelayLine(int iPartitions) {
    if (iPartitions <= m_iSlots) {
        return;
    }
    CIppBuffer grown;
    grown.AllocateZeroed(iPartitions * m_iFloats);
    // The newest spectrum goes to slot 0 and the older ones after it, in order.
    for (int k = 0; k < m_iSlots; ++k) {
        const int from = (m_iNewest + k) % m_iSlots;
        std::memcpy(grown + k * m_iFloats, m_pfDelayLine + from * m_iFloats,
                    sizeof(float) * static_cast<size_t>(m_iFloats));
    }
    m_pfDelayLine = std::move(grown);
    m_iSlots = iPartitions;
    m_iNewest = 0;
}

CSERVICE_PARTITIONED_HRTF::Filter *CSERVICE_PARTITIONED_HRTF::FilterFor(int iBlockLength,
                                                                        bool &bFresh) {
    bFresh =
        m_pFFTSpec == nullptr || iBlockLength != m_iBlock || m_filters[m_iCurrent].iPartitions == 0;
    if (bFresh && !Setup(iBlockLength)) {
        return nullptr;
    }
    return &m_filters[bFresh ? m_iCurrent : 1 - m_iCurrent];
}

int CSERVICE_PARTITIONED_HRTF::SetResponse(const float *pfLeft, const float *pfRight, int iLength,
                                           int iBlockLength) {
    if (pfLeft == nullptr || pfRight == nullptr || iLength < 1 || iBlockLength < 1) {
        return -1;
    }
    bool bFresh = false;
    Filter *target = FilterFor(iBlockLength, bFresh);
    if (target == nullptr || !MakeFilter(*target, pfLeft, pfRight, iLength)) {
        return -1;
    }
    GrowDelayLine(target->iPartitions);
    m_bWaiting = !bFresh;
    return 0;
}

int CSERVICE_PARTITIONED_HRTF::SetResponseSpectra(std::shared_ptr<const CHRTFFilterBank> table,
                                                  int iLeft, int iRight, int iBlockLength) {
    if (table == nullptr || iLeft < 0 || iRight < 0 || iLeft >= table->Slots() ||
        iRight >= table->Slots() || table->PartitionLength() != PartitionFor(iBlockLength) ||
        table->FFTLength() != (1 << OrderFor(table->PartitionLength()))) {
        return -1;
    }
    bool bFresh = false;
    Filter *target = FilterFor(iBlockLength, bFresh);
    if (target == nullptr) {
        return -1;
    }
    target->left = table->Slot(iLeft);
    target->right = table->Slot(iRight);
    target->iPartitions = table->Partitions();
    target->table = std::move(table);
    GrowDelayLine(target->iPartitions);
    m_bWaiting = !bFresh;
    return 0;
}

bool CSERVICE_PARTITIONED_HRTF::InUse(const CHRTFFilterBank &table, int iLeft, int iRight) const {
    const Filter &current = m_filters[m_iCurrent];
    return !m_bWaiting && current.table.get() == &table && iLeft >= 0 && iRight >= 0 &&
           iLeft < table.Slots() && iRight < table.Slots() && current.left == table.Slot(iLeft) &&
           current.right == table.Slot(iRight);
}

void CSERVICE_PARTITIONED_HRTF::ClearHistory() {
    if (m_pfWindow != nullptr) {
        ippsZero_32f(m_pfWindow, m_iFFTLength);
    }
    if (m_pfDelayLine != nullptr) {
        ippsZero_32f(m_pfDelayLine, m_iSlots * m_iFloats);
    }
}

size_t CSERVICE_PARTITIONED_HRTF::StateBytes() const {
    size_t floats = static_cast<size_t>(m_pfWindow.size()) + m_pfDelayLine.size() +
                    m_pfSumLeft.size() + m_pfSumRight.size() + m_pfFadeOut.size() +
                    m_pfPadded.size();
    for (const Filter &f : m_filters) {
        floats += static_cast<size_t>(f.ownLeft.size()) + f.ownRight.size();
    }
    return floats * sizeof(float);
}

void CSERVICE_PARTITIONED_HRTF::PushPartition(const float *pfIn) {
    const int P = m_iPartition;
    const int N = m_iFFTLength;
    ippsMove_32f(m_pfWindow + P, m_pfWindow, N - P);
    ippsCopy_32f(pfIn, m_pfWindow + (N - P), P);
    m_iNewest = m_iNewest == 0 ? m_iSlots - 1 : m_iNewest - 1;
    ippsFFTFwd_RToCCS_32f(m_pfWindow, m_pfDelayLine + m_iNewest * m_iFloats, m_pFFTSpec, nullptr);
}

void CSERVICE_PARTITIONED_HRTF::Convolve(const Filter &filter, float *pfLeft, float *pfRight) {
    const int P = m_iPartition;
    const int N = m_iFFTLength;
    float *sumLeft = m_pfSumLeft;
    float *sumRight = m_pfSumRight;
    ippsZero_32f(sumLeft, m_iFloats);
    ippsZero_32f(sumRight, m_iFloats);
    Accumulate(filter, 0, sumLeft, sumRight, 1.0f, 0, m_iFloats);
    // The valid part of the circular result is its last P samples (overlap-save). The inverse
    // runs in place, N + 2 floats of spectrum becoming N samples.
    ippsFFTInv_CCSToR_32f(sumLeft, sumLeft, m_pFFTSpec, nullptr);
    ippsCopy_32f(sumLeft + (N - P), pfLeft, P);
    ippsFFTInv_CCSToR_32f(sumRight, sumRight, m_pFFTSpec, nullptr);
    ippsCopy_32f(sumRight + (N - P), pfRight, P);
}

void CSERVICE_PARTITIONED_HRTF::Accumulate(const Filter &filter, int iAge, float *pfSumLeft,
                                           float *pfSumRight, float fGain, int iFrom,
                                           int iTo) const {
    for (int k = 0; k < filter.iPartitions; ++k) {
        const float *x = m_pfDelayLine + ((m_iNewest + iAge + k) % m_iSlots) * m_iFloats;
        multiplyAdd(x + iFrom, filter.left + k * m_iFloats + iFrom,
                    filter.right + k * m_iFloats + iFrom, pfSumLeft + iFrom, pfSumRight + iFrom,
                    iTo - iFrom, fGain);
    }
}

void CSERVICE_PARTITIONED_HRTF::AccumulateFading(int iAge, CFrequencyMix &mix, int iPartition,
                                                 float fGain, int iFrom, int iTo) const {
    using K = CFrequencyMix::Kind;
    const Filter &old = m_filters[m_iCurrent];
    const Filter &next = m_filters[1 - m_iCurrent];
    float *steadyLeft = mix.Sum(K::kSteady, 0, iPartition);
    float *steadyRight = mix.Sum(K::kSteady, 1, iPartition);
    float *changeLeft = mix.Sum(K::kChange, 0, iPartition);
    float *changeRight = mix.Sum(K::kChange, 1, iPartition);
    const int both = std::min(old.iPartitions, next.iPartitions);
    const int count = iTo - iFrom;
    for (int k = 0; k < both; ++k) {
        const float *x = m_pfDelayLine + ((m_iNewest + iAge + k) % m_iSlots) * m_iFloats;
        const int at = k * m_iFloats + iFrom;
        multiplyAddFading(x + iFrom, old.left + at, old.right + at, next.left + at, next.right + at,
                          steadyLeft + iFrom, steadyRight + iFrom, changeLeft + iFrom,
                          changeRight + iFrom, count, fGain);
    }
    // Partitions only one of the two filters has.
    for (int k = both; k < old.iPartitions; ++k) {
        const float *x = m_pfDelayLine + ((m_iNewest + iAge + k) % m_iSlots) * m_iFloats;
        const int at = k * m_iFloats + iFrom;
        multiplyAdd(x + iFrom, old.left + at, old.right + at, steadyLeft + iFrom,
                    steadyRight + iFrom, count, fGain);
        multiplyAdd(x + iFrom, old.left + at, old.right + at, changeLeft + iFrom,
                    changeRight + iFrom, count, -fGain);
    }
    for (int k = both; k < next.iPartitions; ++k) {
        const float *x = m_pfDelayLine + ((m_iNewest + iAge + k) % m_iSlots) * m_iFloats;
        const int at = k * m_iFloats + iFrom;
        multiplyAdd(x + iFrom, next.left + at, next.right + at, changeLeft + iFrom,
                    changeRight + iFrom, count, fGain);
    }
}

int CSERVICE_PARTITIONED_HRTF::_processInto(const float *pfIn, int n, CFrequencyMix &mix,
                                            float fGain) {
    if (m_pFFTSpec == nullptr || n != m_iBlock || pfIn == nullptr ||
        m_filters[m_iCurrent].iPartitions == 0 || !mix.Active() || mix.BlockLength() != n ||
        mix.FFTLength() != m_iFFTLength) {
        return -1;
    }
    using K = CFrequencyMix::Kind;
    mix.MarkUsed(K::kSteady);
    if (m_bWaiting) {
        mix.MarkUsed(K::kChange);
    }
    // One partition at a time: the delay line needs no more than the filters' partitions.
    const Filter &current = m_filters[m_iCurrent];
    for (int at = 0, p = 0; at < n; at += m_iPartition, ++p) {
        PushPartition(pfIn + at);
        if (m_bWaiting) {
            AccumulateFading(0, mix, p, fGain, 0, m_iFloats);
        } else {
            Accumulate(current, 0, mix.Sum(K::kSteady, 0, p), mix.Sum(K::kSteady, 1, p), fGain, 0,
                       m_iFloats);
        }
    }
    if (m_bWaiting) {
        m_iCurrent = 1 - m_iCurrent;
        m_bWaiting = false;
    }
    return 0;
}

int CSERVICE_PARTITIONED_HRTF::_process(const float *pfIn, int n, float *pfOut) {
    if (pfOut == nullptr) {
        return -1;
    }
    if (m_pFFTSpec == nullptr || n != m_iBlock || pfIn == nullptr ||
        m_filters[m_iCurrent].iPartitions == 0) {
        if (n > 0) {
            std::memset(pfOut, 0, sizeof(float) * 2 * static_cast<size_t>(n));
        }
        return -1;
    }
    const int P = m_iPartition;
    const Filter &current = m_filters[m_iCurrent];
    const Filter &next = m_filters[1 - m_iCurrent];
    for (int at = 0; at < n; at += P) {
        PushPartition(pfIn + at);
        if (m_bWaiting) {
            Convolve(current, m_pfFadeOut, m_pfFadeOut + P);
            Convolve(next, pfOut + at, pfOut + n + at);
            crossFade(m_pfFadeOut, pfOut + at, at, P, n);
            crossFade(m_pfFadeOut + P, pfOut + n + at, at, P, n);
        } else {
            Convolve(current, pfOut + at, pfOut + n + at);
        }
    }
    if (m_bWaiting) {
        m_iCurrent = 1 - m_iCurrent;
        m_bWaiting = false;
    }
    return 0;
}
