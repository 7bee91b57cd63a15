#include "services/CQUENDARIC_Service_Delay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "services/CQUENDARIC_Service_LP.h"
#include "support/SignalReference.h"

namespace {
// At 10 kHz a delay of 0.001 s is exactly 10 samples.
constexpr int kRate = 10000;
constexpr float kTenSamples = 0.001f;

std::vector<float> impulse(int n) {
    std::vector<float> v(static_cast<size_t>(n), 0.0f);
    v[0] = 1.0f;
    return v;
}

// Runs a service's Process over the signal in pieces of iBlock, in place when bInPlace.
using ProcessFn = std::function<void(const float *, float *, int)>;
std::vector<float> runInPieces(const ProcessFn &process, const std::vector<float> &in, int iBlock,
                               bool bInPlace) {
    std::vector<float> out(in.size(), 0.0f);
    std::vector<float> work = in;
    const int n = static_cast<int>(in.size());
    for (int at = 0; at < n; at += iBlock) {
        const int len = std::min(iBlock, n - at);
        if (bInPlace) {
            process(work.data() + at, work.data() + at, len);
        } else {
            process(in.data() + at, out.data() + at, len);
        }
    }
    return bInPlace ? work : out;
}
}  // namespace

// The impulse responses worked out by hand from the difference equations.
TEST(DelayServices, ImpulseResponsesFollowTheirEquations) {
    struct Case {
        const char *name;
        float expected[3];  // at n = 0, 10, 20
        ProcessFn process;
    };
    CQUENDARIC_Service_AllPass allPass(kTenSamples, 0.5f);
    CQUENDARIC_Service_Comb comb(kTenSamples, 0.5f);
    CQUENDARIC_Service_Comb negative(kTenSamples, -0.5f);
    allPass.Initialize(kRate);
    comb.Initialize(kRate);
    negative.Initialize(kRate);
    using namespace std::placeholders;
    const Case cases[] = {
        {"all-pass g 0.5",
         {-0.5f, 0.75f, 0.375f},
         std::bind(&CQUENDARIC_Service_AllPass::Process, &allPass, _1, _2, _3)},
        {"comb g 0.5",
         {0.0f, 1.0f, 0.5f},
         std::bind(&CQUENDARIC_Service_Comb::Process, &comb, _1, _2, _3)},
        {"comb g -0.5",
         {0.0f, 1.0f, -0.5f},
         std::bind(&CQUENDARIC_Service_Comb::Process, &negative, _1, _2, _3)},
    };
    for (const Case &c : cases) {
        const std::vector<float> in = impulse(25);
        std::vector<float> out(in.size(), 99.0f);
        c.process(in.data(), out.data(), 25);
        for (int n = 0; n < 25; ++n) {
            const float want = n % 10 == 0 ? c.expected[n / 10] : 0.0f;
            EXPECT_FLOAT_EQ(out[static_cast<size_t>(n)], want) << c.name << " at " << n;
        }
    }
    CQUENDARIC_Service_Delay delay;
    delay.Initialize(100.7f, kRate);
    std::vector<float> out(200, 1.0f);
    delay.Process(impulse(200).data(), out.data(), 200);
    for (int n = 0; n < 200; ++n) {
        EXPECT_EQ(out[static_cast<size_t>(n)], n == 100 ? 1.0f : 0.0f) << n;
    }
}

// The lines wrap with a pointer; any split of the stream, and working in place, must give the
// output of one call.
TEST(DelayServices, OutputIsTheSameForAnyBlockSizeAndInPlace) {
    const std::vector<float> signal = qktest::Noise(20000, 7);
    auto make = [](int kind) -> std::function<ProcessFn()> {
        return [kind]() -> ProcessFn {
            if (kind == 0) {
                auto d = std::make_shared<CQUENDARIC_Service_Delay>();
                d->Initialize(997.0f, kRate);
                return [d](const float *i, float *o, int n) { d->Process(i, o, n); };
            }
            if (kind == 1) {
                auto a = std::make_shared<CQUENDARIC_Service_AllPass>(0.0713f, 0.7f);
                a->Initialize(kRate);
                return [a](const float *i, float *o, int n) { a->Process(i, o, n); };
            }
            auto c = std::make_shared<CQUENDARIC_Service_Comb>(0.0311f, -0.8f);
            c->m_fDamping = 0.2f;  // with its output filter
            c->Initialize(kRate);
            return [c](const float *i, float *o, int n) { c->Process(i, o, n); };
        };
    };
    for (int kind = 0; kind < 3; ++kind) {
        const std::vector<float> whole = runInPieces(make(kind)(), signal, 20000, false);
        for (int block : {1, 713, 8192}) {
            for (bool inPlace : {false, true}) {
                const std::vector<float> pieces = runInPieces(make(kind)(), signal, block, inPlace);
                for (size_t i = 0; i < whole.size(); i += 37) {
                    ASSERT_FLOAT_EQ(pieces[i], whole[i])
                        << "kind " << kind << " block " << block << " at " << i;
                }
            }
        }
    }
}

