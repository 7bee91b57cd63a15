#include "world/CPolygon.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <initializer_list>

namespace {
// Float results of a few operations on small numbers.
constexpr float kTol = 1e-4f;

CPolygon polygonOf(std::initializer_list<C3Point> corners) {
    CPolygon p;
    for (const C3Point &c : corners) {
        p.Add(c);
    }
    return p;
}

C3Point P(double x, double y, double z = 0) {
    return C3Point(x, y, z, 0);
}

// A unit square in x-y, anticlockwise, closed by a repeat of its first corner.
CPolygon closedSquare() {
    return polygonOf({P(0, 0), P(1, 0), P(1, 1), P(0, 1), P(0, 0)});
}

void expectXYZ(const C3Point &p, float x, float y, float z, float tol = kTol) {
    EXPECT_NEAR(p.x, x, tol);
    EXPECT_NEAR(p.y, y, tol);
    EXPECT_NEAR(p.z, z, tol);
}

std::vector<float> xs(const CPolygon &p) {
    std::vector<float> v;
    for (int i = 0; i < p.GetSize(); ++i) {
        v.push_back(p.Point(i).x);
    }
    return v;
}

float triangleAreaSum(const CPolygon &triangles) {
    float sum = 0.0f;
    for (int i = 0; i + 2 < triangles.GetSize(); i += 3) {
        sum += std::fabs(TriangleArea2(triangles.Point(i), triangles.Point(i + 1),
                                       triangles.Point(i + 2))) /
               2.0f;
    }
    return sum;
}
}  // namespace

TEST(CPolygon, PlaneReflectionAndDistance) {
    CPolygon floor = polygonOf({P(0, 0), P(1, 0), P(0, 1)});
    ASSERT_EQ(floor.CalculatePlaneCoefficients(), 1);
    EXPECT_FLOAT_EQ(floor.A, 0.0f);
    EXPECT_FLOAT_EQ(floor.B, 0.0f);
    EXPECT_FLOAT_EQ(floor.C, 1.0f);
    EXPECT_FLOAT_EQ(floor.D, 0.0f);

    const C3Point source(2, 3, 5, 0);
    C3Point image;
    floor.Reflection(source, image);
    expectXYZ(image, 2, 3, -5);
    EXPECT_FLOAT_EQ(image.r, source.r);  // the spherical fields are those of the source
    float d = 0.0f;
    floor.Distance(source, d);
    EXPECT_FLOAT_EQ(d, 5.0f);
    floor.Distance(image, d);
    EXPECT_FLOAT_EQ(d, -5.0f);
    C3Point back;
    floor.Reflection_Back(source, back);
    expectXYZ(back, 2, 3, 15);  // further away on its own side: not an inverse

    // Only the first three corners count; a larger triangle's distances are still in metres.
    CPolygon wall = polygonOf({P(0, 2, 0), P(0, 2, 3), P(3, 2, 0), P(9, 9, 9)});
    ASSERT_EQ(wall.CalculatePlaneCoefficients(), 1);
    wall.Distance(P(5, 7, 1), d);
    EXPECT_FLOAT_EQ(std::fabs(d), 5.0f);
}

TEST(CPolygon, DegeneratePlanes) {
    CPolygon two = polygonOf({P(0, 0), P(1, 0)});
    EXPECT_EQ(two.CalculatePlaneCoefficients(), 0);

    CPolygon repeated = polygonOf({P(1, 1), P(1, 1), P(0, 1)});
    ASSERT_EQ(repeated.CalculatePlaneCoefficients(), 1);
    C3Point image;
    EXPECT_EQ(repeated.Reflection(P(2, 3, 5), image), 1);
    EXPECT_TRUE(std::isnan(image.x));
}

