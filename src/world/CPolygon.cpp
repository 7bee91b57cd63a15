// CPolygon: corners and the plane.
#include "world/CPolygon.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <new>

#include "platform/Archive.h"
#include "platform/Report.h"

QK_IMPLEMENT_SERIAL(CPolygon)

CPolygon::CPolygon(int n) {
    if (n != 0 && SetSize(n) == 0) {
        qk::Report("Unable to allocate sufficient memory for polygon", "Quendarik",
                   qk::Severity::Error);
    }
}

CPolygon::CPolygon(const CPolygon &other)
    : qk::CObject(),
      A(other.A),
      B(other.B),
      C(other.C),
      D(other.D),
      m_size(other.m_size),
      m_points(other.m_points.begin(), other.m_points.begin() + other.m_size) {}

CPolygon &CPolygon::operator=(const CPolygon &other) {
    if (this != &other) {
        m_points.assign(other.m_points.begin(), other.m_points.begin() + other.m_size);
        m_size = other.m_size;
    }
    return *this;
}

C3Point &CPolygon::Point(int i) {
    if (i < 0 || i >= m_size) {
        m_outside = C3Point();
        return m_outside;
    }
    return m_points[static_cast<size_t>(i)];
}

const C3Point &CPolygon::Point(int i) const {
    if (i < 0 || i >= m_size) {
        m_outside = C3Point();
        return m_outside;
    }
    return m_points[static_cast<size_t>(i)];
}

int CPolygon::SetSize(int n) {
    if (n == 0) {
        m_points.clear();
        m_points.shrink_to_fit();
        m_size = 0;
        return 1;
    }
    if (n < 0 || n > kMaxCorners) {
        return 0;
    }
    try {
        m_points.resize(static_cast<size_t>(n));
    } catch (const std::bad_alloc &) {
        return 0;
    }
    m_size = n;
    return 1;
}

int CPolygon::Add(C3Point p) {
    if (SetSize(m_size + 1) == 0) {
        return 0;
    }
    m_points[static_cast<size_t>(m_size - 1)] = p;
    return 1;
}

int CPolygon::Add(const C3Point *p) {
    return p != nullptr ? Add(*p) : 0;
}

int CPolygon::InsertAt(int i, C3Point p) {
    const int at = std::clamp(i, 0, m_size);
    if (SetSize(m_size + 1) == 0) {
        return 0;
    }
    for (int k = m_size - 1; k > at; --k) {
        m_points[static_cast<size_t>(k)] = m_points[static_cast<size_t>(k - 1)];
    }
    m_points[static_cast<size_t>(at)] = p;
    return 1;
}

int CPolygon::Delete(int i) {
    if (i < 0 || i >= m_size) {
        return 0;
    }
    for (int k = i; k < m_size - 1; ++k) {
        m_points[static_cast<size_t>(k)] = m_points[static_cast<size_t>(k + 1)];
    }
    --m_size;
    return 1;
}

int CPolygon::SetAt(int i, const C3Point &p) {
    if (i < 0 || i >= m_size) {
        return 0;
    }
    m_points[static_cast<size_t>(i)] = p;
    return 1;
}

namespace {
// last + 1 without overflow; anything past the limit is refused by SetSize all the same.
int countThrough(int last) {
    return static_cast<int>(std::min<long long>(last + 1LL, CPolygon::kMaxCorners + 1LL));
}
}  // namespace

int CPolygon::Trim(int first, int last) {
    if (first == 0) {
        return SetSize(countThrough(last));
    }
    // A delete at or past the end does nothing, so the loops need not run beyond the corners
    // there are.
    if (first > last) {
        const int end = std::min(first, m_size);
        for (int k = std::max(last, 0); k < end; ++k) {
            Delete(k);
        }
        return SetSize(GetSize());
    }
    SetSize(countThrough(last));
    const int end = std::min(first, m_size);
    for (int k = 0; k < end; ++k) {
        Delete(k);
    }
    return SetSize(GetSize());
}