// Lines that can't hold a sample, and delays no room asks for, run safely: the delay and the
// all-pass pass their input, a comb without a line is silent, and long lines are cut.
TEST(DelayServices, DegenerateDelaysAreSafe) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (float seconds : {0.0f, -1.0f, nan, 1e-6f}) {
        CQUENDARIC_Service_Comb comb(seconds, 0.9f);
        comb.Initialize(kRate);
        EXPECT_EQ(comb.m_pfBuffer, nullptr) << seconds;
        CQUENDARIC_Service_AllPass allPass(seconds, 0.9f);
        allPass.Initialize(kRate);
        const std::vector<float> in = qktest::Noise(64, 3);
        std::vector<float> out(64, 5.0f);
        comb.Process(in.data(), out.data(), 64);
        for (float v : out) {
            ASSERT_EQ(v, 0.0f);
        }
        allPass.Process(in.data(), out.data(), 64);
        EXPECT_EQ(out, in);
    }
    CQUENDARIC_Service_Comb huge(1e30f, 0.5f);
    huge.Initialize(kRate);
    EXPECT_EQ(huge.Length(), CQUENDARIC_DelayLine::kMaxDelaySamples);
    CQUENDARIC_Service_Delay zero;
    zero.Initialize(0.5f, kRate);  // half a sample: no line
    std::vector<float> v = {1.0f, 2.0f};
    zero.Process(v.data(), v.data(), 2);
    EXPECT_EQ(v, (std::vector<float>{1.0f, 2.0f}));
}

TEST(ButterworthServices, GainIsAPowerRatioAndMixAdds) {
    constexpr int kN = 44100;
    struct Case {
        bool lowPass;
        double hz;  // 0: DC
        float gainDb;
        int mix;
        double expected;  // of the steady state, relative to the input
    };
    const Case cases[] = {
        {true, 0.0, 0.0f, 0, 1.0}, {true, 0.0, 10.0f, 0, 10.0}, {false, 22050.0, 0.0f, 0, 1.0},
        {true, 0.0, 0.0f, 1, 2.0}, {false, 0.0, 0.0f, 1, 1.0},  // the high pass takes DC away; the
                                                                // input stays
    };
    for (const Case &c : cases) {
        std::vector<float> v(kN);
        for (int i = 0; i < kN; ++i) {
            v[static_cast<size_t>(i)] = static_cast<float>(std::cos(M_PI * 2.0 * c.hz * i / kN));
        }
        std::unique_ptr<CQUENDARIC_Service_Butterworth> f;
        if (c.lowPass) {
            f = std::make_unique<CQUENDARIC_Service_LP>();
        } else {
            f = std::make_unique<CQUENDARIC_Service_HP>();
        }
        EXPECT_EQ(f->Initialize(1000.0f, kN, 4096), 1);
        EXPECT_EQ(f->GetSamples(v.data(), kN, c.gainDb, c.mix), 1);  // longer than its scratch
        const float last = std::fabs(v[kN - 1]);
        EXPECT_NEAR(last, c.expected, 1e-3 * c.expected) << c.lowPass << " " << c.hz;
        f->Terminate();
    }
    // Corners and rates no filter is made for give numbers, not NaNs.
    for (float corner : {22050.0f, 30000.0f, -5.0f}) {
        for (int rate : {44100, 0}) {
            CQUENDARIC_Service_HP odd;
            odd.Initialize(corner, rate, 16);
            std::vector<float> v = qktest::Noise(64, 2);
            odd.GetSamples(v.data(), 64, 0.0f, 0);
            for (float x : v) {
                ASSERT_TRUE(std::isfinite(x)) << corner << " " << rate;
            }
        }
    }
}
