#include "render/CQUENDARIC_Object_Source.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/Archive.h"
#include "sdk/CQUENDARIC_PARAMETERS.h"
#include "support/HrtfSets.h"
#include "support/ScopedSettingsDir.h"

namespace {
C3Point at(double x, double y, double z) {
    return C3Point(x, y, z, 0);
}

// A virtual source and a listener at the origin looking along +y.
struct Scene {
    Scene() { source.m_pSink = &listener; }
    CQUENDARIC_Object_Sink listener;
    CQUENDARIC_Object_Source source;
};
}  // namespace

// The four axis points around a listener at the origin looking along +y.
TEST(CQUENDARIC_Object_Source, AzimuthOfTheAxisPoints) {
    Scene s;
    const struct {
        C3Point point;
        float azimuth;
    } cases[] = {{at(1, 0, 0), 270.0f},  {at(-1, 0, 0), 90.0f}, {at(0, 2, 0), 0.0f},
                 {at(0, -2, 0), 180.0f}, {at(1, 1, 0), 315.0f}, {at(-1, -1, 0), 135.0f},
                 {at(1, -1, 0), 225.0f}, {at(-1, 1, 0), 45.0f}};
    for (const auto &c : cases) {
        s.source.Move(c.point);
        EXPECT_EQ(s.source.m_fAzimuth, c.azimuth) << c.point.x << ", " << c.point.y;
        EXPECT_EQ(s.source.m_fElevation, 0.0f);
    }
    EXPECT_FLOAT_EQ(s.source.m_fDistance, std::sqrt(2.0f));
    // Relative to the look-at: a listener looking along +x has the point (0, 2, 0) on its
    // left.
    s.listener.m_lookAt = at(1, 0, 0);
    s.source.Move(at(0, 2, 0));
    EXPECT_EQ(s.source.m_fAzimuth, 90.0f);
}

TEST(CQUENDARIC_Object_Source, ElevationAboveAndFoldedBackOverThePole) {
    Scene s;
    s.source.Move(at(0, 1, 1));  // 1 m above the ear line at 1 m
    EXPECT_EQ(s.source.m_fElevation, 45.0f);
    EXPECT_EQ(s.source.m_fAzimuth, 0.0f);
    s.source.Move(at(0, 1, -1));
    EXPECT_EQ(s.source.m_fElevation, -45.0f);
    // Looking 45 degrees down at a source straight overhead: 135 folds back to 45.
    s.listener.m_lookAt = at(0, 1, -1);
    s.source.Move(at(0, 0, 1));
    EXPECT_EQ(s.source.m_fElevation, 45.0f);
    // A source exactly at the listener has no direction: its angles are defined all the same.
    s.listener.m_lookAt = at(0, 1, 0);
    s.source.Move(at(0, 0, 0));
    EXPECT_EQ(s.source.m_fAzimuth, 270.0f);
    EXPECT_EQ(s.source.m_fElevation, -90.0f);
    EXPECT_EQ(s.source.m_fDistance, 0.0f);
}

TEST(CQUENDARIC_Object_Source, MovesNeedAListenerAndDoNotMarkTheObject) {
    CQUENDARIC_Object_Source source;
    source.m_position = at(3, 0, 0);
    source.Move(at(1, 0, 0));
    source.Move(5.0f);
    source.LookAt(at(1, 1, 1));
    source.Move_LookAt(at(1, 0, 0), at(1, 1, 1));
    EXPECT_EQ(source.m_position.x, 3.0f);
    EXPECT_EQ(source.m_fAzimuth, 0.0f);
    EXPECT_EQ(source.m_lookAt.x, 0.0f);

    CQUENDARIC_Object_Sink listener;
    source.m_pSink = &listener;
    source.m_iMoved = 0;
    source.Move(at(1, 0, 0));
    EXPECT_EQ(source.m_iMoved, 0);
    // A single number is the y coordinate; the spherical fields are left as they were.
    source.Move(-3.0f);
    EXPECT_EQ(source.m_position.y, -3.0f);
    EXPECT_FLOAT_EQ(source.m_position.r, 1.0f);
    EXPECT_EQ(source.m_fAzimuth, 199.0f);  // atan(-3) = -71.6, truncated, + 270
    EXPECT_FLOAT_EQ(source.m_fDistance, std::sqrt(10.0f));
}

