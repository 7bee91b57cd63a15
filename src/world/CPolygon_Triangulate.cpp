// CPolygon: diagonals, the three triangulators, attributes by ear clipping and the
// intersection tests.
#include <cfloat>
#include <cmath>
#include <new>
#include <vector>

#include "world/CPolygon.h"

namespace {
constexpr float kRadToDeg = 57.29578f;
constexpr float kNoSlope = 3.4028235e+38f;  // an upright surface
constexpr float kFlatSlope = 0.01f;         // below this a surface has no aspect
constexpr float kTinyArea = 0.001f;
constexpr float kTinyNormalZ = 0.001f;

float squaredXY(const C3Point &a, const C3Point &b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    return dx * dx + dy * dy;
}

// 1 when segment a-b meets, by meets, an edge of the outline whose first corner lies no
// farther from a than b does (in plan); 0 otherwise.
int meetsOutline(const CPolygon &polygon, const C3Point &a, const C3Point &b,
                 bool (*meets)(C3Point, C3Point, C3Point, C3Point)) {
    const float d2 = squaredXY(a, b);
    for (int i = 0; i + 1 < polygon.GetSize(); ++i) {
        if (squaredXY(a, polygon.Point(i)) <= d2 &&
            meets(a, b, polygon.Point(i), polygon.Point(i + 1))) {
            return 1;
        }
    }
    return 0;
}

// A work copy of the first n corners of a polygon; false when it can't be had.
bool copyCorners(const CPolygon &from, int n, CPolygon &to) {
    if (to.SetSize(n) == 0) {
        return false;
    }
    for (int i = 0; i < n; ++i) {
        to.SetAt(i, from.Point(i));
    }
    return true;
}

// Clips ears off the work copy until fewer than four corners are left. Each ear's triangle
// goes to take as corners (i, j, k) of the copy, before its middle corner j is taken out; a
// corner on a line with its neighbours is taken out without a triangle. False when four or
// more corners are left and none of them is an ear.
template <typename Take>
bool clipEars(CPolygon &work, Take take) {
    while (work.GetSize() >= 4) {
        const int s = work.GetSize();
        bool found = false;
        for (int i = 0; i < s && !found; ++i) {
            const int j = (i + 1) % s;
            const int k = (j + 1) % s;
            if (work.Diagonal(i, k) != 0) {
                take(i, j, k);
                work.Delete(j);
                found = true;
            } else if (Collinear(work.Point(k), work.Point(j), work.Point(i))) {
                work.Delete(j);
                found = true;
            }
        }
        if (!found) {
            return false;
        }
    }
    return true;
}

// The running sums of GetAttributes.
struct Attributes {
    float area = 0.0f;
    C3Point centroid;
    C3Point normal;

    // Takes the triangle i, j, k of the work copy. The sum of the corners is formed with the
    // in-place operator+ on corner i, so the copy's corner i changes, as it always has.
    void Accumulate(CPolygon &work, int i, int j, int k) {
        const float a = TriangleArea2(work.Point(i), work.Point(j), work.Point(k));
        area += a;
        C3Point t = work.Point(i) + work.Point(j) + work.Point(k);
        centroid += t * a;
        C3Point n = TriangleNormal(work.Point(i), work.Point(j), work.Point(k));
        normal += n * a;
    }
};
}  // namespace

int CPolygon::InCone(int i, int j) const {
    const int n = m_size;
    const int i1 = (i + 1) % n;
    const int in1 = (i + n - 1) % n;
    if (LeftOn(Point(in1), Point(i), Point(i1))) {
        return (Left(Point(i), Point(j), Point(in1)) && Left(Point(j), Point(i), Point(i1))) ? 1
                                                                                             : 0;
    }
    return !(LeftOn(Point(i), Point(j), Point(i1)) && LeftOn(Point(j), Point(i), Point(in1))) ? 1
                                                                                              : 0;
}

int CPolygon::Diagonalie(int i, int j) const {
    const int n = m_size;
    for (int k = 0; k < n; ++k) {
        const int k1 = (k + 1) % n;
        if (k == i || k1 == i || k == j || k1 == j) {
            continue;
        }
        if (Intersect(Point(i), Point(j), Point(k), Point(k1))) {
            return 0;
        }
    }
    return 1;
}

int CPolygon::Diagonal(int i, int j) const {
    if (m_size == 0) {
        return 0;
    }
    return (InCone(i, j) != 0 && Diagonalie(i, j) != 0) ? 1 : 0;
}

int CPolygon::Triangulate(CPolygon *out) const {
    const int n = m_size;
    if (out == nullptr || n < 4) {
        return 0;
    }
    if (out->SetSize((n - 3) * 3) == 0) {
        return 0;
    }
    out->m_size = 0;
    CPolygon work;
    if (!copyCorners(*this, n - 1, work)) {
        return 0;
    }
    const bool clipped = clipEars(work, [&](int i, int j, int k) {
        out->AppendRun(work.Point(i));
        out->AppendRun(work.Point(j));
        out->AppendRun(work.Point(k));
    });
    if (!clipped) {
        out->SetSize(out->GetSize());
        return 0;
    }
    if (work.GetSize() == 3) {
        out->AppendRun(work.Point(0));
        out->AppendRun(work.Point(1));
        out->AppendRun(work.Point(2));
    }
    out->SetSize(out->GetSize());
    return 1;
}

