// Marks a function whose loops the compiler is to vectorize. GCC at -O2 vectorizes a loop only
// when the vector code replaces the scalar loop whole (its "very cheap" cost model), which the
// block loops of the audio path, with trip counts known at run time, never satisfy; such
// functions ask for the dynamic cost model. Clang vectorizes these loops at -O2 already.
//
// QK_VECTORIZE_WIDE also makes an AVX2 version of the function beside the baseline one on
// x86-64; the loader picks the one the processor runs. Sanitizer builds keep one version, as
// the signal layer's kernels do: the loader's choice runs before the sanitizer's runtime (either
// sanitizer).
#pragma once

#if defined(__GNUC__) && !defined(__clang__)
#define QK_VECTORIZE __attribute__((optimize("tree-vectorize", "vect-cost-model=dynamic")))
#else
#define QK_VECTORIZE
#endif

// Clang tells of its sanitizers through __has_feature only.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QK_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QK_SANITIZED 1
#endif

#if defined(__x86_64__) && defined(__linux__) && !defined(QK_SANITIZED)
#define QK_VECTORIZE_WIDE QK_VECTORIZE __attribute__((target_clones("avx2", "default")))
#else
#define QK_VECTORIZE_WIDE QK_VECTORIZE
#endif