TEST(CQUENDARIC_Object_Source, LevelFollowsTheInverseDistanceBeyondOneMetre) {
    CQUENDARIC_Object_Source source;
    float block[4] = {1.0f, -2.0f, 4.0f, 8.0f};
    source.m_fDistance = 1.0f;
    source.AdjustLevelForDistance(block, 2);
    EXPECT_EQ(block[3], 8.0f);
    source.m_fDistance = 2.0f;
    source.AdjustLevelForDistance(block, 2);
    EXPECT_FLOAT_EQ(block[0], 0.5f);
    EXPECT_FLOAT_EQ(block[3], 4.0f);
    source.m_fDistance = std::nanf("");
    source.AdjustLevelForDistance(block, 2);
    EXPECT_FLOAT_EQ(block[0], 0.5f);
}

// The direction's response from the settings' set, handed on to the convolver (which takes
// it at its next block) and kept as the binaural response for hosts.
TEST(CQUENDARIC_Object_Source, ReInitializeHRTFAndCalculateIRs) {
    qktest::ScopedSettingsDir dir("source_irs");
    CQUENDARIC_PARAMETERS params;
    params.m_pHRTF = qktest::MakeSet(1, 16, "BOTH", 44100);
    qktest::FillLookup(*params.m_pHRTF, 0);
    Scene s;
    s.source.m_pParameters = &params;
    s.source.InitializeHRTFVariables();
    EXPECT_EQ(s.source.m_HRTF.m_pHelper, params.m_pHRTF.get());

    s.source.Move(at(-1, 0, 1));
    s.source.ReInitializeHRTF(44100);
    EXPECT_EQ(s.source.m_HRTF.m_iAzimuth, 90);
    EXPECT_EQ(s.source.m_HRTF.m_iElevation, 45);
    EXPECT_EQ(s.source.m_HRTF.m_bReInitialize, 1);
    ASSERT_EQ(s.source.m_iBIRLength, 16);
    EXPECT_EQ(s.source.m_pfBIRLeft[3], qktest::Code(0, 3));
    EXPECT_EQ(s.source.m_pfBIRRight[3], qktest::Code(1, 3));

    // Nothing changed: nothing is rebuilt, and the arrays stay.
    s.source.m_HRTF.m_bReInitialize = 0;
    const float *pfLeft = s.source.m_pfBIRLeft;
    s.source.CalculateIRs(0, 44100);
    EXPECT_EQ(s.source.m_pfBIRLeft, pfLeft);
    EXPECT_EQ(s.source.m_HRTF.m_bReInitialize, 0);
    s.source.Move(at(1, 0, 0));
    s.source.CalculateIRs(0, 44100);
    EXPECT_EQ(s.source.m_HRTF.m_iAzimuth, 270);
    EXPECT_EQ(s.source.m_HRTF.m_bReInitialize, 1);
    // Without 3-D audio, or disabled, the binaural response goes.
    params.m_i3DAudio = 0;
    s.source.CalculateIRs(0, 44100);
    EXPECT_EQ(s.source.m_pfBIRLeft, nullptr);
    EXPECT_EQ(s.source.m_iBIRLength, 0);
}

TEST(CQUENDARIC_Object_Source, DescriptionByChannelModeAndArchive) {
    qktest::ScopedSettingsDir dir("source_archive");
    CQUENDARIC_PARAMETERS params;
    CQUENDARIC_Object_Source source;
    source.m_pParameters = &params;
    source.m_strDescription = "own";
    source.SetDescription("second");
    params.m_iChannelMode = 1;
    source.SetDescription("first");
    EXPECT_EQ(source.m_strChannelName1, "first");
    EXPECT_EQ(source.m_strChannelName2, "second");
    EXPECT_EQ(source.m_strDescription, "own");

    source.m_iSSS_SourceID = 12;
    source.m_iChannelSelect = 1;
    source.m_iAudioLink = 3;
    source.m_iSourceFlag2 = 0;
    source.m_position = at(1, 2, 3);
    qk::CMemoryStream stream;
    {
        qk::CArchive ar(stream, qk::CArchive::store);
        source.Serialize(ar);
    }
    qk::CMemoryStream in(stream.Bytes().data(), stream.Bytes().size());
    qk::CArchive ar(in, qk::CArchive::load);
    CQUENDARIC_Object_Source loaded;
    loaded.Serialize(ar);
    EXPECT_EQ(ar.Remaining(), 0u);
    EXPECT_EQ(loaded.m_position.z, 3.0f);
    EXPECT_EQ(loaded.m_iSSS_SourceID, 12);
    EXPECT_EQ(loaded.m_strChannelName1, "first");
    EXPECT_EQ(loaded.m_strChannelName2, "second");
    EXPECT_EQ(loaded.m_iAudioLink, 3);
    EXPECT_EQ(loaded.m_iSourceFlag2, 0);
}
