#include "render/CQUENDARIC_Object.h"

#include <gtest/gtest.h>

#include "platform/Archive.h"
#include "render/CQUENDARIC_Object_Sink.h"
#include "render/CQUENDARIC_Object_Sink_Listener.h"
#include "render/CQUENDARIC_Object_Source.h"

namespace {
std::vector<uint8_t> store(qk::CObject &object) {
    qk::CMemoryStream stream;
    qk::CArchive ar(stream, qk::CArchive::store);
    object.Serialize(ar);
    return stream.Bytes();
}

void load(qk::CObject &object, const std::vector<uint8_t> &bytes) {
    qk::CMemoryStream stream(bytes.data(), bytes.size());
    qk::CArchive ar(stream, qk::CArchive::load);
    object.Serialize(ar);
    EXPECT_EQ(ar.Remaining(), 0u);
}
}  // namespace

TEST(CQUENDARIC_Object, IdsCountAcrossTheFamilyAndNewObjectsStartAsSpecified) {
    CQUENDARIC_Object first;
    CQUENDARIC_Object_Sink sink;
    CQUENDARIC_Object_Source source;
    EXPECT_EQ(sink.m_iID, first.m_iID + 1);
    EXPECT_EQ(source.m_iID, first.m_iID + 2);
    EXPECT_EQ(CQUENDARIC_Object::m_iObjectCounter, source.m_iID);

    // A listener looks along +y; a virtual source at nothing in particular.
    EXPECT_EQ(sink.m_lookAt.x, 0.0f);
    EXPECT_EQ(sink.m_lookAt.y, 1.0f);
    EXPECT_EQ(sink.m_lookAt.z, 0.0f);
    EXPECT_EQ(source.m_lookAt.y, 0.0f);

    CQUENDARIC_Object_Sink_Listener listener(nullptr, C3Point(1.0, 2.0, 3.0, 0));
    EXPECT_EQ(listener.m_position.y, 2.0f);
    EXPECT_EQ(listener.m_lookAt.y, 1.0f);
    EXPECT_EQ(listener.m_pDraw, nullptr);
}

TEST(CQUENDARIC_Object, DataBufferGrowsKeepingItsContentsAndNeverShrinks) {
    CQUENDARIC_Object object;
    object._adjustDataBuffer(100);
    ASSERT_EQ(object.m_iDataLength, 100);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(object.m_pfData[i], 0.0f);
        object.m_pfData[i] = static_cast<float>(i + 1);
    }
    object._adjustDataBuffer(50);
    EXPECT_EQ(object.m_iDataLength, 100);
    EXPECT_EQ(object.m_pfData[99], 100.0f);
    object._adjustDataBuffer(200);
    ASSERT_EQ(object.m_iDataLength, 200);
    EXPECT_EQ(object.m_pfData[0], 1.0f);
    EXPECT_EQ(object.m_pfData[99], 100.0f);
    EXPECT_EQ(object.m_pfData[100], 0.0f);
    EXPECT_EQ(object.m_pfData[199], 0.0f);
}

// The listener's signal that it moved: set only by a change beyond 0.001 m on a coordinate.
TEST(CQUENDARIC_Object, MoveLookAtIgnoresChangesWithinTheTolerance) {
    CQUENDARIC_Object_Sink sink;
    sink.m_iMoved = 0;
    sink.Move_LookAt(C3Point(0.0009, -0.0009, 0.0, 0), C3Point(0.0, 1.0005, 0.0, 0));
    EXPECT_EQ(sink.m_iMoved, 0);
    EXPECT_EQ(sink.m_position.x, 0.0f);
    EXPECT_EQ(sink.m_lookAt.y, 1.0f);
    sink.Move_LookAt(C3Point(0.0, 0.0, 0.0, 0), C3Point(0.0, 1.002, 0.0, 0));
    EXPECT_EQ(sink.m_iMoved, 1);
    EXPECT_FLOAT_EQ(sink.m_lookAt.y, 1.002f);
}

TEST(CQUENDARIC_Object, ArchiveKeepsPlaceAndAnglesButNotTheLookAt) {
    CQUENDARIC_Object_Sink stored;
    stored.m_strDescription = "front row";
    stored.m_iEnable = 0;
    stored.m_position = C3Point(0.0, 2.0, 0.0, 0);
    stored.m_lookAt = C3Point(5.0, 5.0, 5.0, 0);
    stored.m_fAzimuth = 90.0f;
    stored.m_fElevation = -10.0f;
    stored.m_fDistance = 2.0f;
    stored.m_fObjectLevel = 0.5f;
    stored.m_iObjectFlag = 7;
    const std::vector<uint8_t> bytes = store(stored);
    // Version, description, enable, id, x, y, z, three angles/distance, level, flag.
    EXPECT_EQ(bytes.size(), 4u + 1u + 9u + 4u * 10u);

    const int counter = CQUENDARIC_Object::m_iObjectCounter;
    CQUENDARIC_Object_Sink loaded;
    load(loaded, bytes);
    EXPECT_EQ(CQUENDARIC_Object::m_iObjectCounter, counter + 1);  // the construction only
    EXPECT_EQ(loaded.m_iID, stored.m_iID);
    EXPECT_EQ(loaded.m_strDescription, "front row");
    EXPECT_EQ(loaded.m_iEnable, 0);
    EXPECT_EQ(loaded.m_fElevation, -10.0f);
    EXPECT_EQ(loaded.m_fObjectLevel, 0.5f);
    EXPECT_EQ(loaded.m_iObjectFlag, 7);
    // The spherical fields are made from x, y, z again.
    EXPECT_FLOAT_EQ(loaded.m_position.r, 2.0f);
    EXPECT_FLOAT_EQ(loaded.m_position.theta, 90.0f);
    EXPECT_EQ(loaded.m_lookAt.x, 0.0f);

    // A short archive throws and leaves the object as it was.
    CQUENDARIC_Object_Sink_Listener other;
    std::vector<uint8_t> shortBytes(bytes.begin(), bytes.end() - 4);
    qk::CMemoryStream stream(shortBytes.data(), shortBytes.size());
    qk::CArchive ar(stream, qk::CArchive::load);
    EXPECT_THROW(other.Serialize(ar), qk::CArchiveException);
    EXPECT_TRUE(other.m_strDescription.empty());
    EXPECT_NE(other.m_iID, stored.m_iID);
}
