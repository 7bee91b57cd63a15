// An ordered list of corners and the plane through its first three: the acoustic surface of
// the system. The image-source model reflects in it, measures signed distances to it and
// clips lines against its plane. It also carries a 2-D toolkit (point in polygon, ear
// clipping, fan and Delaunay triangulation, area and aspect) that works in the x-y plane.
//
// A polygon may be stored closed, its last corner repeating the first; the triangulators
// expect that, the plane functions don't care. Operations returning int give 1 for success
// or true and 0 for failure or false.
#pragma once

#include <vector>

#include "platform/Object.h"
#include "world/C3Point.h"
#include "world/PolygonGeometry.h"

// An integer screen point.
struct CPoint {
    int x = 0;
    int y = 0;
};

class CPolygon : public qk::CObject {
    QK_DECLARE_SERIAL(CPolygon)

  public:
    // Beyond this many corners a size is refused as absurd (a room's wall has a handful).
    static constexpr int kMaxCorners = 1 << 22;

    CPolygon() = default;
    // n corners, all zero. A size that can't be had is reported and leaves it empty.
    explicit CPolygon(int n);
    CPolygon(const CPolygon &other);  // corners and plane
    // Copies the corners only; A to D of this polygon stay as they are.
    CPolygon &operator=(const CPolygon &other);
    ~CPolygon() override = default;

    // --- corners
    int GetSize() const { return m_size; }
    // Corner i. An index outside 0..GetSize()-1 gives a scratch point that belongs to no
    // corner, so that a bad index can't reach outside the list.
    C3Point &Point(int i);
    const C3Point &Point(int i) const;
    C3Point &operator[](int i) { return Point(i); }
    const C3Point &operator[](int i) const { return Point(i); }
    // n = 0 empties. A negative or absurd n, or a failed allocation, returns 0 and leaves
    // the corners as they were.
    int SetSize(int n);
    void RemoveAll() { SetSize(0); }
    int FreeExtra() { return SetSize(GetSize()); }
    int Add(C3Point p);
    int Add(const C3Point *p);
    // Inserts before corner i; i is clamped to 0..GetSize().
    int InsertAt(int i, C3Point p);
    // Removes corner i, moving the later ones down; an index out of range does nothing.
    int Delete(int i);
    int SetAt(int i, const C3Point &p);
    // Keeps a span of corners. The deleting loops run with a rising index while the corners
    // shift down under it, so every second corner of the range to go is what goes. Hosts
    // depend on the corners this leaves; it is not a range erase.
    int Trim(int first, int last);
    int Close();
    // Last corner equals corner 0 within 0.001 on each axis; 0 with no corners.
    int Closed() const;
    int InSpan(int a, int b, int i) const;
    int InSpanProper(int a, int b, int i) const;
    int PointSeparation(int i, int j) const;
    // Moves every corner by v; A to D are not updated.
    virtual void Translate(C3Point v);

    // --- plane: A x + B y + C z + D = 0, not normalised, valid after
    // CalculatePlaneCoefficients. The normal (A, B, C) = (p1 - p0) x (p2 - p0).
    int CalculatePlaneCoefficients();
    // Mirror image of p in the plane; out's spherical fields stay those of p. A zero normal
    // gives not-a-number coordinates without complaint.
    int Reflection(C3Point p, C3Point &out) const;
    // The same arithmetic with the step reversed: p moves a further twice its distance away
    // on its own side. It is not the inverse of Reflection.
    int Reflection_Back(C3Point p, C3Point &out) const;
    // Signed distance, positive on the side the normal points to.
    int Distance(C3Point p, float &d) const;

    // --- x-y geometry
    int PointIn(C3Point p) const;
    // Length along the outline from corner i to j. Each term is taken with the in-place
    // operator- on the stored corner, so the corners are overwritten: call it on a copy.
    float SegmentLength(int i, int j);
    // Corner nearest to p in x-y; its index goes to *index (-1 with no corners).
    C3Point GetClosestPoint(C3Point p, int *index) const;
    float Area() const;
    // The area-weighted centroid. The in-place operator+ and operator/ act on corner 0,
    // which therefore changes.
    C3Point Centroid();
    int GetAttributes(float *area, C3Point *centroid, C3Point *normal, float *slope,
                      float *aspect) const;
    // Removes corners whose angle is below minAngle degrees; the corner after a removed one
    // is skipped.
    void Rationalise(int minAngle);
    int Diagonal(int i, int j) const;
    // Triangulators: out receives triangles as runs of three corners.
    int Triangulate(CPolygon *out) const;
    int CPTriangulate(CPolygon *out, C3Point centre) const;
    int DelauneyTri(CPolygon *out) const;
    int Intersected(const C3Point &a, const C3Point &b) const;
    int IntersectedProp(const C3Point &a, const C3Point &b) const;
    // Screen points of all corners seen from the spherical position of eye (r, phi, theta in
    // degrees) at distance d, centred on (cx, cy). out is released with delete[] and
    // replaced; with no corners it stays null and count is 0.
    int Project3DPointsTo2D(C3Point eye, double d, int cx, int cy, CPoint *&out, int &count) const;

    // Archives only the object version: corners are made again from what describes them.
    void Serialize(qk::CArchive &ar) override;

    float A = 0.0f;
    float B = 0.0f;
    float C = 0.0f;
    float D = 0.0f;

  protected:
    int m_size = 0;                 // valid corners
    std::vector<C3Point> m_points;  // at least m_size entries

  private:
    int InCone(int i, int j) const;
    int Diagonalie(int i, int j) const;
    // Appends at the running count without giving back what SetSize allocated.
    void AppendRun(const C3Point &p);
    float EdgeLength(int k);
    int Mirror(C3Point p, C3Point &out, float fSign) const;

    mutable C3Point m_outside;  // what a bad index reaches
};
