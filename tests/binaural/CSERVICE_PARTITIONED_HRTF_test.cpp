#include "binaural/CSERVICE_PARTITIONED_HRTF.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/SignalReference.h"

namespace {
// y = h * x, linear, in double precision.
std::vector<double> direct(const std::vector<float> &x, const std::vector<float> &h) {
    std::vector<double> y = qktest::LinearConvolution(x.data(), static_cast<int>(x.size()),
                                                      h.data(), static_cast<int>(h.size()));
    y.resize(x.size());
    return y;
}

// Energy of the difference against the reference's, in dB.
double errorDb(const std::vector<float> &got, const std::vector<double> &want) {
    double diff = 1e-300, ref = 1e-300;
    for (size_t i = 0; i < want.size(); ++i) {
        diff += (got[i] - want[i]) * (got[i] - want[i]);
        ref += want[i] * want[i];
    }
    return 10.0 * std::log10(diff / ref);
}

// Runs x through the convolver block by block; the left and right outputs, end to end.
void run(CSERVICE_PARTITIONED_HRTF &c, const std::vector<float> &x, int block,
         std::vector<float> &left, std::vector<float> &right) {
    std::vector<float> out(2 * static_cast<size_t>(block));
    for (size_t at = 0; at + block <= x.size(); at += block) {
        ASSERT_EQ(c._process(x.data() + at, block, out.data()), 0);
        left.insert(left.end(), out.begin(), out.begin() + block);
        right.insert(right.end(), out.begin() + block, out.end());
    }
}
}  // namespace

// The whole response is heard at every block length, whether it is shorter or much longer
// than the block, for blocks that are and aren't powers of two.
TEST(CSERVICE_PARTITIONED_HRTF, EqualsDirectConvolutionOfTheWholeResponse) {
    const struct {
        int block, taps;
    } cases[] = {{64, 30}, {64, 1000}, {512, 512}, {713, 2000}, {1024, 5000}, {8192, 512}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "block " << c.block << ", " << c.taps << " taps");
        const std::vector<float> hl = qktest::Noise(c.taps, 1);
        const std::vector<float> hr = qktest::Noise(c.taps, 2);
        const int blocks = std::max(3, 2 * c.taps / c.block + 2);
        const std::vector<float> x = qktest::Noise(blocks * c.block, 3);
        CSERVICE_PARTITIONED_HRTF conv;
        ASSERT_EQ(conv.SetResponse(hl.data(), hr.data(), c.taps, c.block), 0);
        std::vector<float> left, right;
        run(conv, x, c.block, left, right);
        EXPECT_LT(errorDb(left, direct(x, hl)), -100.0);
        EXPECT_LT(errorDb(right, direct(x, hr)), -100.0);
    }
}

// A new response fades in over one block from the old filter to the new, both applied to the
// same input history; from the next block on the new filter alone sounds, with its whole
// length over the input before the change too.
TEST(CSERVICE_PARTITIONED_HRTF, ANewResponseCrossFadesOverOneBlockOnTheSameHistory) {
    const int block = 256;
    const int taps = 700;
    const std::vector<float> a = qktest::Noise(taps, 4);
    const std::vector<float> b = qktest::Noise(taps, 5);
    const std::vector<float> x = qktest::Noise(8 * block, 6);
    const std::vector<double> withA = direct(x, a);
    const std::vector<double> withB = direct(x, b);

    CSERVICE_PARTITIONED_HRTF conv;
    ASSERT_EQ(conv.SetResponse(a.data(), a.data(), taps, block), 0);
    std::vector<float> left, right;
    run(conv, std::vector<float>(x.begin(), x.begin() + 4 * block), block, left, right);
    ASSERT_EQ(conv.SetResponse(b.data(), b.data(), taps, block), 0);
    run(conv, std::vector<float>(x.begin() + 4 * block, x.end()), block, left, right);

    std::vector<double> want(x.size());
    for (size_t t = 0; t < x.size(); ++t) {
        const long i = static_cast<long>(t) - 4 * block;
        const double r = i < 0 ? 0.0 : i >= block ? 1.0 : static_cast<double>(i) / (block - 1);
        want[t] = withA[t] * (1.0 - r) + withB[t] * r;
    }
    EXPECT_LT(errorDb(left, want), -100.0);
    EXPECT_EQ(left, right);
}

// Short responses at large blocks are worked through in small partitions: little state.
TEST(CSERVICE_PARTITIONED_HRTF, HoldsLittleStateAndRefusesWhatItCannotDo) {
    const std::vector<float> h = qktest::Noise(512, 7);
    CSERVICE_PARTITIONED_HRTF conv;
    ASSERT_EQ(conv.SetResponse(h.data(), h.data(), 512, 8192), 0);
    EXPECT_EQ(conv.PartitionLength(), 512);
    EXPECT_LE(conv.StateBytes(), 64u * 1024u);
    ASSERT_EQ(conv.SetResponse(h.data(), h.data(), 512, 8192), 0);  // a change: two filters
    EXPECT_LE(conv.StateBytes(), 64u * 1024u);

    std::vector<float> in(8192, 1.0f), out(2 * 8192, 5.0f);
    EXPECT_EQ(conv._process(in.data(), 4096, out.data()), -1);  // not the block length
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(conv.SetResponse(nullptr, h.data(), 512, 8192), -1);
    EXPECT_EQ(conv.SetResponse(h.data(), h.data(), 0, 8192), -1);
    CSERVICE_PARTITIONED_HRTF empty;
    EXPECT_EQ(empty._process(in.data(), 64, out.data()), -1);
}
