#include "binaural/CQUENDARIC_Service_CrossTalk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <limits>
#include <vector>

#include "support/HrtfSets.h"
#include "support/SignalReference.h"

namespace {
constexpr int kRate = 44100;
constexpr int kTaps = 32;
const std::string kSmallSet = std::string(QK_TEST_HRTF_DATA) + "/KEMAR_SMALL_16s_DFE.qkhrtf";

// Two measurements of a head: a loudspeaker on the left (azimuth 0 to 179) reaches the left
// ear at once and the right ear later, lower and duller; one on the right the other way round.
// With bNoCrossTalk the far ear hears nothing.
std::unique_ptr<CHELPER_HRTF> twoSpeakerSet(bool bNoCrossTalk = false) {
    auto set = qktest::MakeSet(2, kTaps, "BOTH", kRate);
    std::fill(set->m_pfData.get(), set->m_pfData.get() + 4 * kTaps, 0.0f);
    auto slot = [&](int s) { return set->m_pfData.get() + s * kTaps; };
    for (int m = 0; m < 2; ++m) {
        float *nearEar = slot(2 * m + m);  // left ear of 0, right ear of 1
        float *farEar = slot(2 * m + 1 - m);
        nearEar[1] = 0.9f;
        nearEar[2] = -0.3f;
        nearEar[3] = 0.1f;
        if (!bNoCrossTalk) {
            farEar[7] = 0.3f;
            farEar[8] = 0.25f;
            farEar[9] = 0.1f;
        }
    }
    set->m_aiLookup.assign(CHELPER_HRTF::kDirections, 0);
    for (int az = 180; az < 360; ++az) {
        for (int el = -90; el <= 90; ++el) {
            set->m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(az, el))] = 1;
        }
    }
    return set;
}

struct Speakers {
    float az1 = 30.0f, el1 = 0.0f, d1 = 1.0f, az2 = 330.0f, el2 = 0.0f, d2 = 1.0f;
};

int design(CQUENDARIC_Service_CrossTalk &ctc, CHELPER_HRTF *set, const Speakers &s, int block,
           float tes = 6.0f) {
    return ctc.Initialize(set, s.az1, s.el1, s.d1, s.az2, s.el2, s.d2, block, 1024, kRate, tes);
}

int run(CQUENDARIC_Service_CrossTalk &ctc, CHELPER_HRTF *set, const Speakers &s, float *data, int n,
        int block, float tes = 6.0f) {
    return ctc.GetSamples(set, s.az1, s.el1, s.d1, s.az2, s.el2, s.d2, block, 1024, data, n, kRate,
                          tes);
}

// Left then right output of a stereo signal (planar, 2 x length) fed in pieces of iPiece.
std::vector<float> process(CQUENDARIC_Service_CrossTalk &ctc, CHELPER_HRTF *set,
                           const std::vector<float> &in, int iPiece, int block) {
    const int length = static_cast<int>(in.size() / 2);
    std::vector<float> out(in.size());
    std::vector<float> piece;
    for (int at = 0; at < length; at += iPiece) {
        const int n = std::min(iPiece, length - at);
        piece.assign(in.begin() + at, in.begin() + at + n);
        piece.insert(piece.end(), in.begin() + length + at, in.begin() + length + at + n);
        run(ctc, set, Speakers(), piece.data(), n, block);
        std::copy(piece.begin(), piece.begin() + n, out.begin() + at);
        std::copy(piece.begin() + n, piece.end(), out.begin() + length + at);
    }
    return out;
}

std::vector<float> convolve(const std::vector<float> &x, const float *h, int iTaps) {
    const auto y = qktest::LinearConvolution(x.data(), static_cast<int>(x.size()), h, iTaps);
    return std::vector<float>(y.begin(), y.end());
}

