#include "binaural/CSERVICE_OVERLAP_HRTF.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>

#include "dsp/ipps_simd.h"
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
//   overlap[0 .. N - n) = overlap[n .. N)   the shift by one block,
//   overlap[n .. N) = 0                     which erases what the shift moved to n and up,
//   overlap[0 .. N - n) += t[n .. N).
// The erase after the shift is what keeps a single block of older overlap, so the bounds
// stay exactly these. When N is under 2n the shift leaves overlap[N - n .. n) unwritten; it
// is cleared as well, or a remnant of an earlier, longer response would sound in every block.
// Reading overlap[n + k] ahead of writing overlap[k] is the shift; from k = min(n, N - n) on,
// the shifted value is one the erase clears.
//
// The overlap is zero from zeroFrom to the end of its buffer: there the sums take a literal
// +0 instead of a load, which gives the same bits (x + 0 is what x + overlap gave, the sign
// of a zero included), and the erase skips what is zero already. In the steady state with
// N = 2n that leaves one read of t, one of overlap[0 .. n) and the writes of out and
// overlap[0 .. n).
QK_VECTORIZE_WIDE void sumAndShift(const float *__restrict t, float *__restrict o,
                                   float *__restrict out, int n, int N, int &zeroFrom) {
    const int iLive = std::min(zeroFrom, N);  // overlap[iLive .. N) is zero
    const int iSummed = std::min(n, iLive);
    for (int k = 0; k < iSummed; ++k) {
        out[k] = t[k] + o[k];
    }
    for (int k = iSummed; k < n; ++k) {
        out[k] = t[k] + 0.0f;
    }
    const int iRest = N - n;
    const int iShifted = std::min(n, iRest);
    const int iShiftedLive = std::max(0, std::min(iShifted, iLive - n));
    for (int k = 0; k < iShiftedLive; ++k) {
        o[k] = o[n + k] + t[n + k];
    }
    for (int k = iShiftedLive; k < iShifted; ++k) {
        o[k] = t[n + k] + 0.0f;
    }
    for (int k = iShifted; k < iRest; ++k) {
        o[k] = t[n + k];
    }
    if (iLive > iRest) {
        std::memset(o + iRest, 0, sizeof(float) * static_cast<size_t>(iLive - iRest));
    }
    // Beyond N the buffer is as it was: zero, unless it held more than N before.
    if (zeroFrom <= N) {
        zeroFrom = iRest;
    }
}

// The block's work buffers, which carry nothing from one block to the next: one set per
// thread and transform length, made the first time the thread convolves at that length and
// shared by every convolver it runs, so that many sources don't each stream a set of their
// own through the caches.
struct WorkArea {
    IppsFFTSpec_R_32f *spec = nullptr;
    CIppBuffer spectrum;  // the input's spectrum, N + 2 floats
    CIppBuffer product;   // one ear's product, N + 2 floats
    CIppBuffer time;      // its inverse transform, N floats
    WorkArea() = default;
    WorkArea(const WorkArea &) = delete;
    WorkArea &operator=(const WorkArea &) = delete;
    ~WorkArea() { ippsFFTFree_R_32f(spec); }
};

// Null when no transform of that order can be made.
WorkArea *workArea(int order) {
    thread_local std::array<std::unique_ptr<WorkArea>, kIppMaxFFTOrder + 1> areas;
    std::unique_ptr<WorkArea> &area = areas[static_cast<size_t>(order)];
    if (area == nullptr) {
        auto made = std::make_unique<WorkArea>();
        if (ippsFFTInitAlloc_R_32f(&made->spec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast) !=
            ippStsNoErr) {
            made->spec = nullptr;
            return nullptr;
        }
        const int N = 1 << order;
        made->spectrum.Allocate(N + 2);
        made->product.Allocate(N + 2);
        made->time.Allocate(N);
        area = std::move(made);
    }
    return area.get();
}

