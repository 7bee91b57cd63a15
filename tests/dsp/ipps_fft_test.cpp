#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

#include "dsp/IppBuffer.h"
#include "dsp/ipps.h"
#include "dsp/ipps_fft_plans.h"
#include "support/SignalReference.h"

namespace {
// Single-precision transforms of values of order 1: the error grows like log2 N times the
// float epsilon times the largest magnitude (at most N for the noise used here).
float tolerance(int n) {
    return 2e-6f * static_cast<float>(n) * std::log2(static_cast<float>(n) + 1.0f) + 1e-6f;
}

// A transform object released at the end of the scope.
struct Spec {
    explicit Spec(int order, int flag = IPP_FFT_DIV_INV_BY_N) {
        status = ippsFFTInitAlloc_R_32f(&spec, order, flag, ippAlgHintFast);
    }
    ~Spec() { ippsFFTFree_R_32f(spec); }
    IppsFFTSpec_R_32f *spec = nullptr;
    IppStatus status;
};
}  // namespace

TEST(IppsFFT, ImpulseGivesAFlatCCSSpectrum) {
    for (int order : {0, 1, 4, 10}) {
        const int n = 1 << order;
        Spec spec(order);
        ASSERT_EQ(spec.status, ippStsNoErr);
        CIppBuffer x(n);
        CIppBuffer ccs(n + 2);
        ippsZero_32f(x, n);
        x[0] = 1.0f;
        ippsFFTFwd_RToCCS_32f(x, ccs, spec.spec, nullptr);
        for (int k = 0; k <= n / 2; ++k) {
            EXPECT_EQ(ccs[2 * k], 1.0f) << "order " << order << " bin " << k;
            EXPECT_EQ(ccs[2 * k + 1], 0.0f) << "order " << order << " bin " << k;
        }
    }
}

TEST(IppsFFT, ForwardMatchesADirectDftInBothLayouts) {
    const int n = 32;
    Spec spec(5);
    const std::vector<float> x = qktest::Noise(n, 7);
    const auto reference = qktest::DirectDft(x);
    std::vector<float> ccs(n + 2);
    std::vector<float> pack(n);
    ippsFFTFwd_RToCCS_32f(x.data(), ccs.data(), spec.spec, nullptr);
    ippsFFTFwd_RToPack_32f(x.data(), pack.data(), spec.spec, nullptr);
    for (int k = 0; k <= n / 2; ++k) {
        EXPECT_NEAR(ccs[2 * k], reference[k].real(), tolerance(n)) << k;
        EXPECT_NEAR(ccs[2 * k + 1], reference[k].imag(), tolerance(n)) << k;
    }
    // Pack: re0, re1, im1, ..., re15, im15, re16.
    for (int i = 0; i < n; ++i) {
        const int k = (i + 1) / 2;
        const double expected = i % 2 == 1 || i == 0 ? reference[k].real() : reference[k].imag();
        EXPECT_NEAR(pack[i], expected, tolerance(n)) << i;
    }
    // ConjPack restores all N bins, the upper half by symmetry.
    std::vector<Ipp32fc> full(n);
    ippsConjPack_32fc(pack.data(), full.data(), n);
    for (int k = 0; k < n; ++k) {
        EXPECT_NEAR(full[k].re, reference[k].real(), tolerance(n)) << k;
        EXPECT_NEAR(full[k].im, reference[k].imag(), tolerance(n)) << k;
    }
}

TEST(IppsFFT, ForwardThenInverseReturnsTheInput) {
    for (int order : {0, 1, 2, 3, 9, 14}) {
        const int n = 1 << order;
        Spec spec(order);
        const std::vector<float> x = qktest::Noise(n, 11);
        // Aligned, unaligned (one float into a vector) and in place all take their own path.
        CIppBuffer spectrum(n + 2);
        CIppBuffer back(n + 2);
        std::vector<float> unaligned(n + 3);
        ippsFFTFwd_RToCCS_32f(x.data(), spectrum, spec.spec, nullptr);
        ippsCopy_32f(x.data(), back, n);
        ippsFFTFwd_RToCCS_32f(back, back, spec.spec, nullptr);
        // n / 2 + 1 bins: for n = 1 that is one bin, and the buffer's third float is not part
        // of the result.
        for (int i = 0; i < 2 * (n / 2 + 1); ++i) {
            ASSERT_EQ(back[i], spectrum[i]) << "CCS in place, order " << order << " at " << i;
        }
        ippsFFTInv_CCSToR_32f(spectrum, back, spec.spec, nullptr);
        ippsFFTFwd_RToPack_32f(x.data(), unaligned.data() + 1, spec.spec, nullptr);
        ippsFFTInv_PackToR_32f(unaligned.data() + 1, unaligned.data() + 1, spec.spec, nullptr);
        for (int i = 0; i < n; ++i) {
            EXPECT_NEAR(back[i], x[i], 1e-5f) << "CCS order " << order << " at " << i;
            EXPECT_NEAR(unaligned[i + 1], x[i], 1e-5f) << "Pack order " << order << " at " << i;
        }
    }
}