// The two loudspeakers heard at the two ears, through the set's own responses.
struct Ears {
    std::vector<float> left, right;
};
Ears listen(CHELPER_HRTF &set, const std::vector<float> &speaker1,
            const std::vector<float> &speaker2) {
    float *a = nullptr, *b = nullptr, *c = nullptr, *d = nullptr;
    int la = 0, lc = 0;
    set.GetHRTF(a, b, la, 30.0f, 0.0f, kRate);
    set.GetHRTF(c, d, lc, 330.0f, 0.0f, kRate);
    Ears ears{convolve(speaker1, a, la), convolve(speaker1, b, la)};
    const std::vector<float> cl = convolve(speaker2, c, lc);
    const std::vector<float> dr = convolve(speaker2, d, lc);
    for (size_t i = 0; i < ears.left.size(); ++i) {
        ears.left[i] += cl[i];
        ears.right[i] += dr[i];
    }
    for (float *p : {a, b, c, d}) {
        ippsFree(p);
    }
    return ears;
}

// Left-ear over right-ear level in dB at each bin between 300 Hz and 5 kHz: median and worst.
std::pair<double, double> separation(const Ears &ears) {
    std::vector<float> l = ears.left;
    std::vector<float> r = ears.right;
    const size_t n = 1u << 15;
    l.resize(n, 0.0f);
    r.resize(n, 0.0f);
    CIppBuffer L(static_cast<int>(n)), R(static_cast<int>(n));
    IppsFFTSpec_R_32f *spec = nullptr;
    ippsFFTInitAlloc_R_32f(&spec, 15, IPP_FFT_DIV_INV_BY_N, ippAlgHintFast);
    ippsFFTFwd_RToPack_32f(l.data(), L, spec, nullptr);
    ippsFFTFwd_RToPack_32f(r.data(), R, spec, nullptr);
    ippsFFTFree_R_32f(spec);
    std::vector<double> db;
    for (size_t k = 300 * n / kRate + 1; k <= 5000 * n / kRate; ++k) {
        const double el = std::hypot(L[2 * k - 1], L[2 * k]);
        const double er = std::hypot(R[2 * k - 1], R[2 * k]) + 1e-30;
        db.push_back(20.0 * std::log10(el / er));
    }
    std::sort(db.begin(), db.end());
    return {db[db.size() / 2], db.front()};
}
}  // namespace

// The canceller checked acoustically: a signal meant for the left ear alone, played over
// loudspeakers at +-30 degrees and heard through the canceller's own set, reaches the right
// ear far lower than the left; without the canceller the head alone separates the ears.
TEST(CQUENDARIC_Service_CrossTalk, SeparatesTheEarsOverLoudspeakers) {
    if (!std::ifstream(kSmallSet).good()) {
        GTEST_SKIP() << "the build's canceller set is missing";
    }
    CHELPER_HRTF set(kSmallSet);
    CQUENDARIC_Service_CrossTalk ctc;
    ASSERT_EQ(design(ctc, &set, Speakers(), 512), 1);
    const int length = 16384;
    std::vector<float> in(2 * length, 0.0f);
    in[0] = 1.0f;  // the left input only
    const std::vector<float> out = process(ctc, &set, in, 512, 512);
    const std::vector<float> s1(out.begin(), out.begin() + length);
    const std::vector<float> s2(out.begin() + length, out.end());
    const auto with = separation(listen(set, s1, s2));
    const auto without = separation(listen(set, std::vector<float>(in.begin(), in.begin() + length),
                                           std::vector<float>(length, 0.0f)));
    std::printf(
        "[ figures  ] separation 300 Hz-5 kHz: canceller median %.1f dB, worst %.1f dB; "
        "without median %.1f dB, worst %.1f dB\n",
        with.first, with.second, without.first, without.second);
    EXPECT_GE(with.first, 15.0);
    EXPECT_GT(with.second, without.second);

    // The same head heard through the rendering set's longer responses (512 taps, which the
    // canceller's set cuts to 128): what a canceller meets when the ears aren't its own.
    const std::string longer = std::string(QK_TEST_HRTF_DATA) + "/VORLAN1_16s_DFE.qkhrtf";
    if (std::ifstream(longer).good()) {
        CHELPER_HRTF heads(longer);
        const auto other = separation(listen(heads, s1, s2));
        std::printf("[ figures  ] heard through the 512-tap set: median %.1f dB, worst %.1f dB\n",
                    other.first, other.second);
        EXPECT_GT(other.first, without.first);
    }
}