TEST(CPolygon, LinePlaneIntersection) {
    C3Point out(9, 9, 9, 0);
    // Parallel to z = 0: no point, out untouched.
    EXPECT_EQ(LinePlaneIntersection(0, 0, 1, 0, P(0, 0, 1), P(5, 0, 1), &out), 0);
    expectXYZ(out, 9, 9, 9);
    EXPECT_EQ(LinePlaneIntersection(0, 0, 1, 0, P(1, 2, 3), P(5, 6, -1), &out), 1);
    expectXYZ(out, 4, 5, 0);
}

TEST(CPolygon, ClosingAndCorners) {
    EXPECT_EQ(CPolygon().Close(), 0);
    CPolygon nearly = polygonOf({P(0, 0), P(1, 0), P(1, 1), P(0.001, 0.001, 0.001)});
    EXPECT_EQ(nearly.Close(), 1);
    EXPECT_EQ(nearly.GetSize(), 4);

    CPolygon open = polygonOf({P(0, 0), P(1, 0), P(1, 1)});
    EXPECT_EQ(open.Close(), 1);
    EXPECT_EQ(open.GetSize(), 4);
    expectXYZ(open.Point(3), 0, 0, 0);

    EXPECT_EQ(open.Delete(9), 0);
    EXPECT_EQ(open.SetAt(4, P(1, 1)), 0);
    // A bad index reaches no corner.
    open.Point(-1) = P(7, 7);
    open[4] = P(7, 7);
    EXPECT_EQ(xs(open), (std::vector<float>{0, 1, 1, 0}));
    EXPECT_EQ(open.SetSize(-1), 0);
    EXPECT_EQ(open.SetSize(CPolygon::kMaxCorners + 1), 0);
    EXPECT_EQ(open.GetSize(), 4);
}

TEST(CPolygon, TrimDeletesWithARisingIndex) {
    CPolygon ten;
    for (int i = 0; i < 10; ++i) {
        ten.Add(P(i, 0));
    }
    // The deletes run while the corners shift down: Trim(2, 5) loses corner 2 in place of 1.
    const struct {
        int from, to;
        std::vector<float> left;
    } cases[] = {{2, 5, {1, 3, 4, 5}}, {0, 3, {0, 1, 2, 3}}, {5, 2, {0, 1, 3, 5, 7, 8, 9}}};
    for (const auto &c : cases) {
        CPolygon p = ten;
        p.Trim(c.from, c.to);
        EXPECT_EQ(xs(p), c.left) << c.from << ".." << c.to;
    }
    CPolygon absurd = ten;
    absurd.Trim(2000000000, -2000000000);  // ends at once, deleting every second corner
    EXPECT_EQ(absurd.GetSize(), 5);
}
TEST(CPolygon, PointInWorksInXY) {
    const CPolygon square = closedSquare();
    EXPECT_EQ(square.PointIn(P(0.5, 0.5)), 1);
    EXPECT_EQ(square.PointIn(P(1.5, 0.5)), 0);
    // An L: the notch is outside.
    const CPolygon ell = polygonOf({P(0, 0), P(2, 0), P(2, 1), P(1, 1), P(1, 2), P(0, 2)});
    EXPECT_EQ(ell.PointIn(P(0.5, 1.5)), 1);
    EXPECT_EQ(ell.PointIn(P(1.5, 1.5)), 0);
    EXPECT_EQ(ell.PointIn(P(1.5, 0.5)), 1);
    // A vertical wall has no inside in x-y.
    const CPolygon wall = polygonOf({P(3, 0, 0), P(3, 2, 0), P(3, 2, 2), P(3, 0, 2)});
    EXPECT_EQ(wall.PointIn(P(2.5, 1, 1)), 0);
}

TEST(CPolygon, AreaCountsReflexTrianglesOfVerticalOutlinesAsPositive) {
    EXPECT_FLOAT_EQ(closedSquare().Area(), 1.0f);
    // A square of 4 with a notch of area 6 cut from its top edge, standing in x-z: the fan's reflex
    // triangle has a normal with z = 0 and counts as positive, 8 + 2 + 4.
    const CPolygon upright =
        polygonOf({P(0, 0, 0), P(4, 0, 0), P(4, 0, 4), P(2, 0, 1), P(0, 0, 4)});
    EXPECT_FLOAT_EQ(upright.Area(), 14.0f);
}

