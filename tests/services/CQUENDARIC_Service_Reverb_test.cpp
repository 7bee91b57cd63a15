#include "services/CQUENDARIC_Service_Reverb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include "services/CLatePart.h"
#include "support/SignalReference.h"

namespace {
constexpr int kRate = 44100;

// The delays of the first six images of a source two metres from a listener in a small room.
SLateField field(float fRT60, float fOnset = 882.0f) {
    SLateField f;
    f.fRT60 = fRT60;
    const float delays[6] = {0.0058f, 0.0071f, 0.0093f, 0.0117f, 0.0132f, 0.0151f};
    std::copy(delays, delays + 6, f.afEarlyDelays);
    f.fOnset = fOnset;
    return f;
}

// The reverb's answer to one unit impulse, made in blocks of 8192.
std::vector<float> impulseResponse(CQUENDARIC_Service_Reverb &reverb, int iLength) {
    std::vector<float> in(static_cast<size_t>(iLength), 0.0f);
    std::vector<float> out(in.size(), 0.0f);
    in[0] = 1.0f;
    for (int at = 0; at < iLength; at += 8192) {
        const int n = std::min(8192, iLength - at);
        reverb.Process(in.data() + at, out.data() + at, n);
    }
    return out;
}

// T30: Schroeder's backward integral of the squared response, in dB, fitted by least squares
// between -5 and -35 dB; the time of a 60 dB fall at that slope.
double t30(const std::vector<float> &h, int iRate) {
    std::vector<double> edc(h.size() + 1, 0.0);
    for (size_t i = h.size(); i-- > 0;) {
        edc[i] = edc[i + 1] + static_cast<double>(h[i]) * h[i];
    }
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    int count = 0;
    for (size_t i = 0; i < h.size(); ++i) {
        const double db = 10.0 * std::log10(edc[i] / edc[0]);
        if (db <= -5.0 && db >= -35.0) {
            const double t = static_cast<double>(i) / iRate;
            sx += t;
            sy += db;
            sxx += t * t;
            sxy += t * db;
            ++count;
        }
    }
    const double slope = (count * sxy - sx * sy) / (count * sxx - sx * sx);
    return -60.0 / slope;
}
}  // namespace

// A pair tuned for T decays so that the T30 of either ear's impulse response is within 10 % of
// T, whatever the stability rule did to the combs.
TEST(CQUENDARIC_Service_Reverb, TunedPairDecaysInTheReverberationTime) {
    for (float T : {0.4f, 1.0f, 2.0f}) {
        CQUENDARIC_Service_Reverb left;
        CQUENDARIC_Service_Reverb right;
        EXPECT_EQ(CLatePart::Initialize(field(T), kRate, left, right), T);
        const int length = static_cast<int>((1.2 * T + 0.3) * kRate);
        for (CQUENDARIC_Service_Reverb *r : {&left, &right}) {
            const double measured = t30(impulseResponse(*r, length), kRate);
            std::printf("[ figures  ] T %.1f s: T30 %.3f s (%s ear)\n", T, measured,
                        r == &left ? "left" : "right");
            EXPECT_NEAR(measured, T, 0.1 * T);
        }
    }
}

