// CPolygon: point in polygon, lengths, area, centroid, attributes and projection.
#include <cfloat>
#include <climits>
#include <cmath>

#include "world/C2Point.h"
#include "world/CPolygon.h"

namespace {
constexpr float kDegToRad = 0.0175f;  // the system's own factor, not pi/180
constexpr float kTinyArea = 0.001f;   // below this the area-weighted centroid is not used

float squaredXY(const C3Point &a, const C3Point &b) {
    const float dx = a.x - b.x;
    const float dy = a.y - b.y;
    return dx * dx + dy * dy;
}

// Truncation to int of a screen coordinate; what no int can hold becomes the nearest end,
// and not-a-number becomes 0.
int truncToInt(float v) {
    if (std::isnan(v)) {
        return 0;
    }
    if (v >= static_cast<float>(INT_MAX)) {
        return INT_MAX;
    }
    if (v <= static_cast<float>(INT_MIN)) {
        return INT_MIN;
    }
    return static_cast<int>(v);
}
}  // namespace

int CPolygon::PointIn(C3Point t) const {
    if (m_size == 0) {
        return 0;
    }
    // The crossings test with alternating vertices: a and b leapfrog along the outline.
    C3Point a = m_points[static_cast<size_t>(m_size - 1)];
    C3Point b;
    float dy = a.y - t.y;
    bool ya = dy >= 0.0f;
    bool yb = false;
    int crossings = 0;
    for (int i = 0; i < m_size; ++i) {
        if ((i & 1) != 0) {
            a = m_points[static_cast<size_t>(i)];
            dy = a.y - t.y;
            ya = dy >= 0.0f;
        } else {
            b = m_points[static_cast<size_t>(i)];
            yb = b.y >= t.y;
        }
        if (ya == yb) {
            continue;
        }
        const bool xa = a.x >= t.x;
        const bool xb = b.x >= t.x;
        if (xa != xb) {
            if (a.x - (b.x - a.x) * dy / (b.y - a.y) >= t.x) {
                ++crossings;
            }
        } else if (xa) {
            ++crossings;
        }
    }
    return crossings % 2;
}

// The edge from corner k to the next, the last one closing to corner 0, taken in place.
float CPolygon::EdgeLength(int k) {
    const int next = (k + 1) % m_size;
    return (m_points[static_cast<size_t>(next)] - m_points[static_cast<size_t>(k)]).Length();
}

float CPolygon::SegmentLength(int i, int j) {
    if (i < 0 || j < 0 || i >= m_size || j > m_size || i == j) {
        return 0.0f;
    }
    float length = 0.0f;
    if (i < j) {
        for (int k = i; k < j; ++k) {
            length += EdgeLength(k);
        }
        return length;
    }
    for (int k = i; k < m_size; ++k) {
        length += EdgeLength(k);
    }
    for (int k = 0; k < j; ++k) {
        length += EdgeLength(k);
    }
    return length;
}

C3Point CPolygon::GetClosestPoint(C3Point p, int *index) const {
    if (m_size == 0) {
        if (index != nullptr) {
            *index = -1;
        }
        return C3Point();
    }
    float best = FLT_MAX;
    int bestIndex = 0;
    for (int i = 0; i < m_size; ++i) {
        const float d = squaredXY(p, m_points[static_cast<size_t>(i)]);
        if (d < best) {
            best = d;
            bestIndex = i;
        }
    }
    if (index != nullptr) {
        *index = bestIndex;
    }
    return m_points[static_cast<size_t>(bestIndex)];
}

float CPolygon::Area() const {
    float sum = 0.0f;
    for (int i = 1; i < m_size - 1; ++i) {
        sum += TriangleArea2(m_points[0], m_points[static_cast<size_t>(i)],
                             m_points[static_cast<size_t>(i + 1)]);
    }
    return 0.5f * std::fabs(sum);
}

C3Point CPolygon::Centroid() {
    C3Point c;
    float sum = 0.0f;
    for (int i = 0; i + 2 < m_size; ++i) {
        C3Point &p0 = m_points[0];
        const C3Point &p1 = m_points[static_cast<size_t>(i + 1)];
        const C3Point &p2 = m_points[static_cast<size_t>(i + 2)];
        C3Point t = (p0 + p1 + p2) / 3.0f;  // corner 0 itself takes the sum
        const float a = TriangleArea2(p0, p1, p2);
        t.Scale(a);
        sum += a;
        c += t;
    }
    if (sum > kTinyArea) {
        c.Scale(1.0f / sum);
        return c;
    }
    c = C3Point();
    const int n = Closed() != 0 ? m_size - 1 : m_size;
    if (n <= 0) {
        return c;
    }
    for (int i = 0; i < n; ++i) {
        c += m_points[static_cast<size_t>(i)];
    }
    c.Scale(1.0f / static_cast<float>(n));
    return c;
}

void CPolygon::Rationalise(int minAngle) {
    for (int i = 1; i < GetSize() - 1; ++i) {
        const float angle =
            Angle(m_points[static_cast<size_t>(i - 1)], m_points[static_cast<size_t>(i)],
                  m_points[static_cast<size_t>(i + 1)]);
        if (static_cast<float>(minAngle) > angle) {
            Delete(i);
        }
    }
    SetSize(GetSize());
}

int CPolygon::Project3DPointsTo2D(C3Point eye, double d, int cx, int cy, CPoint *&out,
                                  int &count) const {
    delete[] out;
    out = nullptr;
    count = 0;
    if (m_size == 0) {
        return 1;
    }
    const double sT = std::sin(eye.theta * kDegToRad);
    const double cT = std::cos(eye.theta * kDegToRad);
    const double sP = std::sin(eye.phi * kDegToRad);
    const double cP = std::cos(eye.phi * kDegToRad);
    const double r = eye.r;
    out = new CPoint[static_cast<size_t>(m_size)];
    count = m_size;
    for (int i = 0; i < m_size; ++i) {
        const C3Point &p = m_points[static_cast<size_t>(i)];
        const double xe = -p.x * sT + p.y * cT;
        const double ye = -p.x * cP * cT - p.y * cP * sT + p.z * sP;
        const double ze = -p.x * sP * cT - p.y * sP * sT - p.z * cP + r;
        const C2Point screen(static_cast<float>(d * xe / ze + cx),
                             static_cast<float>(d * ye / ze + cy));
        out[i].x = truncToInt(screen.x);
        out[i].y = truncToInt(screen.y);
    }
    return 1;
}
