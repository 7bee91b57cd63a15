#include "world/PolygonGeometry.h"

#include <cmath>

namespace {
constexpr float kCollinearTolerance = 0.001f;
constexpr float kRadToDeg = 57.29578f;
}  // namespace

float Area2(C3Point a, C3Point b, C3Point c) {
    return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

bool Left(C3Point a, C3Point b, C3Point c) {
    return Area2(a, b, c) > 0.0f;
}

bool LeftOn(C3Point a, C3Point b, C3Point c) {
    return Area2(a, b, c) >= 0.0f;
}

bool Collinear(C3Point a, C3Point b, C3Point c) {
    return std::fabs(Area2(a, b, c)) < kCollinearTolerance;
}

bool Xor(bool x, bool y) {
    return x != y;
}

bool Between(C3Point a, C3Point b, C3Point c) {
    if (!Collinear(a, b, c)) {
        return false;
    }
    if (a.x != b.x) {
        return (a.x <= c.x && c.x <= b.x) || (a.x >= c.x && c.x >= b.x);
    }
    return (a.y <= c.y && c.y <= b.y) || (a.y >= c.y && c.y >= b.y);
}

bool IntersectProp(C3Point a, C3Point b, C3Point c, C3Point d) {
    if (Collinear(a, b, c) || Collinear(a, b, d) || Collinear(c, d, a) || Collinear(c, d, b)) {
        return false;
    }
    return Xor(Left(a, b, c), Left(a, b, d)) && Xor(Left(c, d, a), Left(c, d, b));
}

bool Intersect(C3Point a, C3Point b, C3Point c, C3Point d) {
    return IntersectProp(a, b, c, d) || Between(a, b, c) || Between(a, b, d) || Between(c, d, a) ||
           Between(c, d, b);
}

C3Point Cross(C3Point a, C3Point b) {
    return C3Point(a.y * b.z - b.y * a.z, b.x * a.z - a.x * b.z, a.x * b.y - b.x * a.y, 0);
}

C3Point TriangleNormal(C3Point a, C3Point b, C3Point c) {
    return Cross(b - a, c - a);
}

float TriangleArea2(C3Point a, C3Point b, C3Point c) {
    const C3Point n = TriangleNormal(a, b, c);
    const float len = n.Length();
    return n.z < 0.0f ? -len : len;
}

float Angle(C3Point a, C3Point b, C3Point c) {
    const C3Point u = b - a;  // b now holds b - a
    const C3Point w = c - b;
    const float q = (w * u) / std::sqrt(w.Length() * u.Length());
    float deg = std::acos(q) * kRadToDeg;
    if (deg < 0.0f) {
        deg = 0.0f;
    }
    return deg;
}

int LinePlaneIntersection(float A, float B, float C, float D, C3Point p1, C3Point p2,
                          C3Point *out) {
    const float denom = A * (p1.x - p2.x) + B * (p1.y - p2.y) + C * (p1.z - p2.z);
    if (denom == 0.0f || out == nullptr) {
        return 0;
    }
    const float t = (A * p1.x + B * p1.y + C * p1.z + D) / denom;
    out->x = (p2.x - p1.x) * t + p1.x;
    out->y = (p2.y - p1.y) * t + p1.y;
    out->z = (p2.z - p1.z) * t + p1.z;
    return 1;
}

float Pow(float x, int n) {
    // The magnitude of n in 64 bits, so that the most negative int is safe.
    long long m = n < 0 ? -static_cast<long long>(n) : n;
    float result = 1.0f;
    float base = x;
    while (m != 0) {
        if ((m & 1) != 0) {
            result *= base;
        }
        base *= base;
        m >>= 1;
    }
    return n < 0 ? 1.0f / result : result;
}