// The chain's parts in their order: combs summed, all-passes in series, half the onset of
// delay, then the low pass; each checked against the services run by hand.
TEST(CQUENDARIC_Service_Reverb, ChainIsCombsThenAllPassesThenDelayThenLowPass) {
    const std::vector<float> in = qktest::Noise(5000, 11);
    struct Case {
        int combs;
        int allPasses;
        float onset;
        int delay;  // samples the chain's delay must give
    };
    const Case cases[] = {{0, 1, 200.0f, 100}, {1, 0, 0.0f, 0}, {2, 1, 1.0f, 0}};
    const float delays[3] = {0.0031f, 0.0047f, 0.0067f};
    const float gains[3] = {-0.7f, 0.6f, 0.65f};
    for (const Case &c : cases) {
        CQUENDARIC_Service_Reverb reverb;
        reverb.SetParameters(c.combs == 0 ? delays + 2 : delays, c.combs == 0 ? gains + 2 : gains,
                             c.combs, c.allPasses, nullptr);
        reverb.Initialize(c.onset, kRate);
        std::vector<float> out = in;
        reverb.Process(out.data(), out.data(), 5000);  // in place

        std::vector<float> expected(5000, 0.0f);
        std::vector<float> part(5000);
        for (int i = 0; i < c.combs; ++i) {
            CQUENDARIC_Service_Comb comb(delays[i], gains[i]);
            comb.Initialize(kRate);
            comb.Process(in.data(), part.data(), 5000);
            for (int k = 0; k < 5000; ++k) {
                expected[static_cast<size_t>(k)] += part[static_cast<size_t>(k)];
            }
        }
        if (c.combs == 0) {
            expected = in;
        }
        for (int i = 0; i < c.allPasses; ++i) {
            CQUENDARIC_Service_AllPass allPass(delays[c.combs == 0 ? 2 : c.combs + i],
                                               gains[c.combs == 0 ? 2 : c.combs + i]);
            allPass.Initialize(kRate);
            allPass.Process(expected.data(), expected.data(), 5000);
        }
        expected.insert(expected.begin(), static_cast<size_t>(c.delay), 0.0f);
        expected.resize(5000);
        CSERVICE_FILTER lowPass;
        lowPass._init(1, 1.0f, 1.0f, 0.5f, 10000.0f, kRate);
        lowPass._process(expected.data(), 5000, 1.0f, 10000.0f, 0.0f);
        for (size_t k = 0; k < 5000; k += 7) {
            ASSERT_NEAR(out[k], expected[k], 1e-5f) << c.combs << " combs, at " << k;
        }
    }
}

TEST(CQUENDARIC_Service_Reverb, EmptyReverbLeavesOutputAloneAndCleanupForgetsTheRate) {
    CQUENDARIC_Service_Reverb reverb;
    reverb.Initialize(100.0f, kRate);
    std::vector<float> in(64, 1.0f);
    std::vector<float> out(64, 3.0f);
    reverb.Process(in.data(), out.data(), 64);
    EXPECT_EQ(out[63], 3.0f);
    CLatePart::Initialize(field(1.0f), kRate, reverb, reverb);
    EXPECT_EQ(reverb.m_fSampleRate, static_cast<float>(kRate));
    reverb.Cleanup();
    EXPECT_EQ(reverb.m_fSampleRate, 0.0f);
    EXPECT_EQ(reverb.m_pCombs, nullptr);
}

// The stability rule's worked cases at T = 1 s, and the delays that would never leave its loop.
TEST(CLatePart, StabilityRuleDoublesDelaysUntilTheGainIsLowEnough) {
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        float T;
        float delay;
        float wantDelay;
        float wantGain;  // as the comb runs it, negated
    };
    const Case cases[] = {
        {1.0f, 0.03f, 0.03f, -0.8128f},  // 10^-0.09: no doubling
        {1.0f, 0.02f, 0.04f, -0.7586f},  // 10^-0.06 = 0.871 > 0.85, so 0.04 and 10^-0.12
        {0.0f, 0.02f, 0.02f, -0.0f},     // T 0: gain 0, nothing doubled
        {1.0f, 0.0f, 0.0f, -1.0f},       // a delay of 0 can't be doubled: the loop ends
        {1e30f, 0.01f, 10.24f, -1.0f},   // stopped at the longest delay
        {-2.0f, 0.02f, 0.02f, -0.0f},    // no time: as T 0
        {inf, 0.02f, 10.24f, -1.0f},
    };
    for (const Case &c : cases) {
        float delays[CLatePart::kEntries];
        float gains[CLatePart::kEntries];
        std::fill(delays, delays + CLatePart::kEntries, c.delay);
        std::copy(CLatePart::kAllPassDelays, CLatePart::kAllPassDelays + 7, delays + 6);
        CLatePart::TuneEar(c.T, delays, gains, CLatePart::kAllPassGains);
        EXPECT_NEAR(delays[0], c.wantDelay, 1e-6f) << c.T << " " << c.delay;
        EXPECT_NEAR(gains[0], c.wantGain, 1e-4f) << c.T << " " << c.delay;
        EXPECT_EQ(gains[10], 0.8f);  // the all-passes keep their table
    }
}

