// The engine context loads the HRTF sets the settings ask for, and holds what is in force.
#include "settings/CEngineContext.h"

#include <gtest/gtest.h>

#include "support/HrtfSets.h"
#include "support/ReportRecorder.h"
#include "support/RiffBytes.h"
#include "support/ScopedSettingsDir.h"

// A good file loads at the settings' rate and takes the canceller's set along; a missing one
// is reported, leaves no set and keeps the bad path; the canceller's failure doesn't count.
TEST(CEngineContext, SetHRTFFollowsTheSettingsRequest) {
    qktest::ScopedSettingsDir dir("sethrtf");
    qktest::ReportRecorder reports;
    const std::string good = dir.File("good.qkhrtf");
    qktest::WriteFileBytes(good, qktest::StoreToBytes(*qktest::MakeSet(3, 32, "BOTH", 44100)));

    CQUENDARIC_PARAMETERS p;
    CEngineContext context(p);
    EXPECT_EQ(context.SetHRTF(), -1);  // nothing asked for
    p.m_iSampleRate = 22050;
    p.SetHRTFRequest(good);
    p.SetHRTFRequestCTC(good);
    ASSERT_EQ(context.SetHRTF(), 0);
    EXPECT_EQ(context.m_pHRTF->m_iMeasurements, 3);
    EXPECT_EQ(context.m_pHRTF->m_iSampleRate, 22050);
    ASSERT_NE(context.m_pHRTF_CTC, nullptr);

    const std::string missing = dir.File("missing.qkhrtf");
    p.SetHRTFRequest(missing);
    EXPECT_EQ(context.SetHRTF(), -1);
    EXPECT_EQ(context.m_pHRTF, nullptr);
    EXPECT_EQ(p.m_strHRTF, missing);
    EXPECT_EQ(reports.Texts(), (std::vector<std::string>{"QKHRTF file not found"}));

    const std::string foreign = dir.File("foreign.qkhrtf");
    qktest::WriteFileBytes(foreign, {1, 2, 3, 4});
    p.SetHRTFRequestCTC(foreign);
    p.SetHRTFRequest(good);
    EXPECT_EQ(context.SetHRTF(), 0);  // the canceller's result doesn't count
    EXPECT_EQ(context.m_pHRTF_CTC, nullptr);
}

// The HRTF set, the room model and the pre-computed set a rendering object is handed are the
// context's own, and a set loaded anew is what the next look finds.
TEST(CEngineContext, HandsRenderingObjectsWhatIsInForce) {
    qktest::ScopedSettingsDir dir("context");
    CQUENDARIC_PARAMETERS settings;
    CEngineContext context(settings);
    const CRenderResources &resources = context;
    EXPECT_EQ(resources.HRTF(), nullptr);
    EXPECT_EQ(resources.RoomModel(), context.m_pSFM_ORMS.get());
    EXPECT_EQ(resources.RoomModel()->m_pWorld, &context.m_World);
    EXPECT_EQ(resources.RoomModel()->m_pCode4, &context.m_Code4);
    EXPECT_EQ(context.m_World.m_pCode4, &context.m_Code4);
    EXPECT_NE(resources.PreComputed(), nullptr);
    context.m_pHRTF = qktest::MakeSet(1, 16, "BOTH", 44100);
    EXPECT_EQ(resources.HRTF(), context.m_pHRTF.get());
}
