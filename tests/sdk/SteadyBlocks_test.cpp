// Blocks in the steady state allocate nothing: every allocation of the process goes through
// the counting functions below, and once a scene of moving sources has played a while, a run of
// further blocks with every source moving every block must not make one, neither in the host's
// call for the block (a plug-in's audio callback) nor on the engine's thread or its workers.
// The sanitizer builds have their own allocator in the way; there the test doesn't run.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "quendarik/CQKSDK.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QK_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QK_TEST_SANITIZED 1
#endif

#if !defined(QK_TEST_SANITIZED)
namespace {
std::atomic<bool> g_bCounting{false};
std::atomic<long> g_lAllocations{0};

void count() {
    if (g_bCounting.load(std::memory_order_relaxed)) {
        g_lAllocations.fetch_add(1, std::memory_order_relaxed);
    }
}

template <typename F>
F next(const char *name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
}  // namespace

// Each allocating entry of the C library, counted and passed on. operator new comes here too.
extern "C" {
void *malloc(size_t n) {
    static auto real = next<void *(*)(size_t)>("malloc");
    count();
    return real(n);
}
void *calloc(size_t k, size_t n) {
    // dlsym may ask calloc for a little memory before the real one is known.
    static char early[256];
    static std::atomic<bool> looking{false};
    static void *(*real)(size_t, size_t) = nullptr;
    if (real == nullptr) {
        if (looking.exchange(true)) {
            return k * n <= sizeof(early) ? early : nullptr;
        }
        real = next<void *(*)(size_t, size_t)>("calloc");
    }
    count();
    return real(k, n);
}
void *realloc(void *p, size_t n) {
    static auto real = next<void *(*)(void *, size_t)>("realloc");
    count();
    return real(p, n);
}
int posix_memalign(void **p, size_t a, size_t n) {
    static auto real = next<int (*)(void **, size_t, size_t)>("posix_memalign");
    count();
    return real(p, a, n);
}
void *aligned_alloc(size_t a, size_t n) {
    static auto real = next<void *(*)(size_t, size_t)>("aligned_alloc");
    count();
    return real(a, n);
}
void *memalign(size_t a, size_t n) {
    static auto real = next<void *(*)(size_t, size_t)>("memalign");
    count();
    return real(a, n);
}
}

namespace {
constexpr int kRate = 44100;
const std::string kDefaultSet = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";

// 40 sources circling the listener, each a few degrees a block, on two threads, mixed in the
// frequency domain; `blocks` blocks of 512 frames, counting allocations during the last
// `counted` of them.
long allocationsWhileMoving(int blocks, int counted) {
    CQKSDK sdk;
    sdk.qk_HRTF_Set_Full(kDefaultSet.c_str());
    sdk.qk_Asnk_Set(-2);
    sdk.qk_Siml_Set_PO(1);
    sdk.qk_Siml_Set_Convolution(1);
    sdk.qk_Siml_Set_Threads(2);
    int listener = 0, feed = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Ssrc_Add_WMP(feed);
    std::vector<int> sources(40);
    for (size_t i = 0; i < sources.size(); ++i) {
        sdk.qk_Vsrc_Add(sources[i], feed, 0, 1.0f, 1.0f, 0.0f, "circling");
    }
    std::vector<float> in(512);
    g_lAllocations = 0;
    for (int b = 0; b < blocks; ++b) {
        for (size_t i = 0; i < sources.size(); ++i) {
            const float angle = 0.07f * static_cast<float>(b) + 0.3f * static_cast<float>(i);
            sdk.qk_Vsrc_Set_Position(sources[i], 2.0f * std::cos(angle), 2.0f * std::sin(angle),
                                     0.1f * static_cast<float>(i % 5));
        }
        for (size_t k = 0; k < in.size(); ++k) {
            in[k] = 1000.0f * std::sin(0.01f * static_cast<float>(b * 512 + k));
        }
        sdk.qk_Ssrc_Gen_Samples_1P(feed, in.data(), 512, 16, 1, kRate);
        g_bCounting = b >= blocks - counted;
        const int result = sdk.qk_Siml_Process_WinAmp(512, 16, 2, kRate);
        g_bCounting = false;
        EXPECT_EQ(result, 0);
    }
    return g_lAllocations.load();
}
}  // namespace

TEST(SteadyBlocks, MovingSourcesAllocateNothing) {
    if (!std::ifstream(kDefaultSet).good()) {
        GTEST_SKIP() << "the build's default HRTF set is missing";
    }
    // The counting itself works: a run that counts from the first block sees the set-up.
    EXPECT_GT(allocationsWhileMoving(3, 3), 0);
    // Two full turns of every source first, so that each has met every direction it will
    // meet; then two more turns counted.
    EXPECT_EQ(allocationsWhileMoving(360, 180), 0);
}
#endif
