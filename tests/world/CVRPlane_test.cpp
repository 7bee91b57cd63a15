#include "world/CVRPlane.h"

#include <gtest/gtest.h>

#include "platform/Archive.h"

namespace {
std::vector<uint8_t> store(CVRPlane &plane) {
    qk::CMemoryStream out;
    qk::CArchive ar(out, qk::CArchive::store);
    plane.Serialize(ar);
    return out.Bytes();
}
}  // namespace

TEST(CVRPlane, ArchiveKeepsIdsAndTextsButNoCorners) {
    CVRPlane plane(7);
    plane.InsertPoint("1");
    plane.InsertPoint("_12");
    plane.InsertPoint("3");
    plane.m_strImage = "floor.bmp";
    plane.m_iVisible = 0;
    plane.Add(C3Point(1, 2, 3, 0));
    const std::vector<uint8_t> bytes = store(plane);

    qk::CMemoryStream in(bytes.data(), bytes.size());
    qk::CArchive ar(in, qk::CArchive::load);
    CVRPlane back;
    back.Serialize(ar);
    EXPECT_EQ(back.m_PointIDs, (std::vector<std::string>{"1", "_12", "3"}));
    EXPECT_EQ(back.m_iID, 7);
    EXPECT_EQ(back.m_strImage, "floor.bmp");
    EXPECT_EQ(back.m_iVisible, 0);
    EXPECT_EQ(back.GetSize(), 0);  // corners are generated from the ids
    EXPECT_EQ(ar.Remaining(), 0);
}

TEST(CVRPlane, ALyingIdCountIsRefusedBeforeAnythingIsRead) {
    CVRPlane plane(1);
    std::vector<uint8_t> bytes = store(plane);
    // After the polygon's version comes the count of ids: claim four thousand million.
    bytes[4] = bytes[5] = bytes[6] = bytes[7] = 0xFF;
    qk::CMemoryStream in(bytes.data(), bytes.size());
    qk::CArchive ar(in, qk::CArchive::load);
    CVRPlane back;
    back.InsertPoint("kept");
    EXPECT_THROW(back.Serialize(ar), qk::CArchiveException);
    EXPECT_EQ(back.m_PointIDs, (std::vector<std::string>{"kept"}));
}

TEST(CVRPlane, CopiesTakeFieldsAndCornersButNotTheLists) {
    CVRPlane plane(3);
    plane.InsertPoint("1");
    plane.Add(C3Point(1, 0, 0, 0));
    plane.Add(C3Point(0, 1, 0, 0));
    plane.Add(C3Point(0, 0, 1, 0));
    plane.CalculatePlaneCoefficients();

    const CVRPlane copy(plane);
    EXPECT_EQ(copy.D, plane.D);
    EXPECT_TRUE(copy.m_PointIDs.empty());

    CVRPlane assigned(9);
    assigned.A = 42.0f;
    assigned = plane;
    EXPECT_EQ(assigned.GetSize(), 3);
    EXPECT_EQ(assigned.A, 42.0f);  // assignment copies corners, not the plane
}
