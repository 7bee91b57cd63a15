#include "binaural/CSERVICE_OVERLAP_HRTF.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "support/SignalReference.h"

namespace {
// Single-precision transforms of up to 32768 points on signals within +-1: the error of one
// output sample stays below 1e-4 of the output's scale (measured: about 2e-5).
constexpr double kRelativeTolerance = 1e-4;

using qktest::ConvolveAt;

std::vector<float> decaying(int taps, double decay, unsigned seed) {
    std::vector<float> h = qktest::Noise(taps, seed);
    for (int k = 0; k < taps; ++k) {
        h[static_cast<size_t>(k)] *= static_cast<float>(std::exp(-k / decay));
    }
    return h;
}

// Runs consecutive blocks of x through the convolver and gathers both ears.
struct Blocks {
    std::vector<float> left, right;
};
Blocks runBlocks(CSERVICE_OVERLAP_HRTF &conv, std::vector<float> &x, int n, int blocks) {
    Blocks out;
    std::vector<float> block(2 * static_cast<size_t>(n));
    for (int b = 0; b < blocks; ++b) {
        EXPECT_EQ(conv._process(x.data() + b * n, n, block.data()), 0);
        out.left.insert(out.left.end(), block.begin(), block.begin() + n);
        out.right.insert(out.right.end(), block.begin() + n, block.end());
    }
    return out;
}

double scaleOf(const std::vector<float> &v) {
    double peak = 0.0;
    for (float f : v) {
        peak = std::max(peak, std::fabs(static_cast<double>(f)));
    }
    return peak;
}
}  // namespace

// Sample j of a block hears lags 0 .. 2n + j and nothing beyond. A response short enough for
// N = 2n is so the exact linear convolution, from a first block that starts with an all-zero
// overlap; one much longer (N = 32768) is cut there, as only one block of older overlap
// survives each shift.
TEST(CSERVICE_OVERLAP_HRTF, EachSampleHearsTwoBlocksPlusItsPosition) {
    const int n = 512;
    struct Case {
        int taps, blocks, fftLength;
    };
    for (const Case &c : {Case{128, 4, 1024}, Case{20000, 6, 32768}}) {
        SCOPED_TRACE(c.taps);
        std::vector<float> hl = decaying(c.taps, 8000.0, 4);
        std::vector<float> hr = decaying(c.taps, 8000.0, 5);
        std::vector<float> x = qktest::Noise(c.blocks * n, 6);
        CSERVICE_OVERLAP_HRTF conv;
        ASSERT_EQ(conv._init(hl.data(), hr.data(), c.taps, n), 0);
        EXPECT_EQ(conv.m_iFFTLength, c.fftLength);
        const Blocks out = runBlocks(conv, x, n, c.blocks);
        const double tol = kRelativeTolerance * scaleOf(out.left);
        int cutAudible = 0;
        for (int t = 0; t < c.blocks * n; ++t) {
            const int j = t % n;
            const double cut = ConvolveAt(x, hl, t, 0, 2 * n + j);
            ASSERT_NEAR(out.left[static_cast<size_t>(t)], cut, tol) << t;
            ASSERT_NEAR(out.right[static_cast<size_t>(t)], ConvolveAt(x, hr, t, 0, 2 * n + j), tol)
                << t;
            if (std::fabs(cut - ConvolveAt(x, hl, t)) > 100 * tol) {
                ++cutAudible;
            }
        }
        // From the fourth block on, the lags beyond the cut of the long response are present in
        // the input: the cut is what the comparison above has seen.
        if (c.taps > 3 * n) {
            EXPECT_GT(cutAudible, 2 * n);
        } else {
            EXPECT_EQ(cutAudible, 0);
        }
    }
}