TEST(IppsFFT, PackProductIsCircularConvolutionWithoutExtraScale) {
    for (int order : {1, 3, 8}) {
        const int n = 1 << order;
        Spec spec(order);
        const std::vector<float> a = qktest::Noise(n, 21);
        const std::vector<float> b = qktest::Noise(n, 22);
        CIppBuffer fa(n);
        CIppBuffer fb(n);
        CIppBuffer y(n);
        ippsFFTFwd_RToPack_32f(a.data(), fa, spec.spec, nullptr);
        ippsFFTFwd_RToPack_32f(b.data(), fb, spec.spec, nullptr);
        ippsMulPack_32f(fa, fb, fa, n);  // into one of its sources
        ippsFFTInv_PackToR_32f(fa, y, spec.spec, nullptr);
        const std::vector<double> expected = qktest::CircularConvolution(a, b);
        for (int i = 0; i < n; ++i) {
            EXPECT_NEAR(y[i], expected[i], tolerance(n)) << "order " << order << " at " << i;
        }
    }
}

TEST(IppsFFT, ScalingFlags) {
    // DC of sixteen ones: N unscaled, 1 divided by N, 4 divided by sqrt N; the pair round trips.
    const std::vector<float> ones(16, 1.0f);
    const std::pair<int, float> flags[] = {
        {IPP_FFT_DIV_INV_BY_N, 16.0f}, {IPP_FFT_DIV_FWD_BY_N, 1.0f}, {IPP_FFT_DIV_BY_SQRTN, 4.0f}};
    for (const auto &flag : flags) {
        Spec spec(4, flag.first);
        std::vector<float> ccs(18);
        std::vector<float> back(16);
        ippsFFTFwd_RToCCS_32f(ones.data(), ccs.data(), spec.spec, nullptr);
        ippsFFTInv_CCSToR_32f(ccs.data(), back.data(), spec.spec, nullptr);
        EXPECT_NEAR(ccs[0], flag.second, 1e-5f) << flag.first;
        EXPECT_NEAR(back[5], 1.0f, 1e-5f) << flag.first;
    }
    // Unknown flags and orders are refused and leave no transform object.
    Spec badFlag(4, 3);
    EXPECT_NE(badFlag.status, ippStsNoErr);
    EXPECT_EQ(badFlag.spec, nullptr);
    for (int order : {-1, kIppMaxFFTOrder + 1}) {
        EXPECT_NE(Spec(order).status, ippStsNoErr) << order;
    }
}

TEST(IppsFFT, ALengthIsPlannedOnceAndBlocksPlanNothing) {
    // Order 17 is used by no other test, so its first transform object plans and the rest must not.
    const int before = qk::FFTPlansMade();
    { Spec first(17); }
    const int afterFirst = qk::FFTPlansMade();
    EXPECT_EQ(afterFirst, before + 2);
    Spec second(17);
    const int n = 1 << 17;
    CIppBuffer x(n);
    CIppBuffer pack(n);
    ippsZero_32f(x, n);
    for (int block = 0; block < 3; ++block) {
        ippsFFTFwd_RToPack_32f(x, pack, second.spec, nullptr);
        ippsFFTInv_PackToR_32f(pack, x, second.spec, nullptr);
    }
    EXPECT_EQ(qk::FFTPlansMade(), afterFirst);
}

TEST(IppsFFT, SpecsForANewLengthMadeOnSeveralThreadsAtOnce) {
    // Order 16 is left to this test: four threads race to plan it, and each runs its own
    // transform object on its own data.
    const int before = qk::FFTPlansMade();
    const int n = 1 << 16;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, n] {
            Spec spec(16);
            const std::vector<float> x = qktest::Noise(n, 100 + t);
            std::vector<float> pack(n);
            std::vector<float> back(n);
            for (int round = 0; round < 3; ++round) {
                ippsFFTFwd_RToPack_32f(x.data(), pack.data(), spec.spec, nullptr);
                ippsFFTInv_PackToR_32f(pack.data(), back.data(), spec.spec, nullptr);
            }
            for (int i = 0; i < n; ++i) {
                ASSERT_NEAR(back[i], x[i], 1e-4f) << "thread " << t << " at " << i;
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(qk::FFTPlansMade(), before + 2);
}
