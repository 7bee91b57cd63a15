#include "world/C3Point.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/Archive.h"
#include "world/C2Point.h"
#include "world/PolygonGeometry.h"

namespace {
// Results of a few float operations on small integers: exact but for rounding of the last bit.
constexpr float kTol = 1e-5f;

void expectXYZ(const C3Point &p, float x, float y, float z, float tol = kTol) {
    EXPECT_NEAR(p.x, x, tol);
    EXPECT_NEAR(p.y, y, tol);
    EXPECT_NEAR(p.z, z, tol);
}
}  // namespace

TEST(C3Point, CartesianConstructionFillsTheSphericalFields) {
    const C3Point p(1, 2, 3, 0);
    EXPECT_NEAR(p.r, std::sqrt(14.0), kTol);
    EXPECT_NEAR(p.phi, std::atan(2.0) * 180.0 / M_PI, 1e-3);
    EXPECT_NEAR(p.theta, std::acos(3.0 / std::sqrt(14.0)) * 180.0 / M_PI, 1e-3);
}

TEST(C3Point, SphericalConstructionUsesTheCoarseDegreeFactor) {
    // 90 degrees become 1.575 rad, past a right angle: z comes out slightly negative, where
    // pi/180 would give 0.
    const C3Point p(2, 0, 90, 1);
    EXPECT_EQ(p.y, 0.0f);
    EXPECT_LT(p.x, 2.0f);
    EXPECT_GT(p.x, 1.999f);
    EXPECT_NEAR(p.z, -0.0084f, 1e-4f);
}

TEST(C3Point, AnotherModeSetsNothing) {
    const C3Point p(1, 2, 3, 7);
    expectXYZ(p, 0, 0, 0);
    EXPECT_EQ(p.r, 0.0f);
}

TEST(C3Point, PhiOnTheAxesFollowsTheFloatDivision) {
    EXPECT_NEAR(C3Point(0, 5, 0, 0).phi, 90.0f, 1e-3f);
    EXPECT_TRUE(std::isnan(C3Point(0, 0, 1, 0).phi));
    // The one-argument arctangent does not resolve the quadrant.
    EXPECT_NEAR(C3Point(-1, -1, 0, 0).phi, 45.0f, 1e-3f);
}

TEST(C3Point, OperatorsWorkInPlaceOnTheLeftOperand) {
    C3Point a(1, 2, 3, 0);
    const C3Point b(10, 10, 10, 0);
    C3Point &sum = a + b;
    EXPECT_EQ(&sum, &a);
    expectXYZ(a, 11, 2, 3);  // only x is added
    a += b;
    expectXYZ(a, 21, 12, 13);
    C3Point &diff = a - b;
    EXPECT_EQ(&diff, &a);
    expectXYZ(a, 11, 2, 3);
    -a;
    expectXYZ(a, -11, -2, -3);
    a * 2.0f;
    expectXYZ(a, -22, -4, -6);
    a / 2.0f;
    expectXYZ(a, -11, -2, -3);
    a -= b;
    expectXYZ(a, -21, -12, -13);
    EXPECT_FLOAT_EQ(C3Point(1, 2, 3, 0) * C3Point(4, 5, 6, 0), 32.0f);
}

TEST(C3Point, ArithmeticLeavesTheSphericalFieldsStale) {
    C3Point a(3, 4, 0, 0);
    a += C3Point(3, 4, 0, 0);
    EXPECT_FLOAT_EQ(a.r, 5.0f);
    a.Cartesian2Spherical();
    EXPECT_FLOAT_EQ(a.r, 10.0f);
}

TEST(C3Point, CaretIsTheRunningCrossProductAndCrossTheTrueOne) {
    C3Point a(1, 0, 0, 0);
    a ^ C3Point(0, 1, 0, 0);
    expectXYZ(a, 0, 0, 0);
    expectXYZ(Cross(C3Point(1, 0, 0, 0), C3Point(0, 1, 0, 0)), 0, 0, 1);

    C3Point b(1, 2, 3, 0);
    b ^ C3Point(4, 5, 6, 0);
    expectXYZ(b, -3, 30, -135);  // textbook: (-3, 6, -3)
    const C3Point c = Cross(C3Point(1, 2, 3, 0), C3Point(4, 5, 6, 0));
    expectXYZ(c, -3, 6, -3);
    EXPECT_NEAR(c.r, std::sqrt(54.0f), kTol);  // the free function fills the sphere too
}

TEST(C3Point, EqualityToleratesAThousandthOnEachAxis) {
    const C3Point origin;
    EXPECT_TRUE(origin == C3Point(0.001, 0, 0, 0));
    EXPECT_TRUE(origin == C3Point(0.001, -0.001, 0.001, 0));
    EXPECT_FALSE(origin == C3Point(0, 0.0011, 0, 0));
    EXPECT_TRUE(origin != C3Point(0, 0, -0.0011, 0));
}

TEST(C3Point, NormalizeKeepsTheZeroVector) {
    C3Point zero;
    zero.Normalize();
    expectXYZ(zero, 0, 0, 0);
    C3Point p(3, 4, 0, 0);
    p.Normalize();
    expectXYZ(p, 0.6f, 0.8f, 0);
    EXPECT_FLOAT_EQ(C3Point(2, 3, 6, 0).Length(), 7.0f);
}

TEST(C3Point, ArchivesOnlyItsVersion) {
    qk::CMemoryStream out;
    qk::CArchive store(out, qk::CArchive::store);
    C3Point p(1, 2, 3, 0);
    p.Serialize(store);
    C2Point q(4, 5);
    q.Serialize(store);
    const std::vector<uint8_t> one = {0x00, 0x00, 0x80, 0x3F};
    ASSERT_EQ(out.Bytes().size(), 8u);
    EXPECT_EQ(std::vector<uint8_t>(out.Bytes().begin(), out.Bytes().begin() + 4), one);

    qk::CMemoryStream in(out.Bytes().data(), out.Bytes().size());
    qk::CArchive load(in, qk::CArchive::load);
    C3Point loaded(7, 8, 9, 0);
    loaded.Serialize(load);
    expectXYZ(loaded, 7, 8, 9);  // coordinates are made again from expressions, not loaded
    C2Point loaded2(6, 7);
    loaded2.Serialize(load);
    EXPECT_EQ(loaded2.x, 6.0f);
    EXPECT_THROW(loaded.Serialize(load), qk::CArchiveException);
}
