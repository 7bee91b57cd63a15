// Vector kernels for the few loops of the transform layer that run on every block. The
// compiler's own vectoriser leaves such loops alone at the optimisation level the library is
// built with (it won't add a scalar tail), so they are written with the compiler's generic
// vector types, which become SIMD code on any target that has it and plain code elsewhere.
// Loads and stores go through memcpy, so no alignment is assumed.
#pragma once

#include <cstring>

namespace qk::simd {

typedef float Float4 __attribute__((vector_size(16)));

inline Float4 Load(const float *p) {
    Float4 v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void Store(float *p, Float4 v) {
    std::memcpy(p, &v, sizeof(v));
}

// dst[i] = src[i] * scale for n values. dst and src are the same array or don't overlap.
void ScaledCopy(float *dst, const float *src, int n, float scale);

// Complex products of interleaved pairs (re, im): dst[k] = a[k] * b[k] for `pairs` pairs.
// dst may be a or b; the arrays don't otherwise overlap.
void MultiplyPairs(float *dst, const float *a, const float *b, int pairs);

}  // namespace qk::simd
