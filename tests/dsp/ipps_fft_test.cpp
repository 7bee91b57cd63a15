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
    EXPECT_NEAR(pack[0], reference[0].real(), tolerance(n));
    for (int k = 1; k < n / 2; ++k) {
        EXPECT_NEAR(pack[2 * k - 1], reference[k].real(), tolerance(n)) << k;
        EXPECT_NEAR(pack[2 * k], reference[k].imag(), tolerance(n)) << k;
    }
    EXPECT_NEAR(pack[n - 1], reference[n / 2].real(), tolerance(n));
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
        CIppBuffer back(n);
        std::vector<float> unaligned(n + 3);
        ippsFFTFwd_RToCCS_32f(x.data(), spectrum, spec.spec, nullptr);
        ippsFFTInv_CCSToR_32f(spectrum, back, spec.spec, nullptr);
        ippsFFTFwd_RToPack_32f(x.data(), unaligned.data() + 1, spec.spec, nullptr);
        ippsFFTInv_PackToR_32f(unaligned.data() + 1, unaligned.data() + 1, spec.spec, nullptr);
        for (int i = 0; i < n; ++i) {
            EXPECT_NEAR(back[i], x[i], 1e-5f) << "CCS order " << order << " at " << i;
            EXPECT_NEAR(unaligned[i + 1], x[i], 1e-5f) << "Pack order " << order << " at " << i;
        }
    }
}

TEST(IppsFFT, InPlaceCCSTransformGivesTheSameSpectrum) {
    const int n = 64;
    Spec spec(6);
    const std::vector<float> x = qktest::Noise(n, 3);
    CIppBuffer separate(n + 2);
    CIppBuffer inPlace(n + 2);
    ippsCopy_32f(x.data(), inPlace, n);
    ippsFFTFwd_RToCCS_32f(x.data(), separate, spec.spec, nullptr);
    ippsFFTFwd_RToCCS_32f(inPlace, inPlace, spec.spec, nullptr);
    for (int i = 0; i < n + 2; ++i) {
        EXPECT_EQ(inPlace[i], separate[i]) << i;
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
    const int n = 16;
    std::vector<float> ones(n, 1.0f);
    std::vector<float> ccs(n + 2);
    std::vector<float> back(n);
    // Forward divided by N: DC of ones is 1; the inverse then doesn't scale.
    Spec byN(4, IPP_FFT_DIV_FWD_BY_N);
    ippsFFTFwd_RToCCS_32f(ones.data(), ccs.data(), byN.spec, nullptr);
    EXPECT_NEAR(ccs[0], 1.0f, 1e-6f);
    ippsFFTInv_CCSToR_32f(ccs.data(), back.data(), byN.spec, nullptr);
    EXPECT_NEAR(back[5], 1.0f, 1e-6f);
    // Both by sqrt N.
    Spec bySqrt(4, IPP_FFT_DIV_BY_SQRTN);
    ippsFFTFwd_RToCCS_32f(ones.data(), ccs.data(), bySqrt.spec, nullptr);
    EXPECT_NEAR(ccs[0], 4.0f, 1e-5f);
    // Unknown flags and orders are refused and leave no transform object.
    Spec badFlag(4, 3);
    EXPECT_NE(badFlag.status, ippStsNoErr);
    EXPECT_EQ(badFlag.spec, nullptr);
    Spec badOrder(kIppMaxFFTOrder + 1);
    EXPECT_NE(badOrder.status, ippStsNoErr);
    Spec negative(-1);
    EXPECT_NE(negative.status, ippStsNoErr);
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
    std::vector<int> failures(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, n, &failures] {
            Spec spec(16);
            const std::vector<float> x = qktest::Noise(n, 100 + t);
            std::vector<float> pack(n);
            std::vector<float> back(n);
            for (int round = 0; round < 3; ++round) {
                ippsFFTFwd_RToPack_32f(x.data(), pack.data(), spec.spec, nullptr);
                ippsFFTInv_PackToR_32f(pack.data(), back.data(), spec.spec, nullptr);
            }
            for (int i = 0; i < n; ++i) {
                failures[t] += std::fabs(back[i] - x[i]) > 1e-4f;
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(qk::FFTPlansMade(), before + 2);
    for (int t = 0; t < 4; ++t) {
        EXPECT_EQ(failures[t], 0) << t;
    }
}