// The right ear's delays are the left's after the rule plus 1 ms; a dry level of 1 silences
// the reverb though it runs, and a lower one mixes it in.
TEST(CLatePart, RightEarIsOffsetAndDryLevelMixes) {
    CQUENDARIC_Service_Reverb left;
    CQUENDARIC_Service_Reverb right;
    SLateField f = field(1.0f, 0.0f);
    f.afEarlyDelays[1] = 0.02f;
    CLatePart::Initialize(f, kRate, left, right);
    ASSERT_EQ(left.m_iCombs, 6);
    ASSERT_EQ(left.m_iAllPasses, 2);
    EXPECT_FLOAT_EQ(left.m_pfDelays[1], 0.04f);
    for (int i = 0; i < 8; ++i) {
        EXPECT_FLOAT_EQ(right.m_pfDelays[static_cast<size_t>(i)],
                        left.m_pfDelays[static_cast<size_t>(i)] + 0.001f);
    }
    EXPECT_FLOAT_EQ(right.m_pfGains[0], -std::pow(10.0f, -3.0f * right.m_pfDelays[0]));

    const std::vector<float> early = qktest::Noise(2 * 4096, 5);
    CIppBuffer scratch;
    std::vector<float> out(early.size());
    CLatePart::Process(early.data(), out.data(), 4096, 1.0f, left, right, scratch);
    EXPECT_EQ(out, early);
    std::vector<float> mixed = early;
    CLatePart::Process(mixed.data(), mixed.data(), 4096, 0.5f, left, right, scratch);
    double difference = 0.0;
    for (size_t i = 0; i < early.size(); ++i) {
        difference += std::fabs(mixed[i] - 0.5f * early[i]);
    }
    EXPECT_GT(difference, 1.0);  // the reverb's half

    // Both ears at once give what each ear gives alone.
    CQUENDARIC_Service_Reverb l1, r1, l2, r2;
    CLatePart::Initialize(field(1.0f), kRate, l1, r1);
    CLatePart::Initialize(field(1.0f), kRate, l2, r2);
    for (int at = 0; at < 4096; at += 1000) {
        const int n = std::min(1000, 4096 - at);
        std::vector<float> piece(early.begin() + at, early.begin() + at + n);
        piece.insert(piece.end(), early.begin() + 4096 + at, early.begin() + 4096 + at + n);
        std::vector<float> both(piece.size());
        CLatePart::Process(piece.data(), both.data(), n, 0.3f, l1, r1, scratch);
        CLatePart::ProcessChannel(piece.data(), piece.data(), n, 0.3f, l2, scratch);
        CLatePart::ProcessChannel(piece.data() + n, piece.data() + n, n, 0.3f, r2, scratch);
        ASSERT_EQ(both, piece) << at;
    }
}

// The edges of the reverberation time. A time of 0 is tuned too: every comb's gain is 0, so
// the pair runs and passes the input as plain delays. An endless time (a room that absorbs
// nothing) keeps a long decay that still ends, with combs of bounded length.
TEST(CLatePart, TimesOfZeroAndWithoutEndAreTunedToo) {
    CQUENDARIC_Service_Reverb left, right;
    EXPECT_EQ(CLatePart::Initialize(field(0.0f, 0.0f), kRate, left, right), 0.0f);
    EXPECT_EQ(left.m_fSampleRate, static_cast<float>(kRate));
    EXPECT_EQ(right.m_fSampleRate, static_cast<float>(kRate));
    ASSERT_EQ(left.m_pfGains.size(), 8u);
    for (int i = 0; i < CLatePart::kCombs; ++i) {
        EXPECT_EQ(left.m_pfGains[static_cast<size_t>(i)], 0.0f) << i;
    }
    const std::vector<float> h = impulseResponse(left, 4096);
    float peak = 0.0f;
    for (float v : h) {
        peak = std::max(peak, std::fabs(v));
    }
    EXPECT_GT(peak, 0.1f);  // heard, not silence

    for (float T : {std::numeric_limits<float>::infinity(), 1e9f}) {
        CQUENDARIC_Service_Reverb l, r;
        const float tuned = CLatePart::Initialize(field(T), kRate, l, r);
        EXPECT_GE(tuned, 10.0f);
        EXPECT_LE(tuned, CLatePart::kLongestRT60);
        for (int i = 0; i < CLatePart::kCombs; ++i) {
            const auto k = static_cast<size_t>(i);
            EXPECT_LT(l.m_pfGains[k], -0.5f) << i;  // a long decay, not none
            EXPECT_GE(l.m_pfGains[k], -CLatePart::kStableGain) << i;
            EXPECT_LT(l.m_pfDelays[k], 2.0f) << i;
        }
    }
}