// With no cross-talk in the set (b = c = 0) the routes across are silent: each input reaches
// its own loudspeaker only.
TEST(CQUENDARIC_Service_CrossTalk, WithoutCrossTalkEachChannelKeepsItsSide) {
    auto set = twoSpeakerSet(true);
    CQUENDARIC_Service_CrossTalk ctc;
    ASSERT_EQ(design(ctc, set.get(), Speakers(), 1024), 1);
    // The inverse's peak sits in the middle of its 4096 taps: the output comes that much later.
    constexpr int kLength = 8192;
    std::vector<float> in(2 * kLength, 0.0f);
    const std::vector<float> noise = qktest::Noise(1024, 3);
    std::copy(noise.begin(), noise.end(), in.begin() + kLength);  // the right input only
    const std::vector<float> out = process(ctc, set.get(), in, 1024, 1024);
    double left = 0.0, right = 0.0;
    for (int i = 0; i < kLength; ++i) {
        left += std::fabs(out[static_cast<size_t>(i)]);
        right += std::fabs(out[static_cast<size_t>(kLength + i)]);
    }
    EXPECT_EQ(left, 0.0);
    EXPECT_GT(right, 1.0);
}

// Overlap-add keeps the convolution exact across blocks: pieces of any length, longer ones
// included (taken in several transforms), give the output of the block length designed for.
TEST(CQUENDARIC_Service_CrossTalk, OutputDoesNotDependOnThePieces) {
    auto set = twoSpeakerSet();
    const std::vector<float> in = qktest::Noise(2 * 20000, 9);
    CQUENDARIC_Service_CrossTalk reference;
    design(reference, set.get(), Speakers(), 512);
    const std::vector<float> expected = process(reference, set.get(), in, 512, 512);
    for (int piece : {713, 4000}) {
        CQUENDARIC_Service_CrossTalk ctc;
        design(ctc, set.get(), Speakers(), 512);
        const std::vector<float> out = process(ctc, set.get(), in, piece, 512);
        for (size_t i = 0; i < out.size(); i += 31) {
            ASSERT_NEAR(out[i], expected[i], 1e-4f) << piece << " at " << i;
        }
    }
}

// What redesigns: a move of a loudspeaker by more than 3 degrees, a block longer than N; not
// a move of exactly 3, nor a change of distance alone. A design stores the positions it was
// made for.
TEST(CQUENDARIC_Service_CrossTalk, RedesignsOnlyOnMovesOverThreeDegrees) {
    auto set = twoSpeakerSet();
    CQUENDARIC_Service_CrossTalk ctc;
    ASSERT_EQ(design(ctc, set.get(), Speakers(), 512), 1);
    std::vector<float> block(2 * 512, 0.0f);
    struct Case {
        Speakers s;
        bool redesigns;
    };
    Speakers three, threeAndHalf, distance, elevation;
    three.az1 = 33.0f;
    threeAndHalf.az2 = 326.5f;
    distance.d1 = 3.0f;
    elevation.el2 = 4.0f;
    for (const Case &c : {Case{three, false}, Case{distance, false}, Case{threeAndHalf, true},
                          Case{elevation, true}}) {
        design(ctc, set.get(), Speakers(), 512);
        EXPECT_EQ(run(ctc, set.get(), c.s, block.data(), 512, 512), 1);
        const bool redesigned = ctc.m_fAzimuth1 == c.s.az1 && ctc.m_fAzimuth2 == c.s.az2 &&
                                ctc.m_fElevation2 == c.s.el2 && ctc.m_fDistance1 == c.s.d1;
        EXPECT_EQ(redesigned, c.redesigns) << c.s.az1 << " " << c.s.az2 << " " << c.s.d1;
    }
    const int N = ctc.m_iFFTLength;
    std::vector<float> longer(2 * static_cast<size_t>(N + 1), 0.0f);
    EXPECT_EQ(run(ctc, set.get(), Speakers(), longer.data(), N + 1, 512), 1);
    EXPECT_GT(ctc.m_iFFTLength, N);
}

