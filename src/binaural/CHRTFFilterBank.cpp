#include "binaural/CHRTFFilterBank.h"

#include <algorithm>

#include "binaural/PartitionLayout.h"

namespace {
// A table larger than this isn't made: the convolver then transforms each response itself.
constexpr long long kMaxFloats = 64LL << 20;
}  // namespace

std::shared_ptr<const CHRTFFilterBank> CHRTFFilterBank::Make(const float *pfData, int iSlots,
                                                             int iTaps, int iPartition) {
    const int order = qk::partition::OrderFor(iPartition);
    if (pfData == nullptr || iSlots < 1 || iTaps < 1 || iPartition < 1 || order < 0) {
        return nullptr;
    }
    const int partitions = (iTaps + iPartition - 1) / iPartition;
    const int N = 1 << order;
    const long long floats = static_cast<long long>(iSlots) * partitions * (N + 2);
    if (floats > kMaxFloats) {
        return nullptr;
    }
    IppsFFTSpec_R_32f *spec = nullptr;
    if (ippsFFTInitAlloc_R_32f(&spec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast) != ippStsNoErr) {
        return nullptr;
    }
    std::shared_ptr<CHRTFFilterBank> table(new CHRTFFilterBank());
    table->m_data.Allocate(static_cast<int>(floats));
    table->m_iPartition = iPartition;
    table->m_iPartitions = partitions;
    table->m_iFFTLength = N;
    table->m_iSlots = iSlots;
    CIppBuffer padded(N);
    for (int s = 0; s < iSlots; ++s) {
        for (int k = 0; k < partitions; ++k) {
            const int taps = std::min(iPartition, iTaps - k * iPartition);
            ippsZero_32f(padded, N);
            ippsCopy_32f(pfData + static_cast<long long>(s) * iTaps + k * iPartition, padded, taps);
            ippsFFTFwd_RToCCS_32f(padded, const_cast<float *>(table->Slot(s)) + k * (N + 2), spec,
                                  nullptr);
        }
    }
    ippsFFTFree_R_32f(spec);
    return table;
}