TEST(CSERVICE_OVERLAP_HRTF, OverlapSurvivesQuitAndAGrowthOfTheTransform) {
    const int n = 256;
    std::vector<float> h = qktest::Noise(100, 7);
    std::vector<float> x = qktest::Noise(6 * n, 8);

    CSERVICE_OVERLAP_HRTF whole;
    ASSERT_EQ(whole._init(h.data(), h.data(), 100, n), 0);
    const Blocks reference = runBlocks(whole, x, n, 6);

    // The same run with a _quit and a fresh _init after three blocks.
    CSERVICE_OVERLAP_HRTF split;
    ASSERT_EQ(split._init(h.data(), h.data(), 100, n), 0);
    Blocks first = runBlocks(split, x, n, 3);
    split._quit();
    ASSERT_EQ(split._init(h.data(), h.data(), 100, n), 0);
    std::vector<float> rest(x.begin() + 3 * n, x.end());
    const Blocks second = runBlocks(split, rest, n, 3);
    for (int t = 0; t < 3 * n; ++t) {
        ASSERT_FLOAT_EQ(second.left[static_cast<size_t>(t)],
                        reference.left[static_cast<size_t>(3 * n + t)]);
    }

    // A longer response doubles N: the overlap keeps its first N values and the added part
    // is zero.
    const std::vector<float> before(split.m_pfOverlapLeft.get(),
                                    split.m_pfOverlapLeft.get() + split.m_iOverlapLeftSize);
    ASSERT_EQ(before.size(), 512u);
    std::vector<float> longer = qktest::Noise(400, 9);
    ASSERT_EQ(split._init(longer.data(), longer.data(), 400, n), 0);
    ASSERT_EQ(split.m_iFFTLength, 1024);
    ASSERT_EQ(split.m_iOverlapLeftSize, 1024);
    ASSERT_EQ(split.m_iOverlapRightSize, 1024);
    for (int i = 0; i < 512; ++i) {
        EXPECT_EQ(split.m_pfOverlapLeft[i], before[static_cast<size_t>(i)]);
        EXPECT_EQ(split.m_pfOverlapLeft[512 + i], 0.0f);
    }
}

// With a block that isn't a power of two N can be under 2n. The shift then leaves part of the
// overlap unwritten; what an earlier, longer response left there must not sound for ever.
TEST(CSERVICE_OVERLAP_HRTF, ShorterTransformThanTwoBlocksLeavesNoRemnant) {
    const int n = 700;
    std::vector<float> longer = qktest::Noise(512, 10);
    std::vector<float> shorter = qktest::Noise(128, 11);
    std::vector<float> x = qktest::Noise(2 * n, 12);
    CSERVICE_OVERLAP_HRTF conv;
    ASSERT_EQ(conv._init(longer.data(), longer.data(), 512, n), 0);
    runBlocks(conv, x, n, 2);
    ASSERT_EQ(conv._init(shorter.data(), shorter.data(), 128, n), 0);
    ASSERT_EQ(conv.m_iFFTLength, 1024);
    std::vector<float> silence(4 * static_cast<size_t>(n), 0.0f);
    const Blocks out = runBlocks(conv, silence, n, 4);
    // The old tail plays out within two blocks; after that silence in gives silence out.
    for (size_t t = 2 * static_cast<size_t>(n); t < out.left.size(); ++t) {
        ASSERT_EQ(out.left[t], 0.0f) << t;
        ASSERT_EQ(out.right[t], 0.0f) << t;
    }
}

