#include "world/C3Point.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/Archive.h"
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

TEST(C3Point, ConstructionByMode) {
    const C3Point p(1, 2, 3, 0);
    EXPECT_NEAR(p.r, std::sqrt(14.0), kTol);
    EXPECT_NEAR(p.phi, std::atan(2.0) * 180.0 / M_PI, 1e-3);
    EXPECT_NEAR(p.theta, std::acos(3.0 / std::sqrt(14.0)) * 180.0 / M_PI, 1e-3);
    // The one-argument arctangent does not resolve the quadrant; on the z axis it divides 0/0.
    EXPECT_NEAR(C3Point(-1, -1, 0, 0).phi, 45.0f, 1e-3f);
    EXPECT_TRUE(std::isnan(C3Point(0, 0, 1, 0).phi));

    // Spherical: 90 degrees become 1.575 rad, past a right angle, so z comes out slightly
    // negative where pi/180 would give 0.
    const C3Point s(2, 0, 90, 1);
    EXPECT_EQ(s.y, 0.0f);
    EXPECT_NEAR(s.z, -0.0084f, 1e-4f);
    expectXYZ(C3Point(1, 2, 3, 7), 0, 0, 0);  // another mode sets nothing
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
    EXPECT_FLOAT_EQ(a.r, C3Point(1, 2, 3, 0).r);  // the sphere is left stale

    C3Point c(1, 2, 3, 0);
    c ^ C3Point(4, 5, 6, 0);
    expectXYZ(c, -3, 30, -135);  // a running cross product; textbook: (-3, 6, -3)
    const C3Point cross = Cross(C3Point(1, 2, 3, 0), C3Point(4, 5, 6, 0));
    expectXYZ(cross, -3, 6, -3);
    EXPECT_NEAR(cross.r, std::sqrt(54.0f), kTol);  // the free function fills the sphere too
}

TEST(C3Point, EqualityToleranceAndNormalize) {
    const C3Point origin;
    EXPECT_TRUE(origin == C3Point(0.001, -0.001, 0.001, 0));
    EXPECT_FALSE(origin == C3Point(0, 0.0011, 0, 0));
    EXPECT_TRUE(origin != C3Point(0, 0, -0.0011, 0));
    C3Point zero;
    zero.Normalize();
    expectXYZ(zero, 0, 0, 0);
}

TEST(C3Point, ArchivesOnlyItsVersion) {
    qk::CMemoryStream out;
    qk::CArchive store(out, qk::CArchive::store);
    C3Point p(1, 2, 3, 0);
    p.Serialize(store);
    ASSERT_EQ(out.Bytes().size(), 4u);

    qk::CMemoryStream in(out.Bytes().data(), out.Bytes().size());
    qk::CArchive load(in, qk::CArchive::load);
    C3Point loaded(7, 8, 9, 0);
    loaded.Serialize(load);
    expectXYZ(loaded, 7, 8, 9);  // coordinates are made again from expressions, not loaded
    EXPECT_THROW(loaded.Serialize(load), qk::CArchiveException);
}
