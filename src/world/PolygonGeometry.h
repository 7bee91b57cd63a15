// Free geometry functions on which CPolygon rests. Points are taken by value, so that the
// in-place operators of C3Point work on copies. All work in the x-y plane except Cross,
// TriangleNormal, TriangleArea2 and LinePlaneIntersection.
#pragma once

#include "world/C3Point.h"

// Twice the signed area of the triangle a, b, c in x-y; positive when c is left of a->b.
float Area2(C3Point a, C3Point b, C3Point c);
bool Left(C3Point a, C3Point b, C3Point c);
bool LeftOn(C3Point a, C3Point b, C3Point c);
// |Area2| below 0.001.
bool Collinear(C3Point a, C3Point b, C3Point c);
bool Xor(bool x, bool y);
// c on the segment a-b, given that the three are collinear; ends included.
bool Between(C3Point a, C3Point b, C3Point c);
// Segments a-b and c-d cross at a point interior to both.
bool IntersectProp(C3Point a, C3Point b, C3Point c, C3Point d);
// Segments a-b and c-d meet, touching included.
bool Intersect(C3Point a, C3Point b, C3Point c, C3Point d);

// The true cross product a x b, spherical fields filled.
C3Point Cross(C3Point a, C3Point b);
C3Point TriangleNormal(C3Point a, C3Point b, C3Point c);
// Length of the triangle's normal (twice its area), negative when the normal points below
// the x-y plane.
float TriangleArea2(C3Point a, C3Point b, C3Point c);
// Degrees at b between a->b and b->c as this system has always measured it: the second
// difference is taken from the first, and the product of the lengths goes under a root.
float Angle(C3Point a, C3Point b, C3Point c);

// Where the line p1-p2 meets the plane A x + B y + C z + D = 0. Returns 0, out untouched,
// when the line is parallel to the plane; else 1 with out's x, y, z set (spherical fields
// left alone).
int LinePlaneIntersection(float A, float B, float C, float D, C3Point p1, C3Point p2, C3Point *out);

// x to the integer power n by repeated squaring (reciprocal for negative n).
float Pow(float x, int n);