namespace {
// The convolver as first written: the spectra packed, every overlap value read and the erase
// done in full at every block. The convolver that skips what is known to be zero must give
// the same bits.
class PlainOverlap {
  public:
    ~PlainOverlap() { ippsFFTFree_R_32f(m_spec); }
    void Init(const std::vector<float> &hl, const std::vector<float> &hr, int n) {
        int order = 0;
        while ((1 << order) < static_cast<int>(hl.size()) - 1 + n) {
            ++order;
        }
        ippsFFTFree_R_32f(m_spec);
        ippsFFTInitAlloc_R_32f(&m_spec, order, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
        m_N = 1 << order;
        for (int ear = 0; ear < 2; ++ear) {
            std::vector<float> padded(static_cast<size_t>(m_N), 0.0f);
            const std::vector<float> &h = ear == 0 ? hl : hr;
            std::copy(h.begin(), h.begin() + std::min<size_t>(h.size(), padded.size()),
                      padded.begin());
            m_h[ear].resize(static_cast<size_t>(m_N));
            ippsFFTFwd_RToPack_32f(padded.data(), m_h[ear].data(), m_spec, nullptr);
            if (m_o[ear].size() < static_cast<size_t>(m_N)) {
                m_o[ear].resize(static_cast<size_t>(m_N), 0.0f);
            }
        }
    }
    void Process(const float *x, int n, float *out) {
        const size_t N = static_cast<size_t>(m_N);
        std::vector<float> in(N, 0.0f), spectrum(N), product(N), t(N);
        std::copy(x, x + n, in.begin());
        ippsFFTFwd_RToPack_32f(in.data(), spectrum.data(), m_spec, nullptr);
        for (int ear = 0; ear < 2; ++ear) {
            ippsMulPack_32f(spectrum.data(), m_h[ear].data(), product.data(), m_N);
            ippsFFTInv_PackToR_32f(product.data(), t.data(), m_spec, nullptr);
            float *o = m_o[ear].data();
            for (int k = 0; k < n; ++k) {
                out[ear * n + k] = t[static_cast<size_t>(k)] + o[k];
            }
            const int rest = m_N - n;
            const int shifted = std::min(n, rest);
            for (int k = 0; k < shifted; ++k) {
                o[k] = o[n + k] + t[static_cast<size_t>(n + k)];
            }
            for (int k = shifted; k < rest; ++k) {
                o[k] = t[static_cast<size_t>(n + k)];
            }
            std::fill(o + rest, o + m_N, 0.0f);
        }
    }
    void Clear() {
        for (auto &o : m_o) {
            std::fill(o.begin(), o.end(), 0.0f);
        }
    }

  private:
    IppsFFTSpec_R_32f *m_spec = nullptr;
    int m_N = 0;
    std::vector<float> m_h[2], m_o[2];
};
}  // namespace

// Sequences that move the transform length up and down, with N = 2n, N under 2n and N far
// above it, across responses and a cleared history: every block is the plain convolver's to
// the bit.
TEST(CSERVICE_OVERLAP_HRTF, SameBitsAsThePlainConvolverAcrossChangesOfLength) {
    struct Step {
        int n, taps, blocks;
        bool clear;
    };
    const Step sequences[][4] = {
        {{512, 512, 3, false}, {512, 20000, 3, false}, {512, 100, 3, false}, {512, 512, 2, true}},
        {{700, 512, 3, false}, {700, 128, 3, false}, {700, 900, 2, false}, {700, 1, 2, false}},
        {{64, 3000, 4, false}, {64, 65, 3, false}, {64, 3000, 2, true}, {64, 2, 2, false}},
    };
    unsigned seed = 40;
    for (const auto &sequence : sequences) {
        CSERVICE_OVERLAP_HRTF conv;
        PlainOverlap plain;
        for (const Step &step : sequence) {
            const std::vector<float> hl = decaying(step.taps, 300.0, ++seed);
            const std::vector<float> hr = decaying(step.taps, 300.0, ++seed);
            ASSERT_EQ(conv._init(const_cast<float *>(hl.data()), const_cast<float *>(hr.data()),
                                 step.taps, step.n),
                      0);
            plain.Init(hl, hr, step.n);
            if (step.clear) {
                conv.ClearHistory();
                plain.Clear();
            }
            std::vector<float> x = qktest::Noise(step.n * step.blocks, ++seed);
            const size_t block = 2 * static_cast<size_t>(step.n);
            std::vector<float> got(block), want(block);
            for (int b = 0; b < step.blocks; ++b) {
                ASSERT_EQ(conv._process(x.data() + b * step.n, step.n, got.data()), 0);
                plain.Process(x.data() + b * step.n, step.n, want.data());
                ASSERT_EQ(0, std::memcmp(got.data(), want.data(), block * sizeof(float)))
                    << "n " << step.n << ", taps " << step.taps << ", block " << b;
            }
        }
    }
}
