#include "render/CQUENDARIC_Object_Source_Sound.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "settings/CEngineContext.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
#include "sources/CSOURCE.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"
#include "support/SignalReference.h"

namespace {
constexpr int kRate = 44100;
// Two-tap responses through float transforms of at most 16384 points, on samples up to 1.
constexpr float kTolerance = 1e-4f;

C3Point at(double x, double y, double z) {
    return C3Point(x, y, z, 0);
}

// A sound whose block the test writes: planar channels of n frames.
class BlockSource : public CSOURCE {
  public:
    void Set(int n, const std::vector<std::vector<float>> &channels) {
        m_iSource_Channels = static_cast<int>(channels.size());
        _adjustDataBuffer(n * std::max<int>(1, static_cast<int>(channels.size())));
        for (size_t c = 0; c < channels.size(); ++c) {
            std::copy(channels[c].begin(), channels[c].end(), m_pfData.get() + c * n);
        }
    }
};

// Measurement m has a one-tap response per ear (left gains[m][0], right gains[m][1]) followed
// by a zero tap. Every direction names measurement 0 unless set otherwise.
std::unique_ptr<CHELPER_HRTF> gainSet(const std::vector<std::pair<float, float>> &gains) {
    auto set = qktest::MakeSet(static_cast<int>(gains.size()), 2, "BOTH", kRate);
    for (size_t m = 0; m < gains.size(); ++m) {
        set->m_pfData[4 * m] = gains[m].first;
        set->m_pfData[4 * m + 1] = 0.0f;
        set->m_pfData[4 * m + 2] = gains[m].second;
        set->m_pfData[4 * m + 3] = 0.0f;
    }
    qktest::FillLookup(*set, 0);
    return set;
}

void point(CHELPER_HRTF &set, int iAzimuth, int iElevation, int m) {
    set.m_aiLookup[static_cast<size_t>(CHELPER_HRTF::TableIndex(iAzimuth, iElevation))] = m;
}

// One listener, one sound and one virtual source, driven as the engine drives them.
class SoundObject : public testing::Test {
  protected:
    void SetUp() override {
        context.m_pHRTF = gainSet({{0.5f, 0.5f}, {0.25f, 1.0f}});
        point(*context.m_pHRTF, 270, 0, 1);
        object = std::make_unique<CQUENDARIC_Object_Source_Sound>(&params, &context, at(1, 0, 0),
                                                                  "voice");
        object->m_pSSS_Source = &sound;
        object->m_pSink = &listener;
    }
    // One block as the engine makes it: a cleared listener block, the object, and the end of
    // the block's one-block flags.
    int Block(int n) {
        listener._adjustDataBuffer(2 * n);
        std::fill(listener.m_pfData.get(), listener.m_pfData.get() + 2 * n, 0.0f);
        object->m_pSink = &listener;
        object->m_iRecalculate = params.m_iWorldChanged;
        const int result = object->_process(n, kRate);
        listener.m_iMoved = 0;
        params.m_iMaterialChanged = 0;
        params.m_iHRTFChanged = 0;
        params.m_iWorldChanged = 0;
        return result;
    }
    // Mono sound of n frames: x, the same in every block.
    void Mono(int n) {
        x = qktest::Noise(n, 31);
        sound.Set(n, {x});
    }
    void ExpectGains(int n, float gl, float gr) {
        for (int i = 0; i < n; ++i) {
            ASSERT_NEAR(listener.m_pfData[i], gl * x[static_cast<size_t>(i)], kTolerance) << i;
            ASSERT_NEAR(listener.m_pfData[n + i], gr * x[static_cast<size_t>(i)], kTolerance) << i;
        }
    }

    qktest::ScopedSettingsDir dir{"sound_object"};
    CQUENDARIC_PARAMETERS params;
    CEngineContext context{params};
    CQUENDARIC_Object_Sink listener;
    BlockSource sound;
    std::unique_ptr<CQUENDARIC_Object_Source_Sound> object;
    std::vector<float> x;
};
}  // namespace

