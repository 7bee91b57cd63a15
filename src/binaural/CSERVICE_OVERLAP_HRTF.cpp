#include "binaural/CSERVICE_OVERLAP_HRTF.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/Vectorize.h"

namespace {
// Zero-based index arithmetic on buffers of N floats stays in int: N is at most 2^24.
void zeroFloats(float *pf, int n) {
    if (n > 0) {
        std::memset(pf, 0, sizeof(float) * static_cast<size_t>(n));
    }
}

// With t the inverse transform of this block's product:
//   t[0 .. n) += overlap[0 .. n)            the block as it sounds, which goes to out;
//   tail = t[n .. N)                        what this block leaves for later blocks;
//   overlap[0 .. N - n) = overlap[n .. N)   the shift by one block,
//   overlap[n .. N) = 0                     which erases what the shift moved to n and up,
//   overlap[0 .. N - n) += tail.
// The erase after the shift is what keeps a single block of older overlap, so the bounds
// stay exactly these. When N is under 2n the shift leaves overlap[N - n .. n) unwritten; it
// is cleared as well, or a remnant of an earlier, longer response would sound in every block.
// Reading overlap[n + k] ahead of writing overlap[k] is the shift; from k = min(n, N - n) on,
// the shifted value is one the erase clears.
QK_VECTORIZE_WIDE void sumAndShift(const float *__restrict t, float *__restrict o,
                                   float *__restrict tail, float *__restrict out, int n, int N) {
    for (int k = 0; k < n; ++k) {
        out[k] = t[k] + o[k];
    }
    const int iRest = N - n;
    const int iShifted = std::min(n, iRest);
    for (int k = 0; k < iShifted; ++k) {
        tail[k] = t[n + k];
        o[k] = o[n + k] + t[n + k];
    }
    for (int k = iShifted; k < iRest; ++k) {
        tail[k] = t[n + k];
        o[k] = t[n + k];
    }
    std::memset(o + iRest, 0, sizeof(float) * static_cast<size_t>(n));
}

// The transform order for a wanted length: ceil(log2 N) as the ratio of two decimal
// logarithms, truncated.
int orderFor(int iWanted) {
    return static_cast<int>(std::ceil(std::log10(static_cast<double>(iWanted)) / std::log10(2.0)));
}
}  // namespace

CSERVICE_OVERLAP_HRTF::~CSERVICE_OVERLAP_HRTF() {
    ippsFFTFree_R_32f(m_pFFTSpec);
}

int CSERVICE_OVERLAP_HRTF::_adjustDataBuffer(CIppBuffer &buffer, int &iSize, int iWanted) {
    if (iWanted < 1) {
        return 0;
    }
    if (buffer == nullptr) {
        buffer.AllocateZeroed(iWanted);
        iSize = buffer.size();
    } else if (iSize < iWanted) {
        CIppBuffer grown;
        grown.AllocateZeroed(iWanted);
        std::memcpy(grown.get(), buffer.get(), sizeof(float) * static_cast<size_t>(iSize));
        buffer = std::move(grown);
        iSize = buffer.size();
    }
    return 0;
}

