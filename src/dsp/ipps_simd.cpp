#include "dsp/ipps_simd.h"

#include <cstddef>

// On x86-64 each kernel is built twice, for the baseline and for AVX2, and the loader picks
// the one the processor runs. Floating-point contraction is off in standard C++ mode, so both
// give the same bits.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
#define QK_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define QK_KERNEL
#endif

namespace qk::simd {
namespace {
// Eight floats: two baseline registers, or one AVX register. Values of this type never cross
// a function boundary, whose calling convention would differ between the two builds.
typedef float Float8 __attribute__((vector_size(32)));
}  // namespace

QK_KERNEL void ScaledCopy(float *dst, const float *src, int n, float scale) {
    if (scale == 1.0f) {
        std::memmove(dst, src, sizeof(float) * static_cast<size_t>(n > 0 ? n : 0));
        return;
    }
    const Float8 s = {scale, scale, scale, scale, scale, scale, scale, scale};
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        Float8 v;
        std::memcpy(&v, src + i, sizeof(v));
        v *= s;
        std::memcpy(dst + i, &v, sizeof(v));
    }
    for (; i < n; ++i) {
        dst[i] = src[i] * scale;
    }
}

QK_KERNEL void MultiplyPairs(float *dst, const float *a, const float *b, int pairs) {
    const Float8 sign = {-1.0f, 1.0f, -1.0f, 1.0f, -1.0f, 1.0f, -1.0f, 1.0f};
    int k = 0;
    for (; k + 4 <= pairs; k += 4) {
        Float8 x;
        Float8 y;
        std::memcpy(&x, a + 2 * k, sizeof(x));
        std::memcpy(&y, b + 2 * k, sizeof(y));
        const Float8 yRe = __builtin_shufflevector(y, y, 0, 0, 2, 2, 4, 4, 6, 6);
        const Float8 yIm = __builtin_shufflevector(y, y, 1, 1, 3, 3, 5, 5, 7, 7);
        const Float8 xSwapped = __builtin_shufflevector(x, x, 1, 0, 3, 2, 5, 4, 7, 6);
        const Float8 product = x * yRe + xSwapped * yIm * sign;
        std::memcpy(dst + 2 * k, &product, sizeof(product));
    }
    for (; k < pairs; ++k) {
        const float ar = a[2 * k];
        const float ai = a[2 * k + 1];
        const float br = b[2 * k];
        const float bi = b[2 * k + 1];
        dst[2 * k] = ar * br - ai * bi;
        dst[2 * k + 1] = ar * bi + ai * br;
    }
}

}  // namespace qk::simd