TEST_F(SoundObject, StraightRoutingWithoutThreeDAudio) {
    const int n = 32;
    std::vector<float> ch0(n), ch1(n);
    for (int i = 0; i < n; ++i) {
        ch0[static_cast<size_t>(i)] = static_cast<float>(i);
        ch1[static_cast<size_t>(i)] = 1000.0f + 0.5f * static_cast<float>(i);
    }
    sound.Set(n, {ch0, ch1});
    params.m_i3DAudio = 0;
    const struct {
        int link;
        float (*left)(float, float);
        float (*right)(float, float);
    } table[] = {
        {0, [](float a, float) { return a; }, [](float, float) { return 0.0f; }},
        {1, [](float, float) { return 0.0f; }, [](float, float b) { return b; }},
        {2, [](float a, float b) { return (a + b) * 0.5f; },
         [](float a, float b) { return (a + b) * 0.5f; }},
        {3, [](float a, float b) { return a - b; }, [](float, float) { return 0.0f; }},
        {4, [](float, float) { return 0.0f; }, [](float a, float b) { return b - a; }},
    };
    for (const auto &row : table) {
        object->m_iAudioLink = row.link;
        ASSERT_EQ(Block(n), 0);
        for (int i = 0; i < n; ++i) {
            const float a = ch0[static_cast<size_t>(i)], b = ch1[static_cast<size_t>(i)];
            ASSERT_EQ(listener.m_pfData[i], row.left(a, b)) << row.link << " " << i;
            ASSERT_EQ(listener.m_pfData[n + i], row.right(a, b)) << row.link << " " << i;
        }
    }
    // Link 7 selects nothing: the mono signal and the object's block stay as the last block
    // left them, and that block is mixed again.
    object->m_iAudioLink = 0;
    Block(n);
    sound.Set(n, {ch1, ch0});
    object->m_iAudioLink = 7;
    Block(n);
    EXPECT_EQ(listener.m_pfData[5], ch0[5]);
    EXPECT_EQ(listener.m_pfData[n + 5], 0.0f);
    EXPECT_EQ(object->m_pfMono[5], ch0[5]);
    // Channel mode 1 selects by m_iChannelSelect; any other mode selects nothing.
    params.m_iChannelMode = 1;
    object->m_iChannelSelect = 1;
    Block(n);
    EXPECT_EQ(listener.m_pfData[n + 5], ch0[5]);  // ch1 of the new block
    params.m_iChannelMode = 0;
    sound.Set(n, {ch0, ch1});
    Block(n);
    EXPECT_EQ(listener.m_pfData[n + 5], ch0[5]);
}

TEST_F(SoundObject, RefusesToRunWithoutItsParts) {
    Mono(64);
    BlockSource empty;
    object->m_pSSS_Source = &empty;  // a sound with no samples
    EXPECT_EQ(object->_process(64, kRate), -1);
    object->m_pSSS_Source = &sound;
    object->m_pSink = nullptr;
    EXPECT_EQ(object->_process(64, kRate), -1);
    object->m_pSink = &listener;
    EXPECT_EQ(object->_process(32769, kRate), -1);  // beyond the block capacity
    EXPECT_EQ(object->_process(64, 0), -1);
    EXPECT_EQ(object->m_iInitialized, 0);
    EXPECT_EQ(object->_process(64, kRate), 0);
}

