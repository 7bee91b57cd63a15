#include "binaural/CFrequencyMix.h"

#include <algorithm>
#include <cstring>

#include "binaural/PartitionLayout.h"
#include "platform/Vectorize.h"

namespace {
// out += t, the change sum faded in by r = i / (n - 1) at sample i of the block, as the
// convolver's own cross-fade. A block of one sample has no ramp: the new filter alone sounds.
QK_VECTORIZE_WIDE void addFaded(const float *__restrict t, float *__restrict out, int at, int count,
                                int n, int kind) {
    if (kind == CFrequencyMix::kSteady || n < 2) {
        for (int i = 0; i < count; ++i) {
            out[i] += t[i];
        }
        return;
    }
    const double step = 1.0 / (n - 1);
    for (int i = 0; i < count; ++i) {
        out[i] += t[i] * static_cast<float>(step * (at + i));
    }
}
}  // namespace

CFrequencyMix::~CFrequencyMix() {
    ippsFFTFree_R_32f(m_pFFTSpec);
}

void CFrequencyMix::Reset() {
    ippsFFTFree_R_32f(m_pFFTSpec);
    m_pFFTSpec = nullptr;
    m_iBlock = m_iPartition = m_iPartitions = m_iFFTLength = 0;
    for (CIppBuffer &sums : m_sums) {
        sums.Reset();
    }
    m_used = {};
    m_pfTime.Reset();
    m_bActive = false;
}

bool CFrequencyMix::Begin(int n) {
    if (n < 1) {
        return false;
    }
    if (n != m_iBlock || m_pFFTSpec == nullptr) {
        Reset();
        const int partition = qk::partition::PartitionFor(n);
        const int order = qk::partition::OrderFor(partition);
        if (order < 0 || ippsFFTInitAlloc_R_32f(&m_pFFTSpec, order, IPP_FFT_DIV_INV_BY_N,
                                                ippAlgHintFast) != ippStsNoErr) {
            m_pFFTSpec = nullptr;
            return false;
        }
        m_iBlock = n;
        m_iPartition = partition;
        m_iPartitions = n / partition;
        m_iFFTLength = 1 << order;
        for (CIppBuffer &sums : m_sums) {
            sums.AllocateZeroed(2 * m_iPartitions * Floats());
        }
        m_pfTime.AllocateZeroed(Floats());
    }
    m_bActive = true;
    return true;
}

float *CFrequencyMix::Sum(Kind kind, int iEar, int iPartition) {
    if (!m_bActive || iPartition < 0 || iPartition >= m_iPartitions || iEar < 0 || iEar > 1) {
        return nullptr;
    }
    return m_sums[kind] + (iEar * m_iPartitions + iPartition) * Floats();
}

void CFrequencyMix::Abandon() {
    for (int kind = 0; kind < kKinds; ++kind) {
        if (m_used[kind]) {
            ippsZero_32f(m_sums[kind], 2 * m_iPartitions * Floats());
            m_used[kind] = false;
        }
    }
    m_bActive = false;
}

void CFrequencyMix::Finish(float *pfBlock) {
    if (!m_bActive) {
        return;
    }
    const int P = m_iPartition;
    const int N = m_iFFTLength;
    for (int kind = 0; kind < kKinds; ++kind) {
        if (!m_used[kind]) {
            continue;
        }
        for (int ear = 0; ear < 2; ++ear) {
            for (int p = 0; p < m_iPartitions; ++p) {
                float *sum = m_sums[kind] + (ear * m_iPartitions + p) * Floats();
                ippsFFTInv_CCSToR_32f(sum, m_pfTime, m_pFFTSpec, nullptr);
                // Overlap-save: the valid samples are the last P of the circular result.
                addFaded(m_pfTime + (N - P), pfBlock + ear * m_iBlock + p * P, p * P, P, m_iBlock,
                         kind);
            }
        }
        ippsZero_32f(m_sums[kind], 2 * m_iPartitions * Floats());
        m_used[kind] = false;
    }
    m_bActive = false;
}

QK_VECTORIZE_WIDE void CFrequencyMix::Take(CFrequencyMix &other) {
    if (!m_bActive || !other.m_bActive || other.m_iBlock != m_iBlock) {
        return;
    }
    const int floats = 2 * m_iPartitions * Floats();
    for (int kind = 0; kind < kKinds; ++kind) {
        if (!other.m_used[kind]) {
            continue;
        }
        float *__restrict sum = m_sums[kind];
        float *__restrict add = other.m_sums[kind];
        for (int i = 0; i < floats; ++i) {
            sum[i] += add[i];
            add[i] = 0.0f;
        }
        m_used[kind] = true;
    }
    other.m_used = {};
    other.m_bActive = false;
}
