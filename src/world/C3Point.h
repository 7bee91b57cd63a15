// The one 3-D value type of the system: sources, listeners, images and corners.
//
// The Cartesian triple (x, y, z in metres) and the spherical triple (r in metres, phi and
// theta in degrees) are separate storage. Arithmetic changes x, y, z only; r, phi, theta stay
// as they were until Cartesian2Spherical runs. Callers rely on that.
//
// Every operator that returns a C3Point& works in place on its left operand, the binary
// looking ones included: `a - b` changes a. Copy first when the operands must stay intact.
#pragma once

#include "platform/Object.h"

class C3Point : public qk::CObject {
    QK_DECLARE_SERIAL(C3Point)

  public:
    C3Point() = default;
    C3Point(const C3Point &other) = default;
    // mode 0: (a, b, c) are x, y, z and the spherical fields are computed. mode 1: they are
    // r, phi, theta and the Cartesian fields are computed. Any other mode sets nothing.
    C3Point(double a, double b, double c, int mode);

    C3Point &operator=(const C3Point &other);

    C3Point &operator-(const C3Point &b);
    C3Point &operator-();
    // Adds b.x to x and nothing else. The centroid code is written against this; the full
    // vector sum is operator+=.
    C3Point &operator+(const C3Point &b);
    C3Point &operator+=(C3Point b);
    C3Point &operator-=(C3Point b);
    float operator*(C3Point b) const;  // dot product
    C3Point &operator*(float f);
    C3Point &operator/(float f);  // no test for 0
    C3Point &operator*=(float f);
    C3Point &operator/=(float f);
    // Each component is assigned in turn from the ones already updated, so only x is the
    // textbook cross product; the true one is the free function Cross.
    C3Point &operator^(C3Point b);
    // Equal when x, y and z each differ by at most 0.001.
    int operator==(const C3Point &b) const;
    int operator!=(const C3Point &b) const;

    float Length() const;
    void Scale(float f);
    // Scales to length 1; a zero vector stays zero.
    void Normalize();
    // phi uses the one-argument arctangent (-90..90, the quadrant is not resolved), so x = 0
    // gives the limit of the float division and x = y = 0 a not-a-number phi.
    void Cartesian2Spherical();
    // Degrees become radians by the factor 0.0175, not pi/180: a round trip scales angles by
    // about 1.00268, and positions made this way depend on it.
    void Spherical2Cartesian();

    // Archives only the object version: a point's persistent form is its expressions, from
    // which the coordinates are generated again.
    void Serialize(qk::CArchive &ar) override;

    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
    float r = 0.0f;
    float phi = 0.0f;    // degrees, in the x-y plane
    float theta = 0.0f;  // degrees from +z
};