// Only unequal distances over 0.1 m delay a loudspeaker's path (by its travel time) and
// attenuate it; equal ones apply neither, whatever they are.
TEST(CQUENDARIC_Service_CrossTalk, DistancesCountOnlyWhenUnequal) {
    auto set = twoSpeakerSet();
    CQUENDARIC_Service_CrossTalk near;
    design(near, set.get(), Speakers(), 512);
    struct Case {
        float d1, d2;
        int extraTaps;
    };
    // Taps a path grows by: trunc(distance / 343 x 44100), 128 for 1 m and 385 for 3 m.
    const Case cases[] = {
        {3.0f, 3.0f, 0}, {0.05f, 0.08f, 0}, {0.05f, 1.0f, 128}, {3.0f, 1.0f, 385}};
    for (const Case &c : cases) {
        Speakers s;
        s.d1 = c.d1;
        s.d2 = c.d2;
        CQUENDARIC_Service_CrossTalk ctc;
        design(ctc, set.get(), s, 512);
        EXPECT_EQ(ctc.FilterLength(), near.FilterLength() + c.extraTaps)
            << c.d1 << " " << c.d2 << " near " << near.FilterLength();
        if (c.extraTaps == 0 && c.d1 == c.d2) {
            for (int k = 0; k < near.FilterLength(); k += 7) {
                ASSERT_EQ(ctc.m_pfFilterLL[k], near.m_pfFilterLL[k]) << k;
            }
        }
    }
}

// The TES stage uses the band stored before the call: a new value takes effect one change
// later.
TEST(CQUENDARIC_Service_CrossTalk, TESBandLagsOneCall) {
    auto set = twoSpeakerSet();
    CQUENDARIC_Service_CrossTalk ctc;
    design(ctc, set.get(), Speakers(), 512, 6.0f);  // designed with 12, the initial band
    EXPECT_EQ(ctc.m_fTES, 6.0f);
    std::vector<float> block(2 * 512, 0.0f);
    run(ctc, set.get(), Speakers(), block.data(), 512, 512, 20.0f);  // rebuilt with 6
    EXPECT_EQ(ctc.m_fTES, 20.0f);
    CQUENDARIC_Service_CrossTalk withSix;
    withSix.m_fTES = 6.0f;
    design(withSix, set.get(), Speakers(), 512, 1.0f);
    CQUENDARIC_Service_CrossTalk withTwelve;
    design(withTwelve, set.get(), Speakers(), 512, 1.0f);
    double differs = 0.0;
    for (int k = 0; k < CQUENDARIC_Service_CrossTalk::kTESTaps; ++k) {
        ASSERT_FLOAT_EQ(ctc.m_pfTESLeft[k], withSix.m_pfTESLeft[k]) << k;
        differs += std::fabs(withTwelve.m_pfTESLeft[k] - withSix.m_pfTESLeft[k]);
    }
    EXPECT_GT(differs, 1e-3);
}

// Without a set or a direction the service stays empty and leaves blocks alone; absurd
// distances and samples don't make it fail or write non-numbers elsewhere.
TEST(CQUENDARIC_Service_CrossTalk, BadInputIsSafe) {
    auto set = twoSpeakerSet();
    CQUENDARIC_Service_CrossTalk ctc;
    EXPECT_EQ(design(ctc, nullptr, Speakers(), 512), 0);
    auto noDirections = qktest::MakeSet(1, kTaps, "BOTH", kRate);
    noDirections->m_aiLookup.assign(CHELPER_HRTF::kDirections, -1);
    EXPECT_EQ(design(ctc, noDirections.get(), Speakers(), 512), 0);
    std::vector<float> block(2 * 64, 0.25f);
    EXPECT_EQ(run(ctc, noDirections.get(), Speakers(), block.data(), 64, 64), 0);
    EXPECT_EQ(block[100], 0.25f);

    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (float distance : {1e9f, -1.0f, nan, 0.05f}) {
        Speakers s;
        s.d1 = distance;
        ASSERT_EQ(design(ctc, set.get(), s, 256), 1) << distance;
        std::vector<float> noise = qktest::Noise(2 * 256, 1);
        ctc.GetSamples(set.get(), s.az1, s.el1, s.d1, s.az2, s.el2, s.d2, 256, 1024, noise.data(),
                       256, kRate, 6.0f);
        for (float v : noise) {
            ASSERT_TRUE(std::isfinite(v)) << distance;
        }
    }
}