int CPolygon::CPTriangulate(CPolygon *out, C3Point centre) const {
    if (out == nullptr) {
        return 0;
    }
    if (m_size == 4) {
        // A closed triangle is its own triangulation.
        if (out->SetSize(3) == 0) {
            return 0;
        }
        for (int i = 0; i < 3; ++i) {
            out->SetAt(i, m_points[static_cast<size_t>(i)]);
        }
        return 1;
    }
    if (out->SetSize((m_size - 1) * 3) == 0) {
        return 0;
    }
    out->m_size = 0;
    for (int i = 0; i + 1 < m_size; ++i) {
        out->AppendRun(centre);
        out->AppendRun(m_points[static_cast<size_t>(i)]);
        out->AppendRun(m_points[static_cast<size_t>(i + 1)]);
    }
    return 1;
}

// Triangles of the lower hull of the corners lifted onto z = x^2 + y^2. Four or more
// co-circular corners give more triangles than n - 2; the output then grows to hold them.
int CPolygon::DelauneyTri(CPolygon *out) const {
    const int n = m_size;
    if (out == nullptr || out->SetSize((n - 2) * 3) == 0) {
        return 0;
    }
    out->m_size = 0;
    std::vector<float> q;
    try {
        q.resize(static_cast<size_t>(n));
    } catch (const std::bad_alloc &) {
        return 0;
    }
    auto P = [this](int i) -> const C3Point & { return m_points[static_cast<size_t>(i)]; };
    for (int i = 0; i < n; ++i) {
        q[static_cast<size_t>(i)] = P(i).x * P(i).x + P(i).y * P(i).y;
    }
    for (int i = 0; i < n - 2; ++i) {
        const float qi = q[static_cast<size_t>(i)];
        for (int j = i + 1; j < n; ++j) {
            const float qj = q[static_cast<size_t>(j)];
            for (int k = i + 1; k < n; ++k) {
                if (k == j) {
                    continue;
                }
                const float qk = q[static_cast<size_t>(k)];
                const float xn = (P(j).y - P(i).y) * (qk - qi) - (P(k).y - P(i).y) * (qj - qi);
                const float yn = (P(k).x - P(i).x) * (qj - qi) - (P(j).x - P(i).x) * (qk - qi);
                const float zn =
                    (P(j).x - P(i).x) * (P(k).y - P(i).y) - (P(k).x - P(i).x) * (P(j).y - P(i).y);
                bool below = zn < 0.0f;
                for (int m = 0; below && m < n; ++m) {
                    below = (P(m).x - P(i).x) * xn + (P(m).y - P(i).y) * yn +
                                (q[static_cast<size_t>(m)] - qi) * zn <=
                            0.0f;
                }
                if (below) {
                    out->AppendRun(P(i));
                    out->AppendRun(P(j));
                    out->AppendRun(P(k));
                }
            }
        }
    }
    out->SetSize(out->GetSize());
    return 1;
}

int CPolygon::GetAttributes(float *area, C3Point *centroid, C3Point *normal, float *slope,
                            float *aspect) const {
    if (area == nullptr || centroid == nullptr || normal == nullptr || slope == nullptr ||
        aspect == nullptr) {
        return 0;
    }
    const int n = Closed() != 0 ? m_size - 1 : m_size;
    CPolygon work;
    if (n > 0 && !copyCorners(*this, n, work)) {
        return 0;
    }
    Attributes sums;
    // Where no ear is left, the first three corners that remain still give the last triangle.
    clipEars(work, [&](int i, int j, int k) { sums.Accumulate(work, i, j, k); });
    if (work.GetSize() >= 3) {
        sums.Accumulate(work, 0, 1, 2);
    }
    sums.centroid /= 3.0f;
    sums.normal.Normalize();
    if (sums.area <= kTinyArea) {
        sums.centroid = C3Point();
        for (int i = 0; i < n; ++i) {
            sums.centroid += m_points[static_cast<size_t>(i)];
        }
        if (n > 0) {
            sums.centroid /= static_cast<float>(n);
        }
    } else {
        sums.centroid /= sums.area;
    }
    *area = sums.area >= 0.0f ? sums.area * 0.5f : sums.area * -0.5f;
    *centroid = sums.centroid;
    *normal = sums.normal;
    const C3Point &nv = sums.normal;
    *slope = nv.z >= kTinyNormalZ ? std::sqrt(nv.x * nv.x + nv.y * nv.y) / nv.z : kNoSlope;
    if (*slope >= kFlatSlope) {
        *aspect = 90.0f - std::atan2(nv.y, nv.x) * kRadToDeg;
        if (*aspect < 0.0f) {
            *aspect += 360.0f;
        }
    } else {
        *aspect = 0.0f;
    }
    return 1;
}

int CPolygon::Intersected(const C3Point &a, const C3Point &b) const {
    return meetsOutline(*this, a, b, Intersect);
}

int CPolygon::IntersectedProp(const C3Point &a, const C3Point &b) const {
    return meetsOutline(*this, a, b, IntersectProp);
}
