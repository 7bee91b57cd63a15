#include "world/CVRPoint.h"

#include <gtest/gtest.h>

#include "support/ArchiveBytes.h"
#include "world/CDSC_World.h"

namespace {
// Coordinates enter with three decimals; results are exact to float rounding.
constexpr float kTol = 1e-5f;

struct Fixture {
    CDSC_World world;
    CDSC_Scene *scene = nullptr;
    Fixture() { world.InsertScene(scene, "main", ""); }
    CVRPoint *add(int id, const std::string &x, const std::string &y, const std::string &z) {
        scene->InsertPoint(id, x, y, z);
        return scene->m_Points.back().get();
    }
};
}  // namespace

TEST(CVRPoint, CoordinatesFromExpressionsAndConstants) {
    Fixture f;
    f.world.InsertConstant("w", "4", "", 1);
    ASSERT_EQ(f.world.GenerateConstants(), 0);
    CVRPoint *p = f.add(1, "-w/2", "1,5", "sqr(w)");
    EXPECT_EQ(p->GenerateAll(), 0);
    EXPECT_NEAR(p->x, -2.0f, kTol);
    EXPECT_NEAR(p->y, 1.5f, kTol);
    EXPECT_NEAR(p->z, 2.0f, kTol);
    // Unlike a constant, a coordinate knows no "sqrt" spelling.
    CVRPoint *q = f.add(2, "sqrt(w)", "0", "0");
    EXPECT_EQ(q->GenerateAll(), 203);
    // The first axis in error stops the rest.
    CVRPoint *r = f.add(3, "1", "oops", "7");
    EXPECT_EQ(r->GenerateAll(), 203);
    EXPECT_EQ(r->z, 0.0f);
}

TEST(CVRPoint, ReferencesToEarlierCornersOfTheScene) {
    Fixture f;
    f.add(3, "2", "5", "-1");
    ASSERT_EQ(f.scene->GeneratePoints(), 0);
    CVRPoint *p = f.add(4, "x(3)+1", "y(3)*x(3)", "z(3)-z(3)+y(3)");
    EXPECT_EQ(p->GenerateAll(), 0);
    EXPECT_NEAR(p->x, 3.0f, kTol);
    EXPECT_NEAR(p->y, 10.0f, kTol);
    EXPECT_NEAR(p->z, 5.0f, kTol);
    EXPECT_EQ(f.add(5, "x(9)", "0", "0")->GenerateAll(), 204);  // no corner 9
    // Upper-case references and ids not written as the corner's number can't be resolved.
    EXPECT_EQ(f.add(6, "X(3)", "0", "0")->GenerateAll(), 204);
}

TEST(CVRPoint, WorldReferencesNeedTheEarlierSceneGenerated) {
    Fixture f;
    CDSC_Scene *second = nullptr;
    f.world.InsertScene(second, "second", "");
    f.scene->m_iOffsetCorners = 1;
    f.scene->m_iOffsetCornersBy = 100;
    f.add(3, "7", "0", "0");
    second->InsertPoint(1, "x(_103)*2", "x(_3)", "0");
    CVRPoint *p = second->m_Points.back().get();
    EXPECT_EQ(p->GenerateAll(), 204);  // nothing is in the world's list yet
    ASSERT_EQ(f.scene->GeneratePoints(), 0);
    EXPECT_EQ(p->GenerateX(), 0);  // world ids carry the scene's offset
    EXPECT_NEAR(p->x, 14.0f, kTol);
    EXPECT_EQ(p->GenerateY(), 204);
    // A scene id does not fall back to the world, nor a world id to the scene.
    EXPECT_EQ(second->InsertPoint(2, "x(3)", "0", "0"), 0);
    EXPECT_EQ(second->m_Points.back()->GenerateAll(), 204);
}

TEST(CVRPoint, MirrorAndOffsetRenumberOnly) {
    Fixture f;
    f.scene->m_iMirror = 1;
    f.scene->m_iMirrorCorners = 20;
    f.scene->m_iOffsetCorners = 1;
    f.scene->m_iOffsetCornersBy = 5;
    CVRPoint *p = f.add(2, "1", "2", "3");
    EXPECT_EQ(p->GenerateAll(), 0);
    EXPECT_EQ(p->m_iWorldID, 27);
    f.scene->m_iOffsetCornersBy = 2147483647;
    EXPECT_EQ(p->GenerateAll(), 0);
    EXPECT_EQ(p->m_iWorldID, 2147483647);  // clamped, not wrapped
}

TEST(CVRPoint, FunctionsAreCheckedButComputeNothing) {
    Fixture f;
    f.add(1, "1", "1", "1");
    f.add(2, "2", "2", "2");
    ASSERT_EQ(f.scene->GeneratePoints(), 0);
    f.scene->InsertPoint(10, "lock(1 2 1)");
    CVRPoint *lock = f.scene->m_Points.back().get();
    lock->x = 4.0f;
    EXPECT_EQ(lock->GenerateAll(), 0);
    EXPECT_EQ(lock->x, 4.0f);
    lock->m_strFunction = "lock(1 2 3)";
    EXPECT_EQ(lock->GenerateAll(), 204);
    lock->m_strFunction = " cut( 1 2 1 2 _1 ) ";
    EXPECT_EQ(lock->GenerateAll(), 0);
    for (const char *bad : {"lock(1 2)", "lock 1 2 3", "cut(1 2 3 4)", "   "}) {
        lock->m_strFunction = bad;
        EXPECT_EQ(lock->GenerateAll(), -1) << bad;
    }
}

TEST(CVRPoint, ArchiveFormLeavesTheFunctionOut) {
    CVRPoint p(nullptr, nullptr, 12, "1", "x(3)", "w/2");
    p.m_iWorldID = 112;
    p.m_strFunction = "lock(1 2 3)";
    p.x = 5.0f;
    const std::vector<uint8_t> bytes = qktest::StoreBytes(p);
    // two versions, two ids, three counted strings
    EXPECT_EQ(bytes.size(), 4u + 4u + 4u + 4u + 2u + 5u + 4u);
    CVRPoint back;
    qktest::LoadBytes(back, bytes);
    EXPECT_EQ(back.m_strZ, "w/2");
}