// A source to the right: the first block cross-fades from the direction it was made with to
// its own, the next is its own response alone. Level by distance beyond a metre.
TEST_F(SoundObject, DirectPathRendersTheDirectionAndLevel) {
    const int n = 512;
    Mono(n);
    Block(n);
    EXPECT_EQ(object->m_fAzimuth, 270.0f);
    EXPECT_EQ(object->m_HRTF.m_iAzimuth, 270);
    EXPECT_EQ(object->m_iRecalculate, 0);
    Block(n);
    ExpectGains(n, 0.25f, 1.0f);
    object->SettleBIR();  // as a host's request for the response does
    ASSERT_EQ(object->m_iBIRLength, 2);
    EXPECT_EQ(object->m_pfBIRLeft[0], 0.25f);
    EXPECT_EQ(object->m_pfBIRRight[0], 1.0f);

    object->Move(at(2, 0, 0));  // same angles: no rebuild, half the level
    Block(n);
    EXPECT_FLOAT_EQ(object->m_fDistance, 2.0f);
    ExpectGains(n, 0.125f, 0.5f);

    // A move of less than a degree asks the set for nothing: a changed measurement is not
    // seen until something forces a rebuild.
    context.m_pHRTF->m_pfData[4] = 0.75f;
    object->Move(at(2, 0.01, 0));
    Block(n);
    ExpectGains(n, 0.125f, 0.5f);
    params.m_iHRTFChanged = 1;
    Block(n);
    Block(n);
    ExpectGains(n, 0.375f, 0.5f);

    // Model 3 has no level. The image model's response holds the level and the time of
    // flight: in an empty world, the direct sound alone.
    params.m_iSFM = 3;
    Block(n);
    ExpectGains(n, 0.75f, 1.0f);
    params.m_iSFM = 1;
    params.m_iWorldChanged = 1;
    Block(n);
    const float c = 331.4f * std::sqrt(1.0f + 25.0f / 273.0f);
    const int delay = static_cast<int>(object->m_fDistance * 1000.0f / c / 1000.0f * kRate);
    ASSERT_EQ(object->m_iBIRLength, delay + 2);
    EXPECT_NEAR(object->m_pfBIRLeft[delay], 0.375f, 1e-4f);
    EXPECT_NEAR(object->m_pfBIRRight[delay], 0.5f, 1e-4f);
}

// An object made while blocks run finds the listener still and no world change: nothing
// tells it to work out its angles, so it keeps 0 until it is moved.
TEST_F(SoundObject, AddedDuringPlayKeepsAnglesZeroUntilAMove) {
    const int n = 256;
    Mono(n);
    listener.m_iMoved = 0;
    params.m_iWorldChanged = 0;
    for (int b = 0; b < 3; ++b) {
        Block(n);
    }
    EXPECT_EQ(object->m_fAzimuth, 0.0f);
    ExpectGains(n, 0.5f, 0.5f);
    object->Move(at(1, 0, 0));
    EXPECT_EQ(object->m_fAzimuth, 270.0f);
    Block(n);
    Block(n);
    ExpectGains(n, 0.25f, 1.0f);
}

TEST_F(SoundObject, ThreeDAudioTwoIsSilent) {
    const int n = 128;
    Mono(n);
    Block(n);
    params.m_i3DAudio = 2;
    EXPECT_EQ(Block(n), 0);
    for (int i = 0; i < 2 * n; ++i) {
        ASSERT_EQ(listener.m_pfData[i], 0.0f);
    }
}

// A block that selects no channel takes the mono signal and the object's block as the last
// block left them, though the whole-filter path renders a channel without copying it and
// adds its block to the listener's without a copy of its own.
TEST_F(SoundObject, ABlockThatSelectsNothingTakesTheLastRenderedOnes) {
    const int n = 256;
    object->Move(at(2, 0, 0));  // a level of a half
    const std::vector<float> a = qktest::Noise(n, 32);
    const std::vector<float> b = qktest::Noise(n, 33);
    sound.Set(n, {a, b});
    object->m_iAudioLink = 0;
    Block(n);
    Block(n);
    sound.Set(n, {b, a});
    object->m_iAudioLink = 7;
    Block(n);  // 3-D audio renders the last mono signal again
    for (int i = 0; i < n; ++i) {
        ASSERT_EQ(object->m_pfMono[i], a[static_cast<size_t>(i)]) << i;
    }
    const std::vector<float> rendered(listener.m_pfData.get(), listener.m_pfData.get() + 2 * n);
    params.m_i3DAudio = 0;
    Block(n);  // straight routing mixes the last block again
    for (int i = 0; i < 2 * n; ++i) {
        ASSERT_EQ(listener.m_pfData[i], rendered[static_cast<size_t>(i)]) << i;
    }
}