TEST(CPolygon, CentroidWritesIntoCornerZero) {
    CPolygon triangle = polygonOf({P(0, 0), P(3, 0), P(0, 3)});
    const C3Point c = triangle.Centroid();
    // Corner 0 took (0 + 3 + 0) / 3 in x only before the area was taken from it.
    expectXYZ(triangle.Point(0), 1, 0, 0);
    expectXYZ(c, 1, 0, 0);  // the textbook centroid would be (1, 1, 0)

    expectXYZ(CPolygon().Centroid(), 0, 0, 0);
}

TEST(CPolygon, SegmentLengthOverwritesTheCorners) {
    CPolygon path = polygonOf({P(1, 0), P(2, 0), P(2, 1)});
    // Corner 1 becomes (1, 0, 0) before it is taken from corner 2.
    EXPECT_NEAR(path.SegmentLength(0, 2), 1.0f + std::sqrt(2.0f), kTol);
    expectXYZ(path.Point(2), 1, 1, 0);
    EXPECT_EQ(path.SegmentLength(-1, 2), 0.0f);
    EXPECT_EQ(path.SegmentLength(0, 4), 0.0f);
}

TEST(CPolygon, RationaliseSkipsTheCornerAfterARemovedOne) {
    CPolygon line = polygonOf({P(0, 0), P(1, 0), P(2, 0), P(3, 0), P(4, 0)});
    // Corner 1 is straight (angle 0) and goes; corner 2 is skipped; at corner 3 the angle
    // formula leaves the range of acos and nothing goes.
    line.Rationalise(1);
    EXPECT_EQ(xs(line), (std::vector<float>{0, 2, 3, 4}));
}

TEST(CPolygon, EarClippingCountsOnClosedOutlines) {
    CPolygon triangles;
    ASSERT_EQ(closedSquare().Triangulate(&triangles), 1);
    EXPECT_EQ(triangles.GetSize(), 6);
    EXPECT_FLOAT_EQ(triangleAreaSum(triangles), 1.0f);

    EXPECT_EQ(polygonOf({P(0, 0), P(1, 0), P(0, 1)}).Triangulate(&triangles), 0);

    // A closed L of six corners: four triangles covering its area of 3.
    const CPolygon ell = polygonOf({P(0, 0), P(2, 0), P(2, 1), P(1, 1), P(1, 2), P(0, 2), P(0, 0)});
    ASSERT_EQ(ell.Triangulate(&triangles), 1);
    EXPECT_EQ(triangles.GetSize(), 12);
    EXPECT_FLOAT_EQ(triangleAreaSum(triangles), 3.0f);

    // A collinear corner is dropped without a triangle.
    const CPolygon withMid = polygonOf({P(0, 0), P(1, 0), P(2, 0), P(2, 2), P(0, 2), P(0, 0)});
    ASSERT_EQ(withMid.Triangulate(&triangles), 1);
    EXPECT_FLOAT_EQ(triangleAreaSum(triangles), 4.0f);
}

TEST(CPolygon, FanAroundACentre) {
    CPolygon fan;

    ASSERT_EQ(closedSquare().CPTriangulate(&fan, P(0.5, 0.5)), 1);
    ASSERT_EQ(fan.GetSize(), 12);
    expectXYZ(fan.Point(9), 0.5f, 0.5f, 0);
    EXPECT_FLOAT_EQ(triangleAreaSum(fan), 1.0f);
}

TEST(CPolygon, DelaunayGrowsForCocircularCorners) {
    // Four corners in general position: the two Delaunay triangles.
    CPolygon quad = polygonOf({P(0, 0), P(4, 0), P(4, 3), P(0, 1)});
    CPolygon triangles;
    ASSERT_EQ(quad.DelauneyTri(&triangles), 1);
    EXPECT_EQ(triangles.GetSize(), 6);

    // The corners of a square lie on one circle: every triple qualifies, four triangles
    // where room was made for two.
    CPolygon square = polygonOf({P(0, 0), P(1, 0), P(1, 1), P(0, 1)});
    ASSERT_EQ(square.DelauneyTri(&triangles), 1);
    EXPECT_EQ(triangles.GetSize(), 12);
    EXPECT_EQ(CPolygon().DelauneyTri(&triangles), 0);
}