int CSERVICE_OVERLAP_HRTF::_init(float *pfLeft, float *pfRight, int iLength, int iBlockLength) {
    m_iLength = iLength;
    if (iLength < 1) {
        return -1;
    }
    if (pfLeft == nullptr || pfRight == nullptr || iBlockLength < 1) {
        return -1;
    }
    const long long wanted = static_cast<long long>(iLength) - 1 + iBlockLength;
    if (wanted > (1LL << kIppMaxFFTOrder)) {
        return -1;
    }
    const int iOrder = orderFor(static_cast<int>(wanted));
    IppsFFTSpec_R_32f *pSpec = nullptr;
    if (ippsFFTInitAlloc_R_32f(&pSpec, iOrder, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast) !=
        ippStsNoErr) {
        return -1;
    }
    _quit();
    m_pFFTSpec = pSpec;
    m_iFFTOrder = iOrder;
    m_iFFTLength = 1 << iOrder;
    const int N = m_iFFTLength;

    // Each response, zero-padded to N, into its packed spectrum. The input buffer serves as the
    // padding scratch here; it is overwritten by every block.
    m_pfInput.Allocate(N);
    m_pfInputSpectrum.Allocate(N);
    m_pfSpectrumLeft.Allocate(N);
    m_pfSpectrumRight.Allocate(N);
    const int iTaps = std::min(iLength, N);
    for (int ear = 0; ear < 2; ++ear) {
        zeroFloats(m_pfInput, N);
        std::memcpy(m_pfInput.get(), ear == 0 ? pfLeft : pfRight,
                    sizeof(float) * static_cast<size_t>(iTaps));
        ippsFFTFwd_RToPack_32f(m_pfInput, ear == 0 ? m_pfSpectrumLeft : m_pfSpectrumRight,
                               m_pFFTSpec, nullptr);
    }
    m_iInputWritten = N;
    m_pfProductLeft.Allocate(N);
    m_pfTimeLeft.Allocate(N);
    m_pfProductRight.Allocate(N);
    m_pfTimeRight.Allocate(N);

    _adjustDataBuffer(m_pfOverlapLeft, m_iOverlapLeftSize, N);
    _adjustDataBuffer(m_pfOverlapRight, m_iOverlapRightSize, N);
    _adjustDataBuffer(m_pfTailLeft, m_iTailLeftSize, N);
    _adjustDataBuffer(m_pfTailRight, m_iTailRightSize, N);
    return 0;
}

int CSERVICE_OVERLAP_HRTF::_process(float *pfIn, int n, float *pfOut) {
    if (pfOut == nullptr || n < 1) {
        return -1;
    }
    const int N = m_iFFTLength;
    if (m_pFFTSpec == nullptr || pfIn == nullptr || n > N) {
        zeroFloats(pfOut, 2 * n);
        return -1;
    }
    // The padded block: past the first n samples the buffer only needs clearing as far as an
    // earlier block or _init wrote it; the forward transform leaves its input as it is.
    std::memcpy(m_pfInput.get(), pfIn, sizeof(float) * static_cast<size_t>(n));
    if (m_iInputWritten > n) {
        zeroFloats(m_pfInput.get() + n, m_iInputWritten - n);
    }
    m_iInputWritten = n;
    ippsFFTFwd_RToPack_32f(m_pfInput, m_pfInputSpectrum, m_pFFTSpec, nullptr);

    ippsMulPack_32f(m_pfInputSpectrum, m_pfSpectrumLeft, m_pfProductLeft, N);
    ippsMulPack_32f(m_pfInputSpectrum, m_pfSpectrumRight, m_pfProductRight, N);
    ippsFFTInv_PackToR_32f(m_pfProductLeft, m_pfTimeLeft, m_pFFTSpec, nullptr);
    sumAndShift(m_pfTimeLeft, m_pfOverlapLeft, m_pfTailLeft, pfOut, n, N);
    ippsFFTInv_PackToR_32f(m_pfProductRight, m_pfTimeRight, m_pFFTSpec, nullptr);
    sumAndShift(m_pfTimeRight, m_pfOverlapRight, m_pfTailRight, pfOut + n, n, N);
    return 0;
}

int CSERVICE_OVERLAP_HRTF::_quit() {
    ippsFFTFree_R_32f(m_pFFTSpec);
    m_pFFTSpec = nullptr;
    m_pfSpectrumLeft.Reset();
    m_pfSpectrumRight.Reset();
    m_pfInput.Reset();
    m_pfInputSpectrum.Reset();
    m_pfProductLeft.Reset();
    m_pfTimeLeft.Reset();
    m_pfProductRight.Reset();
    m_pfTimeRight.Reset();
    return 0;
}

void CSERVICE_OVERLAP_HRTF::ClearHistory() {
    zeroFloats(m_pfOverlapLeft, m_iOverlapLeftSize);
    zeroFloats(m_pfOverlapRight, m_iOverlapRightSize);
    zeroFloats(m_pfTailLeft, m_iTailLeftSize);
    zeroFloats(m_pfTailRight, m_iTailRightSize);
}
