#include "world/C3Point.h"

#include <cmath>

#include "platform/Archive.h"

QK_IMPLEMENT_SERIAL(C3Point)

namespace {
constexpr float kRadToDeg = 57.29578f;
constexpr float kDegToRad = 0.0175f;  // kept as it stands; see Spherical2Cartesian
constexpr float kEqualTolerance = 0.001f;
}  // namespace

C3Point::C3Point(double a, double b, double c, int mode) {
    if (mode == 0) {
        x = static_cast<float>(a);
        y = static_cast<float>(b);
        z = static_cast<float>(c);
        Cartesian2Spherical();
    } else if (mode == 1) {
        r = static_cast<float>(a);
        phi = static_cast<float>(b);
        theta = static_cast<float>(c);
        Spherical2Cartesian();
    }
}

C3Point &C3Point::operator=(const C3Point &other) {
    x = other.x;
    y = other.y;
    z = other.z;
    r = other.r;
    phi = other.phi;
    theta = other.theta;
    return *this;
}

C3Point &C3Point::operator-(const C3Point &b) {
    x -= b.x;
    y -= b.y;
    z -= b.z;
    return *this;
}

C3Point &C3Point::operator-() {
    x = -x;
    y = -y;
    z = -z;
    return *this;
}

C3Point &C3Point::operator+(const C3Point &b) {
    x += b.x;
    return *this;
}

C3Point &C3Point::operator+=(C3Point b) {
    x += b.x;
    y += b.y;
    z += b.z;
    return *this;
}

C3Point &C3Point::operator-=(C3Point b) {
    x -= b.x;
    y -= b.y;
    z -= b.z;
    return *this;
}

float C3Point::operator*(C3Point b) const {
    return x * b.x + y * b.y + z * b.z;
}

C3Point &C3Point::operator*(float f) {
    x *= f;
    y *= f;
    z *= f;
    return *this;
}

C3Point &C3Point::operator/(float f) {
    x /= f;
    y /= f;
    z /= f;
    return *this;
}

C3Point &C3Point::operator*=(float f) {
    return *this * f;
}

C3Point &C3Point::operator/=(float f) {
    return *this / f;
}

C3Point &C3Point::operator^(C3Point b) {
    x = b.z * y - b.y * z;
    y = b.x * z - b.z * x;
    z = b.y * x - b.x * y;
    return *this;
}

int C3Point::operator==(const C3Point &b) const {
    return std::fabs(x - b.x) <= kEqualTolerance && std::fabs(y - b.y) <= kEqualTolerance &&
                   std::fabs(z - b.z) <= kEqualTolerance
               ? 1
               : 0;
}

int C3Point::operator!=(const C3Point &b) const {
    return *this == b ? 0 : 1;
}

float C3Point::Length() const {
    return std::sqrt(x * x + y * y + z * z);
}

void C3Point::Scale(float f) {
    x *= f;
    y *= f;
    z *= f;
}

void C3Point::Normalize() {
    const float len = Length();
    if (len != 0.0f) {
        Scale(1.0f / len);
    }
}

void C3Point::Cartesian2Spherical() {
    r = std::sqrt(x * x + y * y + z * z);
    phi = std::atan(y / x) * kRadToDeg;
    theta = std::acos(z / r) * kRadToDeg;
}

void C3Point::Spherical2Cartesian() {
    x = std::sin(theta * kDegToRad) * (std::cos(phi * kDegToRad) * r);
    y = std::sin(theta * kDegToRad) * (std::sin(phi * kDegToRad) * r);
    z = std::cos(theta * kDegToRad) * r;
}

void C3Point::Serialize(qk::CArchive &ar) {
    qk::CObject::Serialize(ar);
    qk::SerializeVersion(ar);
}
