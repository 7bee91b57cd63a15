#include "world/CVRPlane.h"

#include <gtest/gtest.h>

#include "support/ArchiveBytes.h"

using qktest::LoadBytes;
using qktest::StoreBytes;

TEST(CVRPlane, ArchiveKeepsIdsAndTextsButNoCorners) {
    CVRPlane plane(7);
    plane.InsertPoint("1");
    plane.InsertPoint("_12");
    plane.InsertPoint("3");
    plane.m_strImage = "floor.bmp";
    plane.m_iVisible = 0;
    plane.Add(C3Point(1, 2, 3, 0));
    CVRPlane back;
    EXPECT_EQ(LoadBytes(back, StoreBytes(plane)), 0);
    EXPECT_EQ(back.m_PointIDs, (std::vector<std::string>{"1", "_12", "3"}));
    EXPECT_EQ(back.m_iID, 7);
    EXPECT_EQ(back.m_strImage, "floor.bmp");
    EXPECT_EQ(back.m_iVisible, 0);
    EXPECT_EQ(back.GetSize(), 0);  // corners are generated from the ids
}

TEST(CVRPlane, ALyingIdCountIsRefusedBeforeAnythingIsRead) {
    CVRPlane plane(1);
    std::vector<uint8_t> bytes = StoreBytes(plane);
    // After the polygon's version comes the count of ids: claim four thousand million.
    bytes[4] = bytes[5] = bytes[6] = bytes[7] = 0xFF;
    CVRPlane back;
    back.InsertPoint("kept");
    EXPECT_THROW(LoadBytes(back, bytes), qk::CArchiveException);
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
