#include "binaural/CFrequencyMix.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "binaural/CSERVICE_PARTITIONED_HRTF.h"
#include "support/SignalReference.h"

namespace {
// One source rendered both ways: a convolver of its own whose blocks are summed in time, and
// one that adds into the mix. Both get the same responses at the same blocks.
struct Source {
    CSERVICE_PARTITIONED_HRTF alone;
    CSERVICE_PARTITIONED_HRTF mixed;
    std::vector<float> input;
    float gain = 1.0f;
    bool enabled = true;

    Source(int taps, int block, unsigned seed, float g) : gain(g) {
        Respond(taps, block, seed);
        input = qktest::Noise(16 * block, seed + 100);
    }
    void Respond(int taps, int block, unsigned seed) {
        const std::vector<float> l = qktest::Noise(taps, seed);
        const std::vector<float> r = qktest::Noise(taps, seed + 50);
        alone.SetResponse(l.data(), r.data(), taps, block);
        mixed.SetResponse(l.data(), r.data(), taps, block);
    }
};
}  // namespace

// The listener's one inverse per ear gives the sum of the sources' own outputs, block after
// block, while sources fade to new responses, are disabled, come and go.
TEST(CFrequencyMix, EqualsTheSumOfEachSourcesOwnOutput) {
    for (int block : {64, 512, 2048}) {
        SCOPED_TRACE(block);
        std::vector<std::unique_ptr<Source>> sources;
        sources.push_back(std::make_unique<Source>(300, block, 1, 1.0f));
        sources.push_back(std::make_unique<Source>(3 * block + 7, block, 2, 0.25f));
        CFrequencyMix mix;
        std::vector<float> own(2 * static_cast<size_t>(block));
        double diff = 0.0, ref = 0.0;
        for (int b = 0; b < 12; ++b) {
            if (b == 3) {
                sources[0]->Respond(900, block, 7);  // a cross-fade in block 3
            }
            sources[1]->enabled = b != 5;  // skipped for a block: its history pauses
            if (b == 7) {
                sources[1]->Respond(100, block, 8);  // to a response of fewer partitions
            }
            if (b == 6) {
                sources.push_back(std::make_unique<Source>(block / 2, block, 3, 2.0f));
            }
            if (b == 9) {
                sources.erase(sources.begin());
            }
            std::vector<double> want(2 * static_cast<size_t>(block), 0.0);
            std::vector<float> got(2 * static_cast<size_t>(block), 0.0f);
            ASSERT_TRUE(mix.Begin(block));
            for (auto &s : sources) {
                if (!s->enabled) {
                    continue;
                }
                const float *in = s->input.data() + (b % 16) * block;
                ASSERT_EQ(s->alone._process(in, block, own.data()), 0);
                for (size_t i = 0; i < own.size(); ++i) {
                    want[i] += static_cast<double>(s->gain) * own[i];
                }
                ASSERT_EQ(s->mixed._processInto(in, block, mix, s->gain), 0);
            }
            mix.Finish(got.data());
            for (size_t i = 0; i < want.size(); ++i) {
                diff += (got[i] - want[i]) * (got[i] - want[i]);
                ref += want[i] * want[i];
            }
        }
        EXPECT_LT(10.0 * std::log10(diff / ref), -100.0);
    }
}

// A mix begun for one block length takes no source of another; an unbegun mix adds nothing.
TEST(CFrequencyMix, RefusesWhatDoesNotFit) {
    CSERVICE_PARTITIONED_HRTF conv;
    const std::vector<float> h = qktest::Noise(100, 9);
    ASSERT_EQ(conv.SetResponse(h.data(), h.data(), 100, 256), 0);
    std::vector<float> in(256, 1.0f), block(512, 0.0f);
    CFrequencyMix mix;
    EXPECT_EQ(conv._processInto(in.data(), 256, mix, 1.0f), -1);
    ASSERT_TRUE(mix.Begin(128));
    EXPECT_EQ(conv._processInto(in.data(), 256, mix, 1.0f), -1);
    mix.Finish(block.data());
    EXPECT_EQ(block, std::vector<float>(512, 0.0f));
    EXPECT_FALSE(mix.Begin(0));
}