int CPolygon::Close() {
    if (Closed() != 0) {
        return 1;
    }
    if (m_size == 0) {
        return 0;
    }
    const C3Point first = m_points[0];
    return Add(first);
}

int CPolygon::Closed() const {
    if (m_size == 0) {
        return 0;
    }
    return m_points[static_cast<size_t>(m_size - 1)] == m_points[0];
}

int CPolygon::InSpan(int a, int b, int i) const {
    if (i < 0 || i >= m_size) {
        return 0;
    }
    if (a > b) {
        return (i <= b || i >= a) ? 1 : 0;
    }
    return (a <= i && i <= b) ? 1 : 0;
}

int CPolygon::InSpanProper(int a, int b, int i) const {
    if (i < 0 || i >= m_size) {
        return 0;
    }
    if (a > b) {
        return (i < b || i > a) ? 1 : 0;
    }
    return (a < i && i < b) ? 1 : 0;
}

int CPolygon::PointSeparation(int i, int j) const {
    const long long diff = static_cast<long long>(j) - i;
    long long result = diff;
    if (Closed() != 0) {
        const long long d = std::llabs(diff);
        result = std::min(d, std::llabs(m_size - 1 - d));
    }
    return static_cast<int>(std::clamp<long long>(result, INT_MIN, INT_MAX));
}

void CPolygon::Translate(C3Point v) {
    for (int i = 0; i < m_size; ++i) {
        m_points[static_cast<size_t>(i)] += v;
    }
}

int CPolygon::CalculatePlaneCoefficients() {
    if (m_size < 3) {
        return 0;
    }
    // In double, as the coefficients of nearly flat triangles lose too much in float.
    const double x0 = m_points[0].x, y0 = m_points[0].y, z0 = m_points[0].z;
    const double x1 = m_points[1].x, y1 = m_points[1].y, z1 = m_points[1].z;
    const double x2 = m_points[2].x, y2 = m_points[2].y, z2 = m_points[2].z;
    A = static_cast<float>((z1 - z2) * y0 + (z2 - z0) * y1 + (z0 - z1) * y2);
    B = static_cast<float>((x1 - x2) * z0 + (x2 - x0) * z1 + (x0 - x1) * z2);
    C = static_cast<float>((y1 - y2) * x0 + (y2 - y0) * x1 + (y0 - y1) * x2);
    D = static_cast<float>(
        -((y1 * z2 - y2 * z1) * x0 + (y2 * z0 - y0 * z2) * x1 + (y0 * z1 - y1 * z0) * x2));
    return 1;
}

int CPolygon::Mirror(C3Point p, C3Point &out, float fSign) const {
    out = p;
    const float v = A * p.x + B * p.y + C * p.z + D;
    const float s = fSign * (v / (Pow(C, 2) + (Pow(B, 2) + Pow(A, 2))));
    const float k = 2.0f * s;
    out.x = p.x - k * A;
    out.y = p.y - k * B;
    out.z = p.z - k * C;
    return 1;
}

int CPolygon::Reflection(C3Point p, C3Point &out) const {
    return Mirror(p, out, 1.0f);
}

int CPolygon::Reflection_Back(C3Point p, C3Point &out) const {
    return Mirror(p, out, -1.0f);
}

int CPolygon::Distance(C3Point p, float &d) const {
    d = 0.0f;
    const float v = A * p.x + B * p.y + C * p.z + D;
    d = v / std::sqrt(Pow(C, 2) + (Pow(B, 2) + Pow(A, 2)));
    return 1;
}

void CPolygon::AppendRun(const C3Point &p) {
    if (static_cast<size_t>(m_size) < m_points.size()) {
        m_points[static_cast<size_t>(m_size)] = p;
        ++m_size;
    } else {
        m_points.push_back(p);
        m_size = static_cast<int>(m_points.size());
    }
}

void CPolygon::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    qk::SerializeVersion(ar);
}