// The transform order for a wanted length: ceil(log2 N) as the ratio of two decimal
// logarithms, truncated.
int orderFor(int iWanted) {
    return static_cast<int>(std::ceil(std::log10(static_cast<double>(iWanted)) / std::log10(2.0)));
}
}  // namespace

CSERVICE_OVERLAP_HRTF::~CSERVICE_OVERLAP_HRTF() = default;

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
    const WorkArea *work = iOrder >= 0 && iOrder <= kIppMaxFFTOrder ? workArea(iOrder) : nullptr;
    if (work == nullptr) {
        return -1;
    }
    _quit();
    m_iFFTOrder = iOrder;
    m_iFFTLength = 1 << iOrder;
    const int N = m_iFFTLength;

    // Each response, zero-padded to N, into its spectrum. The input buffer serves as the
    // padding scratch here; it is overwritten by every block.
    m_pfInput.Allocate(N);
    m_pfSpectrumLeft.Allocate(N + 2);
    m_pfSpectrumRight.Allocate(N + 2);
    const int iTaps = std::min(iLength, N);
    for (int ear = 0; ear < 2; ++ear) {
        zeroFloats(m_pfInput, N);
        std::memcpy(m_pfInput.get(), ear == 0 ? pfLeft : pfRight,
                    sizeof(float) * static_cast<size_t>(iTaps));
        ippsFFTFwd_RToCCS_32f(m_pfInput, ear == 0 ? m_pfSpectrumLeft : m_pfSpectrumRight,
                              work->spec, nullptr);
    }
    m_iInputWritten = N;

    _adjustDataBuffer(m_pfOverlapLeft, m_iOverlapLeftSize, N);
    _adjustDataBuffer(m_pfOverlapRight, m_iOverlapRightSize, N);
    return 0;
}

int CSERVICE_OVERLAP_HRTF::_process(float *pfIn, int n, float *pfOut) {
    m_iInputHeld = 0;
    if (pfOut == nullptr || n < 1) {
        return -1;
    }
    const int N = m_iFFTLength;
    WorkArea *work =
        m_pfSpectrumLeft != nullptr && pfIn != nullptr && n <= N ? workArea(m_iFFTOrder) : nullptr;
    if (work == nullptr) {
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
    m_iInputHeld = n;
    const IppsFFTSpec_R_32f *spec = work->spec;
    float *spectrum = work->spectrum;
    float *product = work->product;
    float *time = work->time;
    ippsFFTFwd_RToCCS_32f(m_pfInput, spectrum, spec, nullptr);

    // One ear at a time. The products of the zero-frequency and the highest bin are those of
    // two reals (their imaginary parts are zero, and the inverse takes them as zero).
    const int iPairs = N / 2 + 1;
    qk::simd::MultiplyPairs(product, spectrum, m_pfSpectrumLeft, iPairs);
    ippsFFTInv_CCSToR_32f(product, time, spec, nullptr);
    sumAndShift(time, m_pfOverlapLeft, pfOut, n, N, m_iZeroFromLeft);
    qk::simd::MultiplyPairs(product, spectrum, m_pfSpectrumRight, iPairs);
    ippsFFTInv_CCSToR_32f(product, time, spec, nullptr);
    sumAndShift(time, m_pfOverlapRight, pfOut + n, n, N, m_iZeroFromRight);
    return 0;
}

int CSERVICE_OVERLAP_HRTF::_quit() {
    m_pfSpectrumLeft.Reset();
    m_pfSpectrumRight.Reset();
    m_pfInput.Reset();
    m_iInputWritten = 0;
    m_iInputHeld = 0;
    return 0;
}

void CSERVICE_OVERLAP_HRTF::ClearHistory() {
    zeroFloats(m_pfOverlapLeft, m_iOverlapLeftSize);
    zeroFloats(m_pfOverlapRight, m_iOverlapRightSize);
    m_iZeroFromLeft = 0;
    m_iZeroFromRight = 0;
}