TEST(CPolygon, AttributesByEarClipping) {
    float area = 0, slope = 0, aspect = 0;
    C3Point centroid, normal;
    // The sum of an ear's corners is formed in place on its first corner, which then enters
    // the normal: on a level square the two halves' normals cancel.
    const CPolygon square = closedSquare();
    ASSERT_EQ(square.GetAttributes(&area, &centroid, &normal, &slope, &aspect), 1);
    EXPECT_FLOAT_EQ(area, 1.0f);
    expectXYZ(centroid, 5.0f / 6.0f, 0, 0);
    expectXYZ(normal, 0, 0, 0);
    EXPECT_EQ(slope, 3.4028235e+38f);
    EXPECT_FLOAT_EQ(aspect, 90.0f);
    expectXYZ(square.Point(0), 0, 0, 0);  // the polygon itself is left alone

    EXPECT_EQ(square.GetAttributes(nullptr, &centroid, &normal, &slope, &aspect), 0);
}

TEST(CPolygon, IntersectionTestsSkipEdgesStartingFarAway) {
    const CPolygon square = closedSquare();
    EXPECT_EQ(square.Intersected(P(0.5, 0.5), P(0.5, 1.5)), 1);
    EXPECT_EQ(square.IntersectedProp(P(0.5, 0.5), P(0.5, 1.5)), 1);
    // Touching a corner counts, but is no proper crossing.
    EXPECT_EQ(square.Intersected(P(0.5, -0.5), P(1, 0)), 1);
    EXPECT_EQ(square.IntersectedProp(P(0.5, -0.5), P(1, 0)), 0);
    // An edge whose first corner lies further from a than b does is never looked at.
    const CPolygon diagonal = polygonOf({P(10, -10), P(-10, 10)});
    EXPECT_EQ(diagonal.Intersected(P(0, -1), P(0, 1)), 0);
    EXPECT_TRUE(Intersect(P(0, -1), P(0, 1), P(10, -10), P(-10, 10)));
}

TEST(CPolygon, FreeFunctions) {
    EXPECT_TRUE(Collinear(P(0, 0), P(1, 0), P(2, 0.0009)));
    EXPECT_FALSE(Collinear(P(0, 0), P(1, 0), P(2, 0.0011)));
    EXPECT_TRUE(Between(P(1, 0), P(1, 4), P(1, 3)));  // equal x: y decides
    EXPECT_FLOAT_EQ(Pow(2.0f, -2), 0.25f);
    EXPECT_EQ(Pow(1.0f, -2147483647 - 1), 1.0f);
}

TEST(CPolygon, ProjectionSeesFromTheEyesSphere) {
    // From r = 10 along +z (phi = theta = 0): screen x follows y, screen y follows -x.
    const CPolygon p = polygonOf({P(1, 2, 0), P(0, 0, 5)});
    C3Point eye;
    eye.r = 10.0f;
    CPoint *out = new CPoint[3];
    int count = 0;
    ASSERT_EQ(p.Project3DPointsTo2D(eye, 100.0, 50, 50, out, count), 1);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(out[0].x, 70);
    EXPECT_EQ(out[0].y, 40);
    // A corner in the eye's plane projects to infinity, which ends at the int's limit.
    const CPolygon atEye = polygonOf({P(1, 0, 10)});
    atEye.Project3DPointsTo2D(eye, 100.0, 0, 0, out, count);
    ASSERT_EQ(count, 1);
    CPolygon().Project3DPointsTo2D(eye, 100.0, 50, 50, out, count);
    EXPECT_EQ(out, nullptr);
}
