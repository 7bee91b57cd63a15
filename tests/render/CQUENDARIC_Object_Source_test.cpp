#include "render/CQUENDARIC_Object_Source.h"

#include <gtest/gtest.h>

#include <cmath>

#include "settings/CEngineContext.h"
#include "settings/CQUENDARIC_PARAMETERS.h"
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

// The direction's response from the settings' set, handed on to the convolver (which takes
// it at its next block) and kept as the binaural response for hosts.
TEST(CQUENDARIC_Object_Source, ReInitializeHRTFAndCalculateIRs) {
    qktest::ScopedSettingsDir dir("source_irs");
    CQUENDARIC_PARAMETERS params;
    CEngineContext context(params);
    context.m_pHRTF = qktest::MakeSet(1, 16, "BOTH", 44100);
    qktest::FillLookup(*context.m_pHRTF, 0);
    Scene s;
    s.source.m_pParameters = &params;
    s.source.m_pResources = &context;
    s.source.InitializeHRTFVariables();
    EXPECT_EQ(s.source.m_HRTF.m_pHelper, context.m_pHRTF.get());

    s.source.Move(at(-1, 0, 1));
    s.source.ReInitializeHRTF(44100);
    EXPECT_EQ(s.source.m_HRTF.m_iAzimuth, 90);
    EXPECT_EQ(s.source.m_HRTF.m_iElevation, 45);
    EXPECT_EQ(s.source.m_HRTF.m_bReInitialize, 1);
    s.source.SettleBIR();  // as a host's request for the response does
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
